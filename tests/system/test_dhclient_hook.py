# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""What our hook makes of the DHCP client's own script: addresses, routes, name servers and the MTU."""

import json
import os
import subprocess
from pathlib import Path

from harness import (RELOAD_FLAG, RESOLV_CONF, STATIC, SystemTest, addresses, default_routes, main, read, run, touch,
                     wait_for, wired, write_store)

LOCK = Path("/run/corvi.lock")
NO_ROUTER = Path("/run/corvi-no-router.eth0")
LEASE = {"new_subnet_mask": "255.255.255.0", "new_domain_name_servers": "192.0.2.53"}


def client_script(reason, interface, number, **values):
    """Runs the client's script as the client does, with a lease from 10.NUMBER.0.1."""
    lease = {"new_ip_address": f"10.{number}.0.2", "new_routers": f"10.{number}.0.1", **LEASE, **values}
    script = subprocess.run(["/sbin/dhclient-script"], check=True, timeout=20, capture_output=True, text=True,
                            env={"PATH": os.environ["PATH"], "reason": reason, "interface": interface, **lease})
    return script.stderr


def routes():
    return [(route["dev"], route.get("metric", 0)) for route in default_routes()]


def gateway_routes():
    return [route for route in json.loads(run("ip", "-j", "-4", "route", "show")) if "gateway" in route]


def prefixes(interface):
    links = json.loads(run("ip", "-j", "-4", "addr", "show", "dev", interface))
    return [(address["local"], address["prefixlen"]) for address in links[0]["addr_info"]]


def broadcasts(interface):
    links = json.loads(run("ip", "-j", "-4", "addr", "show", "dev", interface))
    return [address.get("broadcast") for address in links[0]["addr_info"]]


def lifetimes(interface):
    """The seconds for which the addresses are still valid."""
    links = json.loads(run("ip", "-j", "-4", "addr", "show", "dev", interface))
    return [address["valid_life_time"] for address in links[0]["addr_info"]]


class HookTest(SystemTest):
    def setUp(self):
        super().setUp()
        touch(LOCK)

    def given_cables(self, *names):
        for name in names:
            self.cable(name)
            run("ip", "link", "set", "dev", name, "up")


