# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Cables that come and go."""

from harness import (ADDRESS_PRESENT, DHCP_STARTED, LINK_DOWN, LINK_UP, STATIC, SystemTest, addresses, holds_for, is_up,
                     link, main, run, status, wait_for, wired, write_store)


class OneCable(SystemTest):
    def setUp(self):
        super().setUp()
        self.listener = self.listen()
        self.lan = self.cable("eth0")
        self.server = self.dhcp_server(self.lan)
        write_store(wired())

    def test_pulled_cable_takes_the_address_away(self):
        self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.listener.clear()

        self.lan.pull()

        wait_for("no address", lambda: not addresses("eth0"))
        self.wait_events(self.listener, LINK_DOWN)
        self.assertFalse(status()["connected"])
        self.assertTrue(is_up("eth0"), "the interface must be up, or nobody sees the cable come back")

    def test_cable_put_back_is_configured_again(self):
        self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.lan.pull()
        self.wait_events(self.listener, LINK_DOWN)
        self.listener.clear()

        self.lan.plug()

        self.wait_address("eth0", self.server.serves)
        self.wait_events(self.listener, LINK_UP, DHCP_STARTED, ADDRESS_PRESENT)
        self.assertTrue(status()["connected"])

    def test_cable_that_is_out_at_start_is_noticed_when_it_comes(self):
        self.lan.pull()
        daemon = self.start_daemon()
        wait_for("interface up", lambda: is_up("eth0"))
        holds_for("no event without a cable", lambda: not self.listener.events(), 3)
        daemon.assert_runs()

        self.lan.plug()

        self.wait_address("eth0", self.server.serves)

    def test_interface_that_vanishes_does_not_end_the_daemon(self):
        daemon = self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)

        run("ip", "link", "delete", "dev", "eth0")

        self.wait_events(self.listener, LINK_DOWN)
        holds_for("the daemon runs", daemon.runs, 3)

    def test_interface_that_comes_later_is_found_by_a_rescan(self):
        daemon = self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.lan.pull()
        second = self.cable("eth1", address="10.78.0.1/24")
        server = self.dhcp_server(second, network="10.78.0")

        daemon.rescan()

        self.wait_address("eth1", server.serves)


class TwoCables(SystemTest):
    def setUp(self):
        super().setUp()
        self.listener = self.listen()
        self.first = self.cable("eth0")
        self.second = self.cable("eth1", address="10.78.0.1/24")
        self.servers = {"eth0": self.dhcp_server(self.first), "eth1": self.dhcp_server(self.second, network="10.78.0")}
        write_store(wired())

    def test_first_is_used_and_the_second_stays_down(self):
        self.start_daemon()

        self.wait_address("eth0", self.servers["eth0"].serves)

        wait_for("second interface down", lambda: not is_up("eth1"))
        holds_for("second interface down", lambda: not is_up("eth1"), 4)
        self.assertEqual(addresses("eth1"), [])

    def test_second_takes_over_when_the_first_is_pulled(self):
        self.start_daemon()
        self.wait_address("eth0", self.servers["eth0"].serves)

        self.first.pull()

        self.wait_address("eth1", self.servers["eth1"].serves)
        self.assertTrue(status()["connected"])

    def test_first_takes_over_again_when_it_is_back(self):
        self.start_daemon()
        self.wait_address("eth0", self.servers["eth0"].serves)
        self.first.pull()
        self.wait_address("eth1", self.servers["eth1"].serves)

        self.first.plug()

        self.wait_address("eth0", self.servers["eth0"].serves)
        wait_for("second interface down", lambda: not is_up("eth1"))

    def test_cable_in_the_second_port_alone_is_found(self):
        self.first.pull()

        self.start_daemon()

        self.wait_address("eth1", self.servers["eth1"].serves)
        self.assertTrue(is_up("eth0"), "the free port must be up, or nobody sees a cable there")

    def test_link_state_does_not_flap(self):
        self.start_daemon()
        self.wait_address("eth0", self.servers["eth0"].serves)
        wait_for("second interface down", lambda: not is_up("eth1"))
        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.listener.clear()
        index = link("eth0")["ifindex"]

        holds_for("first interface up", lambda: is_up("eth0") and link("eth0")["ifindex"] == index, 5)

        self.assertEqual(self.listener.events(), [])


class OwnDefinition(SystemTest):
    def test_definition_named_after_the_interface_comes_first(self):
        self.cable("eth0")
        write_store(wired("lan", **STATIC), wired("wiredeth0", **{**STATIC, "ipAddress": "10.77.0.6"}))

        self.start_daemon()

        self.assertEqual(self.wait_address("eth0"), "10.77.0.6")


if __name__ == "__main__":
    main()
