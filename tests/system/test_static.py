# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Addresses and settings that the definition gives."""

from harness import (ADDRESS_PRESENT, DHCP_STARTED, HOSTS, LINK_UP, LOG, NO_CONFIGURATION, RELOAD_FLAG, RESOLV_CONF,
                     STATIC, SystemTest, addresses, default_gateway, default_routes, holds_for, main, read, run,
                     status, touch, wait_for, wired, write_store)


class Static(SystemTest):
    def setUp(self):
        super().setUp()
        self.lan = self.cable("eth0")
        self.listener = self.listen()

    def test_address_and_gateway_are_set(self):
        write_store(wired(**STATIC))

        self.start_daemon()

        self.wait_events(self.listener, LINK_UP, ADDRESS_PRESENT)
        self.assertEqual(addresses("eth0"), ["10.77.0.5"])
        self.assertEqual(default_gateway(), "10.77.0.1")
        self.assertEqual(status()["ipAddress"], "10.77.0.5")
        self.assertNotIn(DHCP_STARTED, self.listener.events())
        self.assertIn("1 received", self.lan.run("ping", "-c", "1", "-W", "2", "10.77.0.5"))

    def test_address_that_another_host_has_is_told(self):
        write_store(wired(**STATIC))
        self.lan.run("ip", "addr", "add", "10.77.0.5/24", "dev", self.lan.far_end)
        hardware = self.lan.run("cat", f"/sys/class/net/{self.lan.far_end}/address").strip().upper()

        daemon = self.start_daemon()

        daemon.wait_logged("NetworkDevice::WatchForDuplicate - another host has our address, 10.77.0.5 on eth0 -- " +
                           hardware)
        # Whose it is to be is not ours to decide.
        self.assertEqual((addresses("eth0"), status()["ipAddress"]), (["10.77.0.5"], "10.77.0.5"))

    def test_prefix_length_follows_the_netmask(self):
        write_store(wired(**{**STATIC, "netmask": "255.255.254.0"}))

        self.start_daemon()

        # ifconfig sets the address first, with the netmask of its class.
        wait_for("prefix length", lambda: "10.77.0.5/23" in run("ip", "-4", "addr", "show", "dev", "eth0"))

    def test_new_gateway_replaces_the_old_one(self):
        write_store(wired(**STATIC))
        self.start_daemon()
        wait_for("first gateway", lambda: default_gateway() == "10.77.0.1")

        write_store(wired(**{**STATIC, "gateway": "10.77.0.2"}))
        touch(RELOAD_FLAG)

        wait_for("second gateway", lambda: default_gateway() == "10.77.0.2")
        self.assertEqual(len(default_routes()), 1)

    def test_static_dns_is_written_whole(self):
        write_store(wired(**STATIC, staticDns=True, dns1="192.0.2.53", dns2="192.0.2.54", domain="corp.example"))

        self.start_daemon()

        self.wait_events(self.listener, ADDRESS_PRESENT)
        wait_for("resolver", lambda: read(RESOLV_CONF))
        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.53\nnameserver 192.0.2.54\nsearch corp.example\n")

    def test_names_that_could_not_be_written_are_written_later(self):
        write_store(wired(**STATIC, staticDns=True, dns1="192.0.2.53", hosts=["192.0.2.80 intranet"]))
        run("mount", "--bind", "/etc", "/etc")
        self.addCleanup(run, "umount", "--lazy", "/etc")
        run("mount", "-o", "remount,bind,ro", "/etc")
        daemon = self.start_daemon()
        daemon.wait_logged("Unable to access resolv.conf")

        run("mount", "-o", "remount,bind,rw", "/etc")

        wait_for("resolver", lambda: read(RESOLV_CONF) == "nameserver 192.0.2.53\nnameserver \n", timeout=60)
        wait_for("hosts", lambda: "192.0.2.80 intranet" in read(HOSTS), timeout=60)

    def test_without_static_dns_the_resolver_stays(self):
        RESOLV_CONF.write_text("nameserver 192.0.2.1\n")
        write_store(wired(**STATIC, dns1="192.0.2.53"))

        self.start_daemon()

        self.wait_events(self.listener, ADDRESS_PRESENT)
        holds_for("resolver untouched", lambda: read(RESOLV_CONF) == "nameserver 192.0.2.1\n", 2)

    def test_mtu_is_set(self):
        write_store(wired(**STATIC, mtu="1400"))

        self.start_daemon()

        wait_for("MTU", lambda: read("/sys/class/net/eth0/mtu") == "1400\n")

    def test_speed_that_is_no_speed_is_named_and_ignored(self):
        write_store(wired(**STATIC, speed="1000 Full"))

        daemon = self.start_daemon()

        wait_for("speed named", lambda: "1000 Full" in read(LOG))
        self.assertEqual(self.wait_address("eth0"), "10.77.0.5")
        daemon.assert_runs()

    def test_change_from_dhcp_to_static(self):
        server = self.dhcp_server(self.lan)
        write_store(wired())
        self.start_daemon()
        self.wait_address("eth0", server.serves)

        write_store(wired(**STATIC))
        touch(RELOAD_FLAG)

        self.wait_address("eth0", lambda address: address == "10.77.0.5")
        wait_for("only the static address", lambda: addresses("eth0") == ["10.77.0.5"])
        wait_for("no DHCP client", lambda: not run("pidof", "dhclient", check=False))

    def test_leased_address_that_becomes_static_stays(self):
        server = self.dhcp_server(self.lan)
        write_store(wired())
        self.start_daemon()
        leased = self.wait_address("eth0", server.serves)
        wait_for("the lease's end", lambda: "valid_lft forever" not in run("ip", "-4", "addr", "show", "dev", "eth0"))

        write_store(wired(**{**STATIC, "ipAddress": leased}))
        touch(RELOAD_FLAG)

        wait_for("no end", lambda: "valid_lft forever" in run("ip", "-4", "addr", "show", "dev", "eth0"))
        self.assertEqual((addresses("eth0"), default_gateway()), ([leased], "10.77.0.1"))

    def test_definition_that_is_removed_ends_the_client(self):
        server = self.dhcp_server(self.lan)
        write_store(wired())
        self.start_daemon()
        self.wait_address("eth0", server.serves)

        write_store()
        touch(RELOAD_FLAG)

        wait_for("no DHCP client", lambda: not run("pidof", "dhclient", check=False))
        self.wait_events(self.listener, NO_CONFIGURATION)

    def test_change_from_static_to_dhcp(self):
        server = self.dhcp_server(self.lan)
        write_store(wired(**STATIC))
        self.start_daemon()
        self.wait_address("eth0", lambda address: address == "10.77.0.5")

        write_store(wired())
        touch(RELOAD_FLAG)

        self.wait_address("eth0", server.serves)
        self.assertEqual(len(addresses("eth0")), 1)


if __name__ == "__main__":
    main()