class Routes(HookTest):
    def test_radio_comes_behind(self):
        for radio in ("wlan0", "mlan0"):
            with self.subTest(radio):
                self.clean()
                self.given_cables(radio, "eth0")

                client_script("BOUND", radio, 0)
                client_script("BOUND", "eth0", 1)

                self.assertEqual(routes(), [("eth0", 0), (radio, 600)])

    def test_client_of_another_manager_is_left_alone(self):
        # No daemon has run since the boot.
        LOCK.unlink()
        self.given_cables("wlan0")

        client_script("BOUND", "wlan0", 0, new_routers="10.0.0.1")

        self.assertEqual(routes(), [("wlan0", 0)])
        self.assertIn("nameserver 192.0.2.53", read(RESOLV_CONF))

    def test_metric_that_the_client_was_given_holds(self):
        self.given_cables("wlan0", "wwan0")

        client_script("BOUND", "wlan0", 0, IF_METRIC="700")
        client_script("BOUND", "wwan0", 1, IF_METRIC="500")

        self.assertEqual(routes(), [("wwan0", 500), ("wlan0", 700)])

    def test_gateway_that_is_named_no_more_is_known(self):
        self.given_cables("eth0")
        client_script("BOUND", "eth0", 0)
        self.assertFalse(NO_ROUTER.exists())

        client_script("RENEW", "eth0", 0, old_ip_address="10.0.0.2", new_routers="")
        self.assertTrue(NO_ROUTER.exists())

        client_script("RENEW", "eth0", 0, old_ip_address="10.0.0.2")
        self.assertFalse(NO_ROUTER.exists())

    def test_lease_without_a_gateway_needs_no_room_in_run(self):
        self.given_cables("eth0")
        NO_ROUTER.mkdir()
        self.addCleanup(NO_ROUTER.rmdir)

        client_script("BOUND", "eth0", 0, new_routers="")

        self.assertEqual(addresses("eth0"), ["10.0.0.2"])

    def test_gateway_outside_the_subnet_beside_one_that_serves_is_not_told(self):
        self.given_cables("eth0")

        said = client_script("BOUND", "eth0", 0, new_routers="10.99.0.1 10.0.0.1")

        self.assertNotIn("outside the subnet", said)
        self.assertEqual([route["gateway"] for route in default_routes()], ["10.0.0.1"])

    def test_classless_routes_without_a_default_are_told(self):
        self.given_cables("eth0")

        said = client_script("BOUND", "eth0", 0, new_rfc3442_classless_static_routes="24 192 0 2 10 0 0 3")

        self.assertIn("the classless routes have none and come in the place of the gateway 10.0.0.1\n", said)
        self.assertEqual(default_routes(), [])
        self.assertEqual([route["dst"] for route in gateway_routes()], ["192.0.2.0/24"])

    def test_classless_routes_with_a_default_are_not_told(self):
        self.given_cables("eth0")

        said = client_script("BOUND", "eth0", 0, new_rfc3442_classless_static_routes="24 192 0 2 10 0 0 3 0 10 0 0 3")

        self.assertNotIn("classless", said)
        self.assertEqual([route["gateway"] for route in default_routes()], ["10.0.0.3"])

    def test_classless_routes_that_are_none_leave_the_gateway(self):
        for routes_text in ("255 10 77 0 1 0 1 24", "33 1 2 3 4 10 0 0 1", "0 10 0", "24 10 <error>"):
            with self.subTest(routes_text):
                self.clean()
                self.given_cables("eth0")

                client_script("BOUND", "eth0", 0, new_rfc3442_classless_static_routes=routes_text)

                self.assertEqual([route["gateway"] for route in default_routes()], ["10.0.0.1"])

    def test_gateway_among_classless_routes_is_one(self):
        self.given_cables("eth0")

        client_script("BOUND", "eth0", 0, new_routers="", new_rfc3442_classless_static_routes="0 10 0 0 1")

        self.assertFalse(NO_ROUTER.exists())

    def test_gateway_that_changes_at_a_renewal_is_followed(self):
        for interface, old, new, expected in (("eth0", "10.0.0.1", "10.0.0.3", [("10.0.0.3", 0)]),
                                              ("wlan0", "10.0.0.1", "10.0.0.3", [("10.0.0.3", 600)]),
                                              ("eth0", "10.0.0.1", "10.0.0.3 10.0.0.4",
                                               [("10.0.0.3", 1), ("10.0.0.4", 2)]),
                                              ("eth0", "10.0.0.1 10.0.0.3", "10.0.0.3 10.0.0.4",
                                               [("10.0.0.3", 1), ("10.0.0.4", 2)]),
                                              ("eth0", "10.0.0.1 10.0.0.3", "10.0.0.3", [("10.0.0.3", 0)])):
            with self.subTest(f"{interface}: {old} > {new}"):
                self.clean()
                self.given_cables(interface)
                client_script("BOUND", interface, 0, new_routers=old)

                client_script("RENEW", interface, 0, old_ip_address="10.0.0.2", old_routers=old, new_routers=new)

                self.assertEqual([(route["gateway"], route.get("metric", 0)) for route in default_routes()], expected)

    def test_route_that_somebody_set_outlives_a_gateway_that_changes(self):
        self.given_cables("eth0")
        client_script("BOUND", "eth0", 0)
        run("ip", "route", "replace", "default", "via", "10.0.0.9")

        client_script("REBIND", "eth0", 0, old_ip_address="10.0.0.2", old_routers="10.0.0.1", new_routers="10.0.0.3")

        self.assertEqual([route["gateway"] for route in default_routes()], ["10.0.0.9"])

    def test_gateway_stays_where_the_next_one_cannot_be_reached(self):
        self.given_cables("eth0")
        client_script("BOUND", "eth0", 0)

        client_script("RENEW", "eth0", 0, old_ip_address="10.0.0.2", old_routers="10.0.0.1", new_routers="192.0.2.1")

        self.assertEqual([route["gateway"] for route in default_routes()], ["10.0.0.1"])


    def test_classless_routes_that_change_at_a_renewal_are_followed(self):
        before, after = "0 10 0 0 1 24 192 168 7 10 0 0 1", "0 10 0 0 3 24 192 168 7 10 0 0 3 32 192 0 2 9 10 0 0 1"
        for old, new, expected in (
                ({"routers": "10.0.0.1", "classless": before}, {"routers": "10.0.0.1", "classless": after},
                 [("192.0.2.9", "10.0.0.1"), ("192.168.7.0/24", "10.0.0.3"), ("default", "10.0.0.3")]),
                ({"routers": "10.0.0.1", "classless": before}, {"routers": "10.0.0.1", "classless": ""},
                 [("default", "10.0.0.1")]),
                ({"routers": "10.0.0.1", "classless": ""}, {"routers": "10.0.0.1", "classless": after},
                 [("192.0.2.9", "10.0.0.1"), ("192.168.7.0/24", "10.0.0.3"), ("default", "10.0.0.3")]),
                # Cut off, as a server that is not quite right gives them.
                ({"routers": "10.0.0.1", "classless": before}, {"routers": "", "classless": after[:-2]},
                 [("192.168.7.0/24", "10.0.0.3"), ("default", "10.0.0.3")])):
            with self.subTest(f"{old} > {new}"):
                self.clean()
                self.given_cables("eth0")
                client_script("BOUND", "eth0", 0, new_routers=old["routers"],
                              new_rfc3442_classless_static_routes=old["classless"])

                client_script("RENEW", "eth0", 0, old_ip_address="10.0.0.2", old_routers=old["routers"],
                              old_rfc3442_classless_static_routes=old["classless"], new_routers=new["routers"],
                              new_rfc3442_classless_static_routes=new["classless"])

                self.assertEqual(sorted((route["dst"], route["gateway"]) for route in gateway_routes()), expected)

    def test_address_that_was_kept_for_the_next_client(self):
        for reason, new, mask, length in (("BOUND", "10.0.0.2", "255.255.255.0", 24),
                                          ("REBOOT", "10.0.0.2", "255.255.255.0", 24),
                                          ("REBOOT", "10.0.0.2", "255.255.0.0", 16),
                                          ("BOUND", "10.0.0.9", "255.255.255.0", 24),
                                          ("REBOOT", "10.0.0.9", "255.255.255.0", 24)):
            with self.subTest(reason, new=new, mask=mask):
                self.clean()
                self.given_cables("eth0")
                client_script("BOUND", "eth0", 0, new_dhcp_lease_time="100", new_broadcast_address="10.0.0.255")

                client_script(reason, "eth0", 0, corvi_kept_address="10.0.0.2", new_ip_address=new,
                              new_subnet_mask=mask, new_dhcp_lease_time="1000", new_broadcast_address="10.0.0.255")

                self.assertEqual(prefixes("eth0"), [(new, length)])
                self.assertEqual(broadcasts("eth0"), ["10.0.0.255"])
                self.assertGreater(lifetimes("eth0")[0], 100)

    def test_gateway_that_changed_beside_a_kept_address_is_followed(self):
        self.given_cables("eth0")
        client_script("BOUND", "eth0", 0)

        client_script("REBOOT", "eth0", 0, corvi_kept_address="10.0.0.2", new_routers="10.0.0.77")

        self.assertEqual([route["gateway"] for route in default_routes()], ["10.0.0.77"])
        self.assertEqual(prefixes("eth0"), [("10.0.0.2", 24)])

    def test_classless_routes_that_changed_beside_a_kept_address_are_followed(self):
        self.given_cables("eth0")
        client_script("BOUND", "eth0", 0,
                      new_rfc3442_classless_static_routes="0 10 0 0 1 24 192 168 7 10 0 0 1 24 192 168 9 10 0 0 1")

        client_script("REBOOT", "eth0", 0, corvi_kept_address="10.0.0.2",
                      new_rfc3442_classless_static_routes="0 10 0 0 3 24 192 168 8 10 0 0 3 24 192 168 9 10 0 0 1")

        self.assertEqual(sorted((route["dst"], route["gateway"]) for route in gateway_routes()),
                         [("192.168.8.0/24", "10.0.0.3"), ("192.168.9.0/24", "10.0.0.1"), ("default", "10.0.0.3")])

    def test_what_somebody_set_outlives_a_gateway_that_changed_beside_a_kept_address(self):
        self.given_cables("eth0")
        client_script("BOUND", "eth0", 0)
        run("ip", "addr", "add", "192.0.2.5/24", "dev", "eth0")
        run("ip", "route", "add", "198.51.100.0/24", "via", "10.0.0.9")

        client_script("REBOOT", "eth0", 0, corvi_kept_address="10.0.0.2", new_routers="10.0.0.77")

        self.assertEqual(prefixes("eth0"), [("10.0.0.2", 24), ("192.0.2.5", 24)])
        self.assertEqual(sorted((route["dst"], route["gateway"]) for route in gateway_routes()),
                         [("198.51.100.0/24", "10.0.0.9"), ("default", "10.0.0.77")])

    def test_kept_address_of_whose_routes_nothing_is_known_is_set_anew(self):
        self.given_cables("eth0")
        client_script("BOUND", "eth0", 0)
        # Nothing on a disk that was full, or those of another lease.
        for gateway, known in (("10.0.0.77", ""), ("10.0.0.78", "10.0.0.9|10.0.0.1|\n")):
            Path("/run/corvi-last-lease.eth0").write_text(known)

            client_script("REBOOT", "eth0", 0, corvi_kept_address="10.0.0.2", new_routers=gateway)

            self.assertEqual([route["gateway"] for route in default_routes()], [gateway])
            self.assertEqual(prefixes("eth0"), [("10.0.0.2", 24)])

    def test_kept_address_stays_without_a_server_and_a_gateway_that_answers(self):
        self.given_cables("eth0")
        client_script("BOUND", "eth0", 0)

        client_script("TIMEOUT", "eth0", 0, corvi_kept_address="10.0.0.2")

        self.assertEqual(prefixes("eth0"), [("10.0.0.2", 24)])
        self.assertEqual([route["gateway"] for route in default_routes()], ["10.0.0.1"])

        # The one after it knows of the gateway.
        client_script("REBOOT", "eth0", 0, corvi_kept_address="10.0.0.2", new_routers="10.0.0.77")
        self.assertEqual([route["gateway"] for route in default_routes()], ["10.0.0.77"])

    def test_address_that_was_kept_and_went_comes_as_any(self):
        self.given_cables("eth0")

        client_script("BOUND", "eth0", 0, corvi_kept_address="10.0.0.2", new_broadcast_address="10.0.0.255")

        self.assertEqual(prefixes("eth0"), [("10.0.0.2", 24)])
        self.assertEqual(broadcasts("eth0"), ["10.0.0.255"])

    def test_netmask_that_changes_at_a_renewal_is_followed(self):
        for mask, length, broadcast in (("255.255.0.0", 16, "10.0.255.255"), ("255.255.255.128", 25, "10.0.0.127")):
            with self.subTest(mask):
                self.clean()
                self.given_cables("eth0")
                client_script("BOUND", "eth0", 0, new_broadcast_address="10.0.0.255")

                client_script("RENEW", "eth0", 0, old_ip_address="10.0.0.2", old_subnet_mask="255.255.255.0",
                              new_subnet_mask=mask, new_broadcast_address=broadcast, old_routers="10.0.0.1")

                self.assertEqual(prefixes("eth0"), [("10.0.0.2", length)])
                self.assertEqual(broadcasts("eth0"), [broadcast])
                self.assertEqual([route["gateway"] for route in default_routes()], ["10.0.0.1"])

    def test_netmask_that_is_named_once_only_is_followed(self):
        for bound, renewed, length in (("255.255.255.0", "", 24), ("", "255.255.255.0", 24), ("", "", 32)):
            with self.subTest(bound=bound, renewed=renewed):
                self.clean()
                self.given_cables("eth0")
                client_script("BOUND", "eth0", 0, new_subnet_mask=bound)

                client_script("RENEW", "eth0", 0, old_ip_address="10.0.0.2", old_subnet_mask=bound,
                              new_subnet_mask=renewed, old_routers="10.0.0.1")

                self.assertEqual(prefixes("eth0"), [("10.0.0.2", length)])

    def test_netmask_stays_through_renewals_that_name_none(self):
        for bound, length in (("255.255.255.0", 24), ("", 32)):
            with self.subTest(bound=bound):
                self.clean()
                self.given_cables("eth0")
                client_script("BOUND", "eth0", 0, new_subnet_mask=bound)

                for old in (bound, "", ""):
                    client_script("RENEW", "eth0", 0, old_ip_address="10.0.0.2", old_subnet_mask=old,
                                  new_subnet_mask="", old_routers="10.0.0.1", new_dhcp_lease_time="500")

                self.assertEqual(prefixes("eth0"), [("10.0.0.2", length)])
                self.assertGreater(lifetimes("eth0")[0], 400)

    def test_netmask_that_comes_back_otherwise_is_followed(self):
        self.given_cables("eth0")
        client_script("BOUND", "eth0", 0)

        for old, new in (("255.255.255.0", ""), ("", ""), ("", "255.255.0.0")):
            client_script("RENEW", "eth0", 0, old_ip_address="10.0.0.2", old_subnet_mask=old, new_subnet_mask=new,
                          old_routers="10.0.0.1")

        self.assertEqual(prefixes("eth0"), [("10.0.0.2", 16)])
        self.assertEqual([route["gateway"] for route in default_routes()], ["10.0.0.1"])

    def test_netmask_is_that_of_the_leased_address(self):
        self.given_cables("eth0")
        run("ip", "addr", "add", "10.9.0.2/16", "dev", "eth0")
        client_script("BOUND", "eth0", 0, new_subnet_mask="255.255.254.0")

        client_script("REBIND", "eth0", 0, old_ip_address="10.0.0.2", new_subnet_mask="", old_routers="10.0.0.1")

        self.assertEqual(prefixes("eth0"), [("10.9.0.2", 16), ("10.0.0.2", 23)])

    def test_address_that_is_gone_comes_back_at_a_renewal_without_a_netmask(self):
        self.given_cables("eth0")

        client_script("RENEW", "eth0", 0, old_ip_address="10.0.0.2", new_subnet_mask="", old_routers="10.0.0.1")

        self.assertEqual(prefixes("eth0"), [("10.0.0.2", 32)])

    def test_values_that_are_none_cost_no_address(self):
        # As the client writes a value that is too short for its option.
        for values in ({"new_routers": "<error>"}, {"new_routers": "1.2.3"}, {"new_routers": "08.1.1.1"},
                       {"new_rfc3442_classless_static_routes": "<error>"}):
            with self.subTest(**values):
                self.clean()
                self.given_cables("eth0")

                client_script("BOUND", "eth0", 0, **values)
                self.assertEqual(prefixes("eth0"), [("10.0.0.2", 24)])

                client_script("RENEW", "eth0", 0, old_ip_address="10.0.0.2", old_subnet_mask="255.255.255.0",
                              old_routers="10.0.0.1", **values)
                self.assertEqual(prefixes("eth0"), [("10.0.0.2", 24)])

    def test_gateway_outside_the_subnet_is_told(self):
        self.given_cables("eth0")

        self.assertIn("the gateway 10.99.0.1 is outside the subnet of 10.0.0.2/255.255.255.0\n",
                      client_script("BOUND", "eth0", 0, new_routers="10.99.0.1 10.99.0.2"))
        for values in ({}, {"new_routers": ""}, {"new_routers": "10.99.0.1", "new_subnet_mask": "255.0.0.0"},
                       {"new_routers": "10.99.0.1", "new_subnet_mask": "255.255.255.255"},
                       {"new_routers": "10.99.0.1", "new_subnet_mask": ""}):
            self.assertNotIn("outside the subnet", client_script("BOUND", "eth0", 0, **values))

    def test_gateway_that_is_the_broadcast_address_is_told(self):
        self.given_cables("eth0")

        said = client_script("BOUND", "eth0", 0, new_routers="10.0.0.255", new_broadcast_address="10.0.0.255")

        self.assertIn("the gateway 10.0.0.255 is the broadcast address of 10.0.0.2/255.255.255.0\n", said)
        self.assertEqual(default_routes(), [])

    def test_gateway_is_reached_without_a_netmask(self):
        self.given_cables("eth0")

        client_script("BOUND", "eth0", 0, new_subnet_mask="")

        self.assertEqual(prefixes("eth0"), [("10.0.0.2", 32)])
        self.assertEqual([route["gateway"] for route in default_routes()], ["10.0.0.1"])

    def test_gateway_is_reached_in_a_network_of_two(self):
        self.given_cables("eth0")

        client_script("BOUND", "eth0", 0, new_routers="10.0.0.3", new_subnet_mask="255.255.255.254",
                      new_broadcast_address="10.0.0.3")

        self.assertEqual([route["gateway"] for route in default_routes()], ["10.0.0.3"])

    def test_netmask_that_is_none_counts_as_missing(self):
        for netmask in ("255.0.255.0", "0.0.0.0", "0.0.0.255", "255.255.255.254.0", "<error>"):
            with self.subTest(netmask):
                self.clean()
                self.given_cables("eth0")

                client_script("BOUND", "eth0", 0, new_subnet_mask=netmask)

                self.assertEqual(prefixes("eth0"), [("10.0.0.2", 32)])
                self.assertEqual([route["gateway"] for route in default_routes()], ["10.0.0.1"])

    def test_netmasks_that_are_some_stay(self):
        for netmask, length in (("255.255.255.252", 30), ("255.0.0.0", 8), ("255.255.254.0", 23)):
            with self.subTest(netmask):
                self.clean()
                self.given_cables("eth0")

                client_script("BOUND", "eth0", 0, new_subnet_mask=netmask)

                self.assertEqual(prefixes("eth0"), [("10.0.0.2", length)])


