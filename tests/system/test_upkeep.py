# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""What somebody else undid behind the daemon's back, and adapters that come and go."""

import json
import os
import signal
import subprocess
from pathlib import Path

from harness import (ADDRESS_PRESENT, LINK_DOWN, LINK_UP, LOG, STATIC, Cable, SystemTest, addresses, default_gateway,
                     default_routes, end_by_name, end_process, holds_for, is_up, link, main, read, run, status,
                     wait_for, wired, write_store)


class DhcpPort(SystemTest):
    def setUp(self):
        super().setUp()
        self.listener = self.listen()
        self.lan = self.cable("eth0")
        self.server = self.dhcp_server(self.lan)
        write_store(wired())
        self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.listener.clear()

    def test_link_that_somebody_took_down_comes_back(self):
        run("ip", "link", "set", "dev", "eth0", "down")

        wait_for("the link is up", lambda: is_up("eth0"), timeout=5)
        self.wait_address("eth0", self.server.serves)
        self.wait_events(self.listener, LINK_DOWN, LINK_UP)
        wait_for("a default route", default_gateway)

    def test_address_that_somebody_took_away_is_published_and_comes_back(self):
        run("ip", "addr", "flush", "dev", "eth0")

        wait_for("the record without an address", lambda: not status()["ipAddress"], timeout=5)
        self.assertEqual(self.listener.events(), [])
        self.wait_address("eth0", self.server.serves)
        self.wait_events(self.listener, ADDRESS_PRESENT)

    def test_client_that_somebody_killed_is_replaced(self):
        client = run("pidof", "dhclient").strip()
        remaining = self.remaining_seconds()
        changes = Path("/tmp/changes")
        with open(changes, "wb") as output:
            self.addCleanup(end_process, subprocess.Popen(["ip", "-o", "monitor", "address"], stdout=output))

        os.kill(int(client), signal.SIGKILL)

        wait_for("another client", lambda: run("pidof", "dhclient", check=False).strip() not in ("", client),
                 timeout=60)
        wait_for("the lease is renewed", lambda: self.remaining_seconds() >= remaining - 5, timeout=30)
        self.assertIn("the DHCP client has ended", read(LOG))
        # Nobody was cut off.
        wait_for("the renewal is told", changes.read_text)
        self.assertNotIn("Deleted", changes.read_text())
        holds_for("no event", lambda: self.listener.events() == [], 3)

    @staticmethod
    def remaining_seconds():
        """Of the lease, as the kernel counts them."""
        found = json.loads(run("ip", "-j", "-4", "address", "show", "dev", "eth0"))
        return max((address["valid_life_time"] for address in found[0]["addr_info"]), default=0)

    def test_default_route_that_somebody_took_away_comes_back(self):
        run("ip", "route", "del", "default")

        wait_for("the default route", lambda: default_gateway() == "10.77.0.1", timeout=10)
        holds_for("no event", lambda: not self.listener.events(), 2)

    def test_other_address_is_published(self):
        run("ip", "addr", "flush", "dev", "eth0")
        run("ip", "addr", "add", "10.77.0.200/24", "dev", "eth0")

        wait_for("the record", lambda: status()["ipAddress"] == "10.77.0.200", timeout=5)
        self.wait_events(self.listener, ADDRESS_PRESENT)

    def test_what_somebody_changes_beneath_the_address_is_published(self):
        run("ip", "link", "set", "dev", "eth0", "address", "02:00:00:00:00:77")
        wait_for("the hardware address", lambda: status()["macAddress"] == "02:00:00:00:00:77", timeout=5)

        address = status()["ipAddress"]
        run("ip", "addr", "add", address + "/16", "broadcast", "10.77.255.255", "dev", "eth0")
        run("ip", "addr", "del", address + "/24", "dev", "eth0")
        wait_for("the netmask", lambda: status()["netmask"] == "255.255.0.0", timeout=5)
        wait_for("the broadcast address", lambda: status()["broadcast"] == "10.77.255.255", timeout=5)
        self.assertEqual(self.listener.events(), [])

    def test_adapter_that_is_replaced_is_configured(self):
        run("ip", "link", "delete", "dev", "eth0")
        run("ip", "netns", "delete", self.lan.netns)
        self.server.stop()
        replaced = Cable("eth0")
        server = self.dhcp_server(replaced)

        self.wait_address("eth0", server.serves)
        wait_for("the record", lambda: status()["connected"] and status()["ipAddress"], timeout=10)

    def test_adapter_that_comes_is_configured(self):
        self.lan.pull()
        self.wait_events(self.listener, LINK_DOWN)

        second = self.cable("usb0", address="10.78.0.1/24")
        server = self.dhcp_server(second, network="10.78.0")

        self.wait_address("usb0", server.serves)
        self.assertIn("the interfaces changed, gone: , new: usb0", read(LOG))

    def test_bridge_takes_the_network_over_from_its_port(self):
        # One name sorts before that of the port, the other after it: the first by name that carries is chosen.
        for bridge in ("br0", "virbr0"):
            with self.subTest(bridge=bridge):
                run("ip", "link", "add", "name", bridge, "type", "bridge")
                run("ip", "link", "set", "dev", "eth0", "master", bridge)
                run("ip", "link", "set", "dev", bridge, "up")

                self.wait_address(bridge, self.server.serves)
                wait_for("no address on the port", lambda: not addresses("eth0"))
                holds_for("port and bridge carry", lambda: is_up("eth0") and "LOWER_UP" in link(bridge)["flags"], 3)
                self.assertEqual([route["dev"] for route in default_routes()], [bridge])

                run("ip", "link", "delete", "dev", bridge)
                self.wait_address("eth0", self.server.serves)

    def test_adapter_that_goes_leaves_no_client(self):
        run("ip", "link", "delete", "dev", "eth0")

        self.wait_events(self.listener, LINK_DOWN)
        wait_for("no DHCP client", lambda: not run("pidof", "dhclient", check=False).strip(), timeout=15)
        self.assertFalse(status()["connected"])


