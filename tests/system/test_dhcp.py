# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Addresses by DHCP, from a real server by the real client."""

import os
import time
from pathlib import Path

from harness import (ADDRESS_PRESENT, DHCP_STARTED, DHCP_TRANSCRIPT, HOSTS, LINK_DOWN, LINK_UP, RELOAD_FLAG,
                     RESOLV_CONF, SOURCE_DIR, SystemTest, addresses, default_gateway, is_up, link, main, read, run,
                     status, touch, wait_for, wired, write_store)


DHCLIENT_CONF = Path("/etc/dhcp/dhclient.conf")


class Lease(SystemTest):
    def setUp(self):
        super().setUp()
        self.lan = self.cable("eth0")
        self.listener = self.listen()

    def test_lease_is_taken_applied_and_published(self):
        server = self.dhcp_server(self.lan)
        write_store(wired(hosts=["10.0.0.9 printer"]))

        self.start_daemon()

        address = self.wait_address("eth0", server.serves)
        self.wait_events(self.listener, LINK_UP, DHCP_STARTED, ADDRESS_PRESENT)
        self.assertEqual(self.listener.events(), [LINK_UP, DHCP_STARTED, ADDRESS_PRESENT])
        record = status()
        self.assertEqual((record["connected"], record["wireless"]), (True, False))
        self.assertEqual((record["ipAddress"], record["netmask"], record["broadcast"]),
                         (address, "255.255.255.0", "10.77.0.255"))
        self.assertEqual(record["macAddress"], read("/sys/class/net/eth0/address").strip().upper())
        self.assertEqual(default_gateway(), "10.77.0.1")
        self.assertIn("nameserver 10.77.0.1", read(RESOLV_CONF))

    def test_hosts_of_the_network_join_those_of_the_site(self):
        self.dhcp_server(self.lan)
        write_store(wired(hosts=["10.0.0.9 printer"]))

        self.start_daemon()

        wait_for("hosts", lambda: "printer" in read(HOSTS), timeout=20)
        self.assertIn("192.0.2.7 kept-by-the-site", read(HOSTS))
        self.assertRegex(read(HOSTS), r"127\.0\.0\.1\tcorvi-\w+\.localdomain corvi-\w+ ")

    def test_transcript_is_kept_for_root_alone(self):
        self.dhcp_server(self.lan)
        write_store(wired())

        self.start_daemon()

        wait_for("transcript", lambda: "bound to 10.77.0." in read(DHCP_TRANSCRIPT), timeout=20)
        self.assertEqual(DHCP_TRANSCRIPT.stat().st_mode & 0o777, 0o600)

    def test_transcript_is_not_written_through_a_link(self):
        self.dhcp_server(self.lan)
        write_store(wired())
        victim = "/etc/motd-of-somebody-else"
        with open(victim, "w", encoding="ascii") as file:
            file.write("untouched")
        self.addCleanup(os.unlink, victim)
        DHCP_TRANSCRIPT.symlink_to(victim)

        self.start_daemon()

        self.wait_address("eth0")
        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.assertEqual(read(victim), "untouched")

    def test_missing_client_configuration_is_made(self):
        os.rename("/etc/dhcp/dhclient.conf", "/etc/dhcp/dhclient.conf.kept")
        self.addCleanup(os.replace, "/etc/dhcp/dhclient.conf.kept", "/etc/dhcp/dhclient.conf")
        self.dhcp_server(self.lan)
        write_store(wired())

        self.start_daemon()

        self.wait_address("eth0")
        self.assertIn("init_hostname", read("/etc/dhcp/dhclient.conf"))

    def test_only_one_client_runs_however_often_it_is_configured(self):
        self.dhcp_server(self.lan)
        write_store(wired())
        daemon = self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)

        for _ in range(2):
            self.listener.clear()
            daemon.rescan()
            self.wait_events(self.listener, ADDRESS_PRESENT)

        self.assertEqual(len(run("pidof", "dhclient").split()), 1)
        self.assertEqual(len(addresses("eth0")), 1)

    def test_small_mtu_of_the_definition_leaves_room_for_the_next_lease(self):
        self.dhcp_server(self.lan)
        write_store(wired(mtu=68))
        daemon = self.start_daemon()
        wait_for("the MTU", lambda: link("eth0").get("mtu") == 68)
        self.listener.clear()

        daemon.rescan()

        self.wait_events(self.listener, ADDRESS_PRESENT)
        wait_for("the MTU again", lambda: link("eth0").get("mtu") == 68)

    def test_static_dns_goes_with_a_leased_address(self):
        self.dhcp_server(self.lan)
        write_store(wired(staticDns=True, dns1="192.0.2.53", domain="corp.example"))

        self.start_daemon()

        wait_for("resolver", lambda: "search corp.example" in read(RESOLV_CONF), timeout=20)
        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.53\nnameserver \nsearch corp.example\n")


