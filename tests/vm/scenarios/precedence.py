# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Wired goes before wireless, while cables and networks come and go."""

from pathlib import Path

import accesspoint
from accesspoint import PASSPHRASE
from harness import addresses, default_gateway, holds_for, is_up, logged_at, status, touch, wired, write_store
from waiting import address_on, wait_for
from wifi import JOIN_TIME, WifiTest, definition, say

KEEP_WIRELESS_UP = Path("/tmp/keepwirelessup")


def office():
    return definition("office", "WPA Personal 1/2", passphrase=PASSPHRASE)


class Precedence(WifiTest):
    def setUp(self):
        super().setUp()
        KEEP_WIRELESS_UP.unlink(missing_ok=True)
        self.access = self.access_point("office", accesspoint.WPA2)
        self.lan = self.cable("eth0")
        self.dhcp_server(self.lan)
        self.lan.pull()
        write_store(wired(), office())

    def wait_wired(self):
        address = self.wait_address("eth0", timeout=60)
        wait_for("the wired address is published",
                 lambda: status().get("ipAddress") == address and not status()["wireless"], 20)
        return address


class Cable(Precedence):
    def test_cable_takes_over_and_gives_back(self):
        """Wireless is up; a cable comes, wireless goes down; the cable goes, wireless comes back."""
        self.start_daemon()
        self.wait_joined(self.access)

        self.lan.plug()
        self.wait_wired()
        wait_for("wireless is down", lambda: not is_up("wlan0"), 20)
        wait_for("the way out is the cable", lambda: default_gateway() == "10.77.0.1", 10)
        say("cable in: wired has the address, wireless is down")

        starts = self.count_logged("Start Wireless interface")
        self.lan.pull()
        wait_for("wireless starts again", lambda: self.count_logged("Start Wireless interface") > starts, 60)
        # Two ticks without a cable come first.
        delay = logged_at("Start Wireless interface") - logged_at("Wired Device Connected")
        self.assertGreater(delay, 1.5)
        self.assertEqual(addresses("eth0"), [])
        self.wait_joined(self.access)
        say(f"cable out: wireless started after {delay:.1f} s and joined")

    def test_keep_wireless_up(self):
        """The same with the flag file: wireless is not taken down. As an unsecured cable needs no supplicant,
        the only one ends all the same and wlan0 with it; it is started again when the cable goes."""
        touch(KEEP_WIRELESS_UP)
        self.start_daemon()
        self.wait_joined(self.access)

        self.lan.plug()
        self.wait_wired()
        holds_for("wireless is not stopped", lambda: not self.count_logged("Stopping wireless device"), 5)
        say(f"cable in: wired has an address; wlan0 is {'up' if is_up('wlan0') else 'down'}, "
            f"its addresses: {addresses('wlan0')}")

        self.lan.pull()
        wait_for("no wired address", lambda: not addresses("eth0"), 30)
        self.wait_joined(self.access)
        self.assertEqual(self.count_logged("Stopping wireless device"), 0)
        self.assertEqual(self.count_logged("Start Wireless interface"), 1)
        say("cable out: wireless is back")

    def test_cable_in_at_the_start(self):
        """With a cable from the start wireless is not touched."""
        self.lan.plug()
        self.start_daemon()
        self.wait_wired()
        holds_for("wireless is not started", lambda: not self.count_logged("Start Wireless interface"), 5)
        self.assertFalse(is_up("wlan0"))
        self.assertEqual(self.access.stations(), [])

    def test_nothing_at_the_start(self):
        """No cable and no network in the air; then both come, the network first."""
        self.access.stop()
        daemon = self.start_daemon()
        daemon.wait_logged("Attached to control interface", JOIN_TIME)
        holds_for("no address", lambda: not address_on("wlan0") and not address_on("eth0"), 5)

        self.access.start()
        self.wait_joined(self.access)
        say("the network came: joined")
        self.lan.plug()
        self.wait_wired()
        wait_for("wireless is down", lambda: not is_up("wlan0"), 20)
        say("the cable came: wired has taken over")
