# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Wired goes before the modem, the modem before wireless, while cables and networks come and go."""

import os
from pathlib import Path

import accesspoint
from accesspoint import PASSPHRASE
from harness import (LINK_UP, addresses, default_gateway, holds_for, is_up, logged_at, read, run, status, touch, wired,
                     write_store)
from waiting import address_on, wait_for
from wifi import JOIN_TIME, WifiTest, definition, say

KEEP_WIRELESS_UP = Path("/tmp/keepwirelessup")
TOOL_FOLDER = Path("/tmp/fakes")
# Connected is what the file "connected" says. The other commands leave a line in "calls".
MODEM_TOOL = """#!/bin/sh
cd /tmp/fakes
echo "$1" >>calls
case $1 in
    status) if [ -e missing ]; then echo "cannot find modem"; elif [ -e connected ]; then echo connected;
        else echo disconnected; fi ;;
    ip_config) ip addr replace 10.88.0.2/24 dev wwan0 ;;
esac
"""


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


class Modem(Precedence):
    def setUp(self):
        super().setUp()
        TOOL_FOLDER.mkdir(exist_ok=True)
        for path in TOOL_FOLDER.iterdir():
            path.unlink()
        tool = TOOL_FOLDER / "modem-tool.sh"
        tool.write_text(MODEM_TOOL)
        tool.chmod(0o755)
        path = os.environ["PATH"]
        self.addCleanup(os.environ.__setitem__, "PATH", path)
        os.environ["PATH"] = f"{TOOL_FOLDER}:{path}"

    def modem(self, name):
        self.cell = self.cable(name, address="10.88.0.1/24")

    @staticmethod
    def calls(command):
        return read(TOOL_FOLDER / "calls").split("\n").count(command)

    def test_modem_before_wireless(self):
        """A modem that connects is used and wireless is not; a cable goes before both."""
        self.modem("wwan0")
        touch(TOOL_FOLDER / "connected")
        listener = self.listen()
        daemon = self.start_daemon()
        daemon.wait_logged("modem connected", 30)
        wait_for("the modem's address", lambda: addresses("wwan0"), 10)
        self.wait_events(listener, LINK_UP)
        self.assertEqual((self.calls("connect"), self.calls("ip_config")), (1, 1))
        holds_for("wireless is not started", lambda: not self.count_logged("Start Wireless interface"), 6)
        self.assertFalse(is_up("wlan0"))
        self.assertEqual(self.count_logged("modem connected"), 1)
        say("the modem is in use, wireless is not started")

        self.lan.plug()
        self.wait_wired()
        self.assertEqual(self.calls("disconnect"), 0)
        say("a cable came: wired is in use; with a single modem name the modem is left as it is")

    def test_modem_lost(self):
        """A modem that loses its connection is asked again on every tick and configured on each change."""
        self.modem("wwan0")
        touch(TOOL_FOLDER / "connected")
        daemon = self.start_daemon()
        daemon.wait_logged("modem connected", 30)

        (TOOL_FOLDER / "connected").unlink()
        daemon.wait_logged("modem connected", 20, count=2)
        touch(TOOL_FOLDER / "connected")
        daemon.wait_logged("modem connected", 20, count=3)

        wait_for("configured on each change", lambda: self.calls("ip_config") == 3, 10)
        self.assertEqual(self.calls("connect"), 1)
        self.assertEqual(self.count_logged("Start Wireless interface"), 0)

    def test_modem_never_ready(self):
        """A modem without a link is given up after more than ten ticks; wireless gets its turn."""
        self.modem("wwan0")
        self.cell.pull()
        self.start_daemon()
        wait_for("the modem is given up", lambda: self.count_logged("Start Wireless interface") > 0, 60)
        self.assertEqual(self.calls("status"), 11)
        self.assertFalse(is_up("wwan0"))
        self.wait_joined(self.access)
        say("the modem never got a link: given up after 11 ticks, wireless joined")

    def test_two_modem_names(self):
        """With two modem names a cable takes the modem down; it comes back when the cable goes."""
        self.modem("wwan0")
        run("ip", "link", "add", "name", "wwan1", "type", "dummy")
        touch(TOOL_FOLDER / "connected")
        daemon = self.start_daemon()
        daemon.wait_logged("modem connected", 30)

        self.lan.plug()
        self.wait_wired()
        wait_for("the modem is disconnected", lambda: self.calls("disconnect") > 0, 20)
        wait_for("the modem is down", lambda: not is_up("wwan0"), 10)
        (TOOL_FOLDER / "calls").unlink()

        self.lan.pull()
        wait_for("the modem is connected again", lambda: self.calls("connect") > 0, 30)
        wait_for("the modem is up", lambda: is_up("wwan0"), 10)
        self.assertEqual(self.count_logged("Start Wireless interface"), 0)
        say("two modem names: taken down for the cable, brought up again without it")
