# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""A Wi-Fi network joined before the viewer's eyes. Not a part of "all"."""

import time

import accesspoint
from accesspoint import PASSPHRASE
from harness import LOG, STATUS_TOOL, read, run, status, write_store
from waiting import wait_for
from wifi import JOIN_TIME, WifiTest, definition, say

ON_REQUEST = True


class Demo(WifiTest):
    def test_demo(self):
        """An access point, a definition, the daemon, an address; the access point goes and comes back."""
        say("a WPA2 access point named 'Office' goes on the air, with a DHCP server behind it")
        access_point = self.access_point("Office", accesspoint.WPA2)
        say("the store gets a definition of that network, with its passphrase")
        write_store(definition("Office", "WPA Personal 1/2", passphrase=PASSPHRASE))
        say("the daemon starts")
        self.start_daemon()
        self.tell_log_until("Attached to control interface")
        self.wait_joined(access_point)
        say("joined; what the daemon tells other programs:")
        for line in run(STATUS_TOOL).splitlines():
            say("  " + line)
        say("the access point's list of stations: " + ", ".join(access_point.stations()))

        say("the access point loses its power")
        access_point.stop()
        wait_for("the loss is noticed", lambda: not status()["connected"], 60)
        say("the daemon says: not connected")
        time.sleep(5)
        say("the access point has power again")
        access_point.start()
        self.wait_joined(access_point)
        say(f"joined again, address {status()['ipAddress']}")

    def tell_log_until(self, text):
        """The daemon's log, line by line as it comes."""
        told = 0
        while True:
            lines = read(LOG).splitlines()
            for line in lines[told:]:
                say("  log: " + line)
                if text in line:
                    return
            told = len(lines)
            wait_for("more in the log", lambda seen=told: len(read(LOG).splitlines()) > seen, JOIN_TIME)