class Resolver(HookTest):
    def setUp(self):
        super().setUp()
        self.given_cables("wlan0", "eth0")
        client_script("BOUND", "eth0", 0)
        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.53\n")

    def test_link_behind_another_leaves_it_alone(self):
        client_script("BOUND", "wlan0", 1, new_domain_name_servers="192.0.2.54")

        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.53\n")
        self.assertEqual(addresses("wlan0"), ["10.1.0.2"])

    def test_link_that_is_the_only_one_writes_it(self):
        run("ip", "addr", "flush", "dev", "eth0")

        client_script("BOUND", "wlan0", 1, new_domain_name_servers="192.0.2.54")

        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.54\n")

    def test_link_before_another_writes_it(self):
        client_script("BOUND", "wlan0", 1)

        client_script("BOUND", "eth0", 0, new_domain_name_servers="192.0.2.54")

        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.54\n")

    def test_link_is_not_behind_itself(self):
        run("ip", "addr", "flush", "dev", "eth0")
        run("ip", "addr", "add", "10.2.0.2/24", "dev", "wlan0")
        run("ip", "route", "add", "default", "via", "10.2.0.1")

        client_script("BOUND", "wlan0", 1, new_domain_name_servers="192.0.2.54")

        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.54\n")

    def test_renewal_with_the_same_servers_leaves_it_alone(self):
        RESOLV_CONF.write_text("nameserver 192.0.2.99\n")
        for reason in ("RENEW", "REBIND"):
            client_script(reason, "eth0", 0, old_ip_address="10.0.0.2", old_domain_name_servers="192.0.2.53")

        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.99\n")

    def test_servers_of_the_definition_outlive_every_lease(self):
        RESOLV_CONF.write_text("nameserver 192.0.2.99\n")
        touch(Path("/run/corvi-own-resolver.eth0"))

        client_script("BOUND", "eth0", 0, new_domain_name_servers="192.0.2.54")
        client_script("RENEW", "eth0", 0, old_ip_address="10.0.0.2", new_domain_name_servers="192.0.2.55")

        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.99\n")

    def test_renewal_with_other_servers_writes_them(self):
        for values, expected in (({"new_domain_name_servers": "192.0.2.54"}, "nameserver 192.0.2.54"),
                                 ({"new_domain_name": "example.com"}, "domain example.com"),
                                 ({"new_domain_search": "corp.example"}, "search corp.example")):
            with self.subTest(expected):
                client_script("RENEW", "eth0", 0, old_ip_address="10.0.0.2", old_domain_name_servers="192.0.2.53",
                              **values)
                self.assertIn(expected, read(RESOLV_CONF))

    def test_link_into_a_folder_that_is_gone_becomes_a_file(self):
        # As a resolver service leaves it behind when it ends.
        RESOLV_CONF.unlink()
        RESOLV_CONF.symlink_to("/run/gone/resolv.conf")

        client_script("BOUND", "eth0", 1)

        self.assertFalse(RESOLV_CONF.is_symlink())
        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.53\n")

    def test_folder_that_cannot_be_written_does_not_hold_the_client(self):
        run("mount", "--bind", "-o", "ro", "/etc", "/etc")
        self.addCleanup(run, "umount", "/etc")

        client_script("BOUND", "eth0", 1)

        self.assertIn("10.1.0.2", addresses("eth0"))


