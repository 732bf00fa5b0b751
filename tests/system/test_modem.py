# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""The modem between wired and wireless: when its tool is asked to connect, to configure, to disconnect."""

import os
from pathlib import Path

from carriers import RadioCarrier, end_standins, install_standins
from harness import (LINK_UP, LOG, SystemTest, addresses, holds_for, is_up, main, read, status, touch, wait_for,
                     wired, write_store)

TOOL_FOLDER = Path("/tmp/modem-tool")
# Connected is what the file "connected" says. The other commands leave a line in "calls".
MODEM_TOOL = """#!/bin/sh
cd /tmp/modem-tool
echo "$1" >>calls
case $1 in
    status) if [ -e connected ]; then echo connected; else echo disconnected; fi ;;
    ip_config) ip addr replace 10.88.0.2/24 dev wwan0 ;;
esac
"""


def calls(command):
    return read(TOOL_FOLDER / "calls").split("\n").count(command)


def wireless_starts():
    return read(LOG).count("Start Wireless interface")


class Modem(SystemTest):
    """A modem, a cable that is out and a radio out of range."""

    def setUp(self):
        super().setUp()
        install_standins()
        self.addCleanup(end_standins)
        self.install_tool()
        self.radio = RadioCarrier(True)
        self.addCleanup(self.radio.end)
        self.lan = self.cable("eth0")
        self.dhcp_server(self.lan)
        self.lan.pull()
        self.modem = self.cable("wwan0", address="10.88.0.1/24")
        write_store(wired(), self.radio.stored())

    def install_tool(self):
        TOOL_FOLDER.mkdir(exist_ok=True)
        for path in TOOL_FOLDER.iterdir():
            path.unlink()
        (TOOL_FOLDER / "modem-tool.sh").write_text(MODEM_TOOL)
        (TOOL_FOLDER / "modem-tool.sh").chmod(0o755)
        self.addCleanup(os.environ.__setitem__, "PATH", os.environ["PATH"])
        os.environ["PATH"] = f"{TOOL_FOLDER}:{os.environ['PATH']}"

    def connected_daemon(self):
        touch(TOOL_FOLDER / "connected")
        daemon = self.start_daemon()
        daemon.wait_logged("modem connected", 30)
        return daemon

    def wait_wired(self):
        address = self.wait_address("eth0", timeout=60)
        wait_for("the wired address is published",
                 lambda: status().get("ipAddress") == address and not status()["wireless"], 20)

    def test_before_wireless_and_behind_a_cable(self):
        listener = self.listen()
        self.connected_daemon()
        wait_for("the modem's address", lambda: addresses("wwan0"), 10)
        self.wait_events(listener, LINK_UP)
        self.assertEqual((calls("connect"), calls("ip_config")), (1, 1))
        holds_for("wireless is not started", lambda: not wireless_starts(), 6)
        self.assertFalse(is_up("wlan0"))
        self.assertEqual(read(LOG).count("modem connected"), 1)

        self.lan.plug()

        self.wait_wired()
        self.assertEqual(calls("disconnect"), 0)  # With a single modem name the modem is left as it is.

    def test_lost_and_asked_again_on_every_tick(self):
        daemon = self.connected_daemon()

        (TOOL_FOLDER / "connected").unlink()
        daemon.wait_logged("modem connected", 20, count=2)
        touch(TOOL_FOLDER / "connected")
        daemon.wait_logged("modem connected", 20, count=3)

        wait_for("configured on each change", lambda: calls("ip_config") == 3, 10)
        self.assertEqual(calls("connect"), 1)
        self.assertEqual(wireless_starts(), 0)

    def test_given_up_after_more_than_ten_ticks_without_a_link(self):
        self.modem.pull()
        self.radio.come()
        self.start_daemon()
        wait_for("the modem is given up", lambda: wireless_starts() > 0, 60)
        self.assertEqual(calls("status"), 11)
        self.assertFalse(is_up("wwan0"))
        wait_for("wireless has an address", self.radio.is_used, 60)

    def test_two_names_are_taken_down_for_a_cable(self):
        self.cable("wwan1", address="10.89.0.1/24").pull()
        self.connected_daemon()

        self.lan.plug()
        self.wait_wired()
        wait_for("the modem is disconnected", lambda: calls("disconnect") > 0, 20)
        wait_for("the modem is down", lambda: not is_up("wwan0"), 10)
        (TOOL_FOLDER / "calls").unlink()

        self.lan.pull()
        wait_for("the modem is connected again", lambda: calls("connect") > 0, 30)
        wait_for("the modem is up", lambda: is_up("wwan0"), 10)
        self.assertEqual(wireless_starts(), 0)


if __name__ == "__main__":
    main()