class KilledClient(SystemTest):
    HOOK = Path("/etc/dhcp/dhclient-enter-hooks.d/slow")

    def test_address_whose_client_was_killed_before_it_told_of_it_is_renewed(self):
        # Killed in the middle of its script, which sets the address all the same.
        self.addCleanup(self.HOOK.unlink, missing_ok=True)
        self.HOOK.write_text("[ $reason != BOUND ] || { : >/tmp/bound; sleep 1; }\n")
        self.dhcp_server(self.cable("eth0"))
        write_store(wired())
        self.start_daemon()
        wait_for("the lease", Path("/tmp/bound").exists)
        self.HOOK.unlink()

        end_by_name("dhclient")

        self.wait_address("eth0")
        wait_for("another client", lambda: run("pidof", "dhclient", check=False).strip(), timeout=60)
        self.assertEqual(len(addresses("eth0")), 1)


class StaticPort(SystemTest):
    def setUp(self):
        super().setUp()
        self.listener = self.listen()
        self.lan = self.cable("eth0")
        write_store(wired(**STATIC))
        self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)
        wait_for("the default route", default_gateway)
        self.listener.clear()

    def test_address_that_somebody_took_away_is_set_again(self):
        run("ip", "addr", "flush", "dev", "eth0")

        wait_for("the address", lambda: addresses("eth0") == ["10.77.0.5"], timeout=10)
        wait_for("the default route", lambda: default_gateway() == "10.77.0.1", timeout=10)

    def test_default_route_that_somebody_took_away_is_set_again(self):
        run("ip", "route", "del", "default")

        wait_for("the default route", lambda: default_gateway() == "10.77.0.1", timeout=10)
        holds_for("no event", lambda: not self.listener.events(), 2)


if __name__ == "__main__":
    main()
