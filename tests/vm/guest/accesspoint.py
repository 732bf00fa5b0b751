# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Access points: hostapd on a simulated radio and dnsmasq for addresses.

Each one lives in a network namespace of its own, so that its traffic really
goes through the air.
"""

import os
import re
from pathlib import Path

import control
import radios
from harness import DhcpServer, FarEnd, read, run
from waiting import wait_for

PASSPHRASE = "correct horse battery"
WEP_KEY = "0b1c2d3e4f"
IDENTITY = "thin-client"
PASSWORD = "an EAP password"
CERTIFICATES = Path("/etc/ssl/corvi-vm")
# In seconds. How many numbers are tried until two are prime is chance, on a processor that others use, too.
KEY_TIME = 300

# What hostapd needs for each kind of network, after the lines that all have.
OPEN = ""
WEP_OPEN = f"wep_key0={WEP_KEY}\nwep_default_key=0\nauth_algs=1"
WEP_SHARED = f"wep_key0={WEP_KEY}\nwep_default_key=0\nauth_algs=2"
WPA = f"wpa=1\nwpa_key_mgmt=WPA-PSK\nwpa_pairwise=TKIP\nwpa_passphrase={PASSPHRASE}"
WPA2 = f"wpa=2\nwpa_key_mgmt=WPA-PSK\nrsn_pairwise=CCMP\nwpa_passphrase={PASSPHRASE}"
WPA3 = f"wpa=2\nwpa_key_mgmt=SAE\nrsn_pairwise=CCMP\nieee80211w=2\nsae_pwe=2\nsae_password={PASSPHRASE}"
WPA2_SHA256_AND_WPA3 = (
    "wpa=2\nwpa_key_mgmt=WPA-PSK WPA-PSK-SHA256 SAE\nrsn_pairwise=CCMP\nieee80211w=1\nsae_pwe=2\n"
    f"wpa_passphrase={PASSPHRASE}"
)
WPA2_AND_WPA3 = WPA2_SHA256_AND_WPA3.replace(" WPA-PSK-SHA256", "")
ENTERPRISE = (
    "wpa=2\nwpa_key_mgmt=WPA-EAP\nrsn_pairwise=CCMP\nieee8021x=1\neap_server=1\n"
    f"eap_user_file=USERS\nca_cert={CERTIFICATES}/ca.crt\n"
    f"server_cert={CERTIFICATES}/server.crt\nprivate_key={CERTIFICATES}/server.key\n"
    "pac_opaque_encr_key=000102030405060708090a0b0c0d0e0f\neap_fast_a_id=101112131415161718191a1b1c1d1e1f\n"
    "eap_fast_a_id_info=corvi-vm\neap_fast_prov=3\n"
    f"dh_file={CERTIFICATES}/dh"
)

# hostapd's lines for a channel of each band.
CHANNEL_1 = "hw_mode=g\nchannel=1"
CHANNEL_6 = "hw_mode=g\nchannel=6"
CHANNEL_36 = "hw_mode=a\nchannel=36"
CHANNEL_6GHZ = "hw_mode=a\nchannel=5\nop_class=131\nieee80211ax=1\nhe_oper_centr_freq_seg0_idx=5"


def users_file(method):
    """hostapd's users: an outer method for everybody, and one person for the inner ones. The client only has
    a hash of the password, which is enough for MSCHAPV2 and not for GTC."""
    inner = "GTC" if method == "PEAP-GTC" else "MSCHAPV2"
    return f'* {(method or "PEAP").split("-")[0]}\n"{IDENTITY}" {inner} "{PASSWORD}" [2]\n'


def make_certificates(folder):
    """A small certificate authority, a server's and a client's certificate. Made on the host, as an
    emulated processor takes long for the keys."""
    folder.mkdir(parents=True)
    # EAP-FAST hands out its first PAC over anonymous Diffie-Hellman.
    run("openssl", "genpkey", "-genparam", "-algorithm", "DH", "-pkeyopt", "group:ffdhe2048",
        "-out", folder / "dh")
    # RSA for the sake of EAP-FAST, whose server offers no cipher for other certificates.
    key = ["openssl", "req", "-nodes", "-newkey", "rsa:2048"]
    run(*key, "-x509", "-days", "30", "-subj", "/CN=Corvi test CA",
        "-keyout", folder / "ca.key", "-out", folder / "ca.crt", timeout=KEY_TIME)
    for name, usage in (("server", "serverAuth"), ("client", "clientAuth")):
        (folder / "usage").write_text(f"extendedKeyUsage={usage}\n")
        run(*key, "-subj", f"/CN=corvi-{name}",
            "-keyout", folder / f"{name}.key", "-out", folder / f"{name}.csr", timeout=KEY_TIME)
        run("openssl", "x509", "-req", "-days", "30", "-in", folder / f"{name}.csr",
            "-CA", folder / "ca.crt", "-CAkey", folder / "ca.key", "-CAcreateserial",
            "-extfile", folder / "usage", "-out", folder / f"{name}.crt")


class AccessPoint(FarEnd):
    """One network in the air; number N serves addresses of 10.N.0.0/24."""

    def __init__(self, number, ssid, security=OPEN, channel=CHANNEL_1, hidden=False, method=None,
                 dhcp=True):
        super().__init__(f"ap{number}", "ap")
        self.ssid = ssid
        self.radio = radios.unique_name()
        self.network = f"10.{number}.0"
        self.folder = Path(f"/tmp/{self.netns}")
        self.folder.mkdir()
        self.hostapd = None
        self.configuration = (
            f"interface=ap\ndriver=nl80211\nctrl_interface={self.folder}/control\n"
            f"ssid2={ssid.encode().hex()}\nutf8_ssid=1\n{channel}\n{self._with_method(security, method)}\n"
            f"ignore_broadcast_ssid={int(hidden)}\n"
        )
        self._make_link()
        self.start()
        if dhcp:
            self.serve_addresses()

    def _with_method(self, security, method):
        users = self.folder / "users"
        users.write_text(users_file(method))
        return security.replace("USERS", str(users))

    def _make_link(self):
        interface = radios.make_radio(self.radio)
        run("iw", "phy", self.radio, "set", "netns", "name", self.netns)
        self.run("ip", "link", "set", interface, "name", "ap")
        self.run("ip", "link", "set", "lo", "up")
        self.run("ip", "addr", "add", f"{self.network}.1/24", "dev", "ap")

    def serve_addresses(self):
        self.serves = DhcpServer(self, self.network).serves

    def start(self):
        """Goes on the air, and only returns once it is there."""
        (self.folder / "hostapd.conf").write_text(self.configuration)
        self.hostapd = self.spawn("hostapd", "-d", self.folder / "hostapd.conf", output=self.folder / "hostapd.log")
        wait_for(f"{self.netns} on the air", lambda: "AP-ENABLED" in self.log() or self.hostapd.poll() is not None, 30)
        if self.hostapd.poll() is not None:
            raise AssertionError("hostapd ended:\n" + "\n".join(self.log().splitlines()[-20:]))

    def stop(self):
        """Goes off the air as without power: nobody is told."""
        self.hostapd.kill()
        self.hostapd.wait()
        self.run("ip", "link", "set", "ap", "down")

    def set_signal(self, dbm):
        """How strongly it is heard from now on."""
        if not os.path.ismount("/sys/kernel/debug"):
            run("mount", "-t", "debugfs", "debugfs", "/sys/kernel/debug")
        # The kernel's file shows a signed number and takes an unsigned one. What it holds is received by others with
        # the sender's power, 20 dBm, on top.
        Path(f"/sys/kernel/debug/ieee80211/{self.radio}/hwsim/rx_rssi").write_text(str(2**64 + dbm - 20))

    def log(self):
        return read(self.folder / "hostapd.log")

    def control(self, command):
        return control.ask(self.folder / "control/ap", command)

    def stations(self):
        """The MAC addresses of those that are associated and authorised."""
        found = []
        answer = self.control("STA-FIRST")
        while answer:
            mac = answer.split("\n")[0]
            found += [mac] if "[AUTHORIZED]" in answer else []
            answer = self.control(f"STA-NEXT {mac}")
        return found

    def frequency(self):
        return int(re.search(r"^freq=(\d+)", self.control("STATUS"), re.M).group(1))