class FullDisk(HookTest):
    def test_name_servers_of_before_stay_until_the_next_renewal_with_room(self):
        self.given_cables("eth0")
        disk = Path("/tmp/full-disk")
        disk.mkdir()
        run("mount", "-t", "tmpfs", "-o", "size=64k", "full-disk", disk)
        self.addCleanup(run, "umount", disk)
        resolver, rest = disk / "resolv.conf", disk / "rest"
        resolver.write_text("nameserver 192.0.2.99\n")
        RESOLV_CONF.unlink()
        RESOLV_CONF.symlink_to(resolver)
        run("dd", "if=/dev/zero", f"of={rest}", check=False)

        said = client_script("BOUND", "eth0", 0)

        self.assertEqual(addresses("eth0"), ["10.0.0.2"])
        self.assertEqual(read(resolver), "nameserver 192.0.2.99\n")
        # The daemon finds this sentence in the client's transcript.
        self.assertIn("/etc/resolv.conf cannot be written and stays as it is\n", said)
        rest.unlink()
        client_script("RENEW", "eth0", 0, old_ip_address="10.0.0.2", old_domain_name_servers="192.0.2.53")
        self.assertEqual(read(resolver), "nameserver 192.0.2.53\n")
        self.assertEqual(sorted(disk.iterdir()), [resolver])

    def test_file_that_cannot_be_written_is_owed_the_name_servers(self):
        self.given_cables("eth0")
        run("mount", "--bind", RESOLV_CONF, RESOLV_CONF)
        run("mount", "-o", "remount,bind,ro", RESOLV_CONF)
        self.addCleanup(run, "umount", RESOLV_CONF, check=False)

        said = client_script("BOUND", "eth0", 0)

        self.assertIn("/etc/resolv.conf cannot be written and stays as it is\n", said)
        run("umount", RESOLV_CONF)
        client_script("RENEW", "eth0", 0, old_ip_address="10.0.0.2", old_domain_name_servers="192.0.2.53")
        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.53\n")


