# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""The peers alone, without the daemon. When these fail, the machine is at fault."""

import accesspoint
from accesspoint import IDENTITY, PASSPHRASE, PASSWORD
from harness import run
from waiting import wait_for
from wifi import WifiTest, say

CONFIGURATION = """ctrl_interface=/var/run/wpa_supplicant
network={{
ssid="peer"
{}
}}
"""


class Peers(WifiTest):
    def join_by_hand(self, access_point, *lines):
        with open("/tmp/by-hand.conf", "w", encoding="utf-8") as file:
            file.write(CONFIGURATION.format("\n".join(lines)))
        run("wpa_supplicant", "-B", "-iwlan0", "-Dnl80211", "-c/tmp/by-hand.conf", "-f/var/log/wpa_supplicant.log",
            "-d")
        wait_for("the supplicant is let in", lambda: self.supplicant_status().get("wpa_state") == "COMPLETED", 60)
        run("dhclient", "-1", "wlan0", timeout=60)
        address = self.wait_address("wlan0", access_point.serves)
        say(f"by hand: address {address}")

    def test_open(self):
        """A supplicant started by hand joins an open network."""
        self.join_by_hand(self.access_point("peer"), "key_mgmt=NONE")

    def test_wpa2(self):
        """A supplicant started by hand joins WPA2."""
        self.join_by_hand(self.access_point("peer", accesspoint.WPA2), f'psk="{PASSPHRASE}"')

    def test_eap_fast(self):
        """A supplicant started by hand gets a PAC and joins with EAP-FAST."""
        self.join_by_hand(self.access_point("peer", accesspoint.ENTERPRISE, method="FAST"),
                          "key_mgmt=WPA-EAP", "eap=FAST", f'identity="{IDENTITY}"', f'password="{PASSWORD}"',
                          'anonymous_identity="FAST"', 'phase1="fast_provisioning=1"', 'pac_file="/tmp/by-hand.pac"')
