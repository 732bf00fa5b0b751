# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Every kind of stored wireless network, from its definition to an address and the published status."""

import shutil
from pathlib import Path

import accesspoint
import control
from accesspoint import CERTIFICATES, ENTERPRISE, IDENTITY, PASSPHRASE, PASSWORD, WEP_KEY
from harness import write_store
from waiting import wait_for
from wifi import JOIN_TIME, WifiTest, definition, say

PEAP = {"identity": IDENTITY, "password": PASSWORD, "caCert": "corvi-ca.crt"}
TLS = {"identity": IDENTITY, "caCert": f"{CERTIFICATES}/ca.crt", "clientCert": f"{CERTIFICATES}/client.crt",
       "privateKey": f"{CERTIFICATES}/client.key"}
FAST = {"identity": IDENTITY, "password": PASSWORD, "cipher": "automatic"}


class Personal(WifiTest):
    def test_open(self):
        """An unsecured network."""
        self.join(self.access_point("open air"), definition("open air", "Unsecured"))

    def test_wep_open(self):
        """WEP with open authentication."""
        self.join(self.access_point("old", accesspoint.WEP_OPEN), definition("old", "WEP", wepKey=WEP_KEY))

    def test_wep_shared(self):
        """WEP with shared key authentication."""
        self.join(self.access_point("old", accesspoint.WEP_SHARED),
                  definition("old", "WEP (Shared)", wepKey=WEP_KEY))

    def test_wpa(self):
        """The first WPA, with TKIP."""
        self.join(self.access_point("office", accesspoint.WPA),
                  definition("office", "WPA Personal 1/2", passphrase=PASSPHRASE))

    def test_wpa3(self):
        """WPA3 personal (SAE), with nl80211 first."""
        access_point = self.access_point("office", accesspoint.WPA3)
        self.join(access_point, definition("office", "WPA Personal 3", passphrase=PASSPHRASE), useNewDriver=True)
        self.assertEqual(self.supplicant_status()["key_mgmt"], "SAE")

    def test_wpa3_wireless_extensions(self):
        """WPA3 with the wireless extensions first: they know no SAE, and the supplicant says so."""
        access_point = self.access_point("office", accesspoint.WPA3)
        write_store(definition("office", "WPA Personal 3", passphrase=PASSPHRASE))
        self.start_daemon()
        wait_for("the supplicant scans", lambda: self.supplicant_status().get("wpa_state") == "SCANNING", JOIN_TIME)
        self.wait_refused(access_point, "Failed to select authenticated key management type")
        say("as expected: the wireless extensions cannot do WPA3")

    def test_wpa2_3(self):
        """The 2/3 mix on an access point that offers PSK with SHA-256."""
        access_point = self.access_point("office", accesspoint.WPA2_SHA256_AND_WPA3)
        self.join(access_point, definition("office", "WPA Personal 2/3", passphrase=PASSPHRASE))
        self.assertEqual(self.supplicant_status()["key_mgmt"], "WPA2-PSK-SHA256")

    def test_wpa2_3_without_sha256(self):
        """The 2/3 mix on the usual mixed access point (PSK and SAE): no common key management."""
        access_point = self.access_point("office", accesspoint.WPA2_AND_WPA3)
        write_store(definition("office", "WPA Personal 2/3", passphrase=PASSPHRASE), useNewDriver=True)
        self.start_daemon()
        wait_for("the supplicant scans", lambda: self.supplicant_status().get("wpa_state") == "SCANNING", JOIN_TIME)
        self.assert_never_in(access_point)

    def assert_never_in(self, access_point):
        # Two scans of the supplicant: it found the network in each and took it in neither.
        wait_for("the network is seen", lambda: "office" in self.scan_results(), 30)
        wait_for("another scan", lambda: self.supplicant_status().get("wpa_state") == "SCANNING", 30)
        self.assertEqual(access_point.stations(), [])
        say("as expected: the definition's key management is not offered")

    @staticmethod
    def scan_results():
        return control.ask("/var/run/wpa_supplicant/wlan0", "SCAN_RESULTS")