class Mtu(HookTest):
    def setUp(self):
        super().setUp()
        self.given_cables("eth0")
        run("ip", "link", "set", "dev", "eth0", "mtu", "1480")

    def mtu(self):
        return int(read("/sys/class/net/eth0/mtu"))

    def test_does_not_stay_on_a_network_without_one(self):
        client_script("BOUND", "eth0", 0, new_interface_mtu="1400")
        self.assertEqual(self.mtu(), 1400)

        client_script("BOUND", "eth0", 1)

        self.assertEqual(self.mtu(), 1480)
        run("ip", "link", "set", "dev", "eth0", "mtu", "1450")
        client_script("BOUND", "eth0", 1)
        self.assertEqual(self.mtu(), 1450, "what somebody else set later stays")

    def test_of_one_network_after_the_other_gives_way_to_the_first(self):
        client_script("BOUND", "eth0", 0, new_interface_mtu="1400")
        client_script("BOUND", "eth0", 1, new_interface_mtu="1300")
        self.assertEqual(self.mtu(), 1300)

        client_script("REBOOT", "eth0", 2)

        self.assertEqual(self.mtu(), 1480)

    def test_that_no_server_asked_for_stays(self):
        client_script("BOUND", "eth0", 0)

        self.assertEqual(self.mtu(), 1480)

    def test_that_a_server_may_not_ask_for_leaves_no_trace(self):
        client_script("BOUND", "eth0", 0, new_interface_mtu="500")

        self.assertEqual(self.mtu(), 1480)
        self.assertEqual(list(Path("/run").glob("corvi-mtu-before.*")), [])


class MtuOfTheDaemon(SystemTest):
    def setUp(self):
        super().setUp()
        self.lan = self.cable("eth0")
        self.server = self.dhcp_server(self.lan, options=["--dhcp-option=option:mtu,1400"])
        write_store(wired())
        self.start_daemon()
        wait_for("the server's MTU", lambda: read("/sys/class/net/eth0/mtu") == "1400\n")

    def test_does_not_stay_on_another_network(self):
        self.lan.pull()
        self.server.stop()
        wait_for("no address", lambda: not addresses("eth0"))
        self.dhcp_server(self.lan)

        self.lan.plug()

        wait_for("the interface's own MTU", lambda: read("/sys/class/net/eth0/mtu") == "1500\n")

    def test_does_not_stay_with_a_fixed_address(self):
        write_store(wired(**STATIC))
        touch(RELOAD_FLAG)

        wait_for("the interface's own MTU", lambda: read("/sys/class/net/eth0/mtu") == "1500\n")
        self.wait_address("eth0", lambda address: address == STATIC["ipAddress"])


if __name__ == "__main__":
    main()
