# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""The peers alone, without the daemon. When this fails, the machine is at fault: for that question, not a part of
"all"."""

import accesspoint
from accesspoint import PASSPHRASE
from harness import run
from waiting import wait_for
from wifi import WifiTest, say

ON_REQUEST = True

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

    def test_wpa2(self):
        """A supplicant started by hand joins WPA2."""
        self.join_by_hand(self.access_point("peer", accesspoint.WPA2), f'psk="{PASSPHRASE}"')