class Enterprise(WifiTest):
    def setUp(self):
        super().setUp()
        shutil.copy(CERTIFICATES / "ca.crt", "/etc/ssl/certs/corvi-ca.crt")

    def test_peap_mschapv2(self):
        """PEAP with MSCHAPv2."""
        self.join(self.access_point("campus", ENTERPRISE, method="PEAP"),
                  definition("campus", "WPA Enterprise 1/2 (PEAP/MSCHAPv2)", **PEAP))

    def test_tls_by_path(self):
        """TLS, the certificates given as absolute paths."""
        self.join(self.access_point("campus", ENTERPRISE, method="TLS"),
                  definition("campus", "WPA Enterprise 1/2 (TLS)", **TLS))

    def test_tls_by_name(self):
        """TLS, the certificates given by name."""
        shutil.copy(CERTIFICATES / "client.crt", "/etc/ssl/certs/corvi-client.crt")
        shutil.copy(CERTIFICATES / "client.key", "/etc/ssl/private/corvi-client.key")
        self.join(self.access_point("campus", ENTERPRISE, method="TLS"),
                  definition("campus", "WPA Enterprise 1/2 (TLS)", identity=IDENTITY, caCert="corvi-ca.crt",
                             clientCert="corvi-client.crt", privateKey="corvi-client.key"))

    def test_tls_with_scep(self):
        """TLS, with the certificates that SCEP fetched."""
        folder = Path("/tmp/config/files/scep")
        folder.mkdir(parents=True)
        shutil.copy(CERTIFICATES / "client.crt", folder / "device.crt")
        shutil.copy(CERTIFICATES / "client.key", folder / "scep.key")
        shutil.copy(CERTIFICATES / "ca.crt", "/etc/ssl/certs/scepCA-1.crt")
        self.join(self.access_point("campus", ENTERPRISE, method="TLS"),
                  definition("campus", "WPA Enterprise 1/2 (TLS with SCEP)", identity=IDENTITY, caCert="default"))

    def test_eap_fast(self):
        """EAP-FAST that fetches its PAC by itself."""
        folder = Path("/tmp/config/files/eap-fast-pac")
        folder.mkdir(parents=True)
        self.join(self.access_point("campus", ENTERPRISE, method="FAST"),
                  definition("campus", "WPA Enterprise 1/2 (EAP-FAST)", **FAST))
        self.assertIn("wpa_supplicant EAP-FAST PAC file", (folder / "eap-fast.pac").read_text())

    def test_peap_gtc_server_with_mschapv2(self):
        """PEAP/GTC on a server that also does MSCHAPv2: the definition names no inner method, so it joins."""
        self.join(self.access_point("campus", ENTERPRISE, method="PEAP"),
                  definition("campus", "WPA Enterprise 1/2 (PEAP/GTC)", identity=IDENTITY, password=PASSWORD))

    def test_peap_gtc(self):
        """PEAP/GTC proper: needs the clear password, of which only a hash is written. Ends at the inner method."""
        access_point = self.access_point("campus", ENTERPRISE, method="PEAP-GTC")
        write_store(definition("campus", "WPA Enterprise 1/2 (PEAP/GTC)", identity=IDENTITY, password=PASSWORD))
        self.start_daemon()
        self.wait_refused(access_point, "CTRL-EVENT-EAP-FAILURE")
        say("as expected: the inner method GTC has no use for a hashed password")

    def test_leap(self):
        """LEAP: no access point here has a server for it. Ends when the access point refuses the LEAP frame."""
        access_point = self.access_point("campus", ENTERPRISE, method="PEAP")
        write_store(definition("campus", "WPA Enterprise 1/2 (LEAP)", identity=IDENTITY, password=PASSWORD),
                    useNewDriver=True)
        self.start_daemon()
        self.wait_refused(access_point, "CTRL-EVENT-AUTH-REJECT")
        say("as expected: the access point knows no LEAP")
