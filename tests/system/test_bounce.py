# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""A cable that is moved to another network in less than a second, and links that flap.

  test_bounce.py             as a test: 8 flaps
  test_bounce.py --flaps N   the long form
"""

import sys
import time

from harness import (ADDRESS_PRESENT, LINK_UP, LOG, SystemTest, addresses, default_gateway, holds_for, main,
                     random_source, read, run, status, wait_for, wait_settled, wired, write_store)

flaps = 8


class OneCable(SystemTest):
    def setUp(self):
        super().setUp()
        self.listener = self.listen()
        self.lan = self.cable("eth0")
        write_store(wired())

    def test_cable_that_is_moved_quickly_gets_an_address_of_the_new_network(self):
        old = self.dhcp_server(self.lan)
        self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.wait_address("eth0", old.serves)
        self.listener.clear()
        # The other socket is on another subnet.
        old.stop()
        self.lan.run("ip", "addr", "flush", "dev", self.lan.far_end)
        self.lan.run("ip", "addr", "add", "10.78.0.1/24", "dev", self.lan.far_end)
        new = self.dhcp_server(self.lan, network="10.78.0")

        self.lan.pull()
        self.lan.plug()

        self.wait_address("eth0", new.serves, timeout=40)
        self.wait_events(self.listener, LINK_UP, ADDRESS_PRESENT)
        self.assertEqual(len(addresses("eth0")), 1)
        wait_for("record", lambda: new.serves(status()["ipAddress"]))
        self.assertEqual(default_gateway(), "10.78.0.1")

    def test_link_that_stays_is_not_configured_again(self):
        self.dhcp_server(self.lan)
        self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.listener.clear()

        holds_for("nothing reported", lambda: not self.listener.events(), 5)

    @staticmethod
    def is_right():
        record = status()
        return (addresses("eth0") == [record["ipAddress"]] and record["connected"]
                and default_gateway() == "10.77.0.1" and len(run("pidof", "dhclient", check=False).split()) == 1)

    def test_flaps_leave_nothing_stale(self):
        chance = random_source()
        server = self.dhcp_server(self.lan)
        daemon = self.start_daemon()
        self.wait_address("eth0", server.serves)

        for _ in range(flaps):
            self.lan.pull()
            time.sleep(chance.uniform(0.05, 1.5))  # how long the cable is out is the point
            self.lan.plug()
            time.sleep(chance.uniform(0.05, 3))

        took = wait_settled("one client, one address and its record", self.is_right, 3, timeout=180)
        daemon.assert_runs()
        notices = sum("CheckBounce" in line for line in read(LOG).splitlines())
        self.assertLessEqual(notices, 20)
        print(f"{flaps} flaps, right {took:.1f} s after the last", flush=True)


if __name__ == "__main__":
    if "--flaps" in sys.argv:
        at = sys.argv.index("--flaps")
        flaps = int(sys.argv[at + 1])
        del sys.argv[at:at + 2]
    main()