class NoServer(SystemTest):
    def setUp(self):
        super().setUp()
        self.lan = self.cable("eth0")
        self.listener = self.listen()
        write_store(wired())

    def test_late_lease_leaves_the_name_servers_of_the_definition(self):
        before = DHCLIENT_CONF.read_text()
        self.addCleanup(DHCLIENT_CONF.write_text, before)
        DHCLIENT_CONF.write_text("request subnet-mask, routers, domain-name-servers;\ntimeout 2; retry 2;\n")
        write_store(wired(staticDns=True, dns1="192.0.2.1", dns2="192.0.2.2"))
        daemon = self.start_daemon()
        daemon.wait_logged("dhclient(eth0) failed", timeout=50)

        server = self.dhcp_server(self.lan)

        self.wait_address("eth0", server.serves, timeout=30)
        self.wait_events(self.listener, ADDRESS_PRESENT)
        wait_for("the client's script has ended", lambda: not run("pidof", "-x", "dhclient-script", check=False))
        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.1\nnameserver 192.0.2.2\n")

    def test_script_that_fails_is_told_and_no_server_is_accused(self):
        hook = Path("/etc/dhcp/dhclient-enter-hooks.d/cut-off")
        self.addCleanup(hook.unlink)
        hook.write_text("if [ -e /run/somebody")
        server = self.dhcp_server(self.lan)
        write_store(wired())

        daemon = self.start_daemon()

        daemon.wait_logged("dhclient declines what it is offered, as its script fails: see /tmp/dhclient.log", 60)
        self.assertIn("Syntax error", read(DHCP_TRANSCRIPT))
        self.assertFalse(daemon.logged("a DHCP server"))
        hook.write_text("")
        self.wait_address("eth0", server.serves, 60)

    def test_server_that_comes_late_serves_us(self):
        daemon = self.start_daemon()
        daemon.wait_logged("dhclient(eth0) failed", timeout=50)
        failed = time.monotonic()
        self.assertEqual(addresses("eth0"), [])
        self.assertEqual(self.listener.events(), [LINK_UP, DHCP_STARTED])

        server = self.dhcp_server(self.lan)

        self.wait_address("eth0", server.serves, timeout=30)
        # The first pause is 10 s; the client's own work comes on top.
        self.assertGreater(time.monotonic() - failed, 8)
        self.wait_events(self.listener, LINK_UP, DHCP_STARTED, DHCP_STARTED, ADDRESS_PRESENT)

    def test_earlier_lease_serves_while_the_server_is_down(self):
        before = DHCLIENT_CONF.read_text()
        self.addCleanup(DHCLIENT_CONF.write_text, before)
        DHCLIENT_CONF.write_text(read(SOURCE_DIR / "platform/scripts/dhclient.conf"))
        server = self.dhcp_server(self.lan)
        self.start_daemon()
        address = self.wait_address("eth0", server.serves)
        self.wait_events(self.listener, ADDRESS_PRESENT)
        server.stop()
        self.lan.pull()
        self.wait_events(self.listener, LINK_DOWN)
        self.listener.clear()

        self.lan.plug()

        # At the first attempt, where the machine is not so busy that the client's 30 s with us are over before.
        wait_for("the address of before", lambda: ADDRESS_PRESENT in self.listener.events(), timeout=240)
        self.assertEqual((addresses("eth0"), default_gateway()), ([address], "10.77.0.1"))

    def test_lost_server_takes_the_old_address_away_and_reports_none(self):
        server = self.dhcp_server(self.lan)
        daemon = self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)
        server.stop()
        self.listener.clear()

        touch(RELOAD_FLAG)
        daemon.wait_logged("dhclient(eth0) failed", timeout=50)

        self.assertEqual(addresses("eth0"), [])
        self.assertTrue(is_up("eth0"))
        self.assertEqual(self.listener.events(), [LINK_UP, DHCP_STARTED])


if __name__ == "__main__":
    main()
