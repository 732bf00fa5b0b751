# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""What the daemon does with the few rights that its unit leaves it."""

import shutil
import unittest

from dot1x import CERTIFICATES, Authenticator, SwitchPort, make_certificates, peap
from harness import STATIC, store_text, wait_for, wired
from machine import LOG, STORE, PackageTest

MMCLI = """#!/bin/sh
case "$*" in
    *--simple-*|*-e) ;;
    "-m any -K") printf 'modem.generic.state : connected\\nmodem.generic.bearers.value[1] : /bearer/3\\n' ;;
    "-b /bearer/3 -K")
        echo 'bearer.status.connected : yes'
        echo 'bearer.status.interface : wwan0'
        echo 'bearer.ipv4-config.method : static'
        echo 'bearer.ipv4-config.address : 10.77.0.2'
        echo 'bearer.ipv4-config.prefix : 24'
        echo 'bearer.ipv4-config.gateway : 10.77.0.1'
        echo 'bearer.ipv4-config.dns.value[1] : 192.0.2.53' ;;
    *) exit 1 ;;
esac
"""


class Functions(PackageTest):
    def given_running(self, store, **options):
        machine = self.given_machine(self.installed)
        path = machine.root / STORE[1:]
        path.write_text(store)
        path.chmod(0o600)
        machine.boot(**options)
        return machine

    def test_dhcp(self):
        machine = self.given_running(store_text(wired(hosts=["192.0.2.9 printer"])))

        self.assertTrue(machine.server.serves(machine.wait_address()))

        wait_for("the resolver", lambda: "nameserver 10.77.0.1" in machine.read("/etc/resolv.conf"))
        wait_for("the hosts", lambda: "192.0.2.9 printer" in machine.read("/etc/hosts"))
        self.assertIn("default via 10.77.0.1 dev eth0", machine.run("ip", "route"))
        # Once in the journal, too, with the interface that it is about.
        told = wait_for("the line in the journal", lambda: machine.run(
            "journalctl", "--output=cat", "INTERFACE=eth0", "DEFINITION=lan", "_SYSTEMD_UNIT=corvi.service").strip())
        self.assertEqual(told.count("NetworkDevice::UpdateIpInformation"), 1)
        self.assertIn(machine.addresses()[0], told)
        # Everybody asks names.
        modes = machine.run("stat", "-L", "-c", "%a", "/etc/resolv.conf", "/etc/hosts")
        self.assertEqual(modes.split(), ["644", "644"])
        # Ours, not Debian's, without a change to Debian's.
        pid = machine.pid()
        self.assertIn("timeout 10;", machine.run("cat", f"/proc/{pid}/root/etc/dhcp/dhclient.conf"))
        self.assertNotIn("\ntimeout 10;", machine.read("/etc/dhcp/dhclient.conf"))

    def test_static_address(self):
        machine = self.given_running(store_text(wired(**STATIC, mtu="1400", staticDns=True, dns1="192.0.2.53")))

        machine.wait_address(lambda address: address == STATIC["ipAddress"])

        wait_for("the route", lambda: "default via 10.77.0.1 dev eth0" in machine.run("ip", "route"))
        wait_for("the resolver", lambda: "nameserver 192.0.2.53" in machine.read("/etc/resolv.conf"))
        wait_for("the MTU", lambda: "mtu 1400 " in machine.run("ip", "link", "show", "dev", "eth0"))

    def test_authentication_of_the_port(self):
        make_certificates()
        machine = self.given_machine(self.installed)
        shutil.copy(CERTIFICATES / "authority.pem", machine.root / "etc/corvi")
        store = machine.root / STORE[1:]
        store.write_text(store_text(peap(caCert="/etc/corvi/authority.pem")))

        def closed_port(interface):
            port = SwitchPort(interface, is_open=False)
            authenticator = Authenticator(port, controls_port=True)
            self.addCleanup(authenticator.stop)
            return port

        machine.boot(cable=closed_port)

        self.assertTrue(machine.server.serves(machine.wait_address(timeout=120)))
        self.assertIn("WpaSuppThread::MessageReceived -- connected", machine.read(LOG))

    def test_modem(self):
        machine = self.given_machine(self.installed)
        tool = machine.root / "usr/local/bin/mmcli"
        tool.write_text(MMCLI)
        tool.chmod(0o755)
        (machine.root / STORE[1:]).write_text(store_text(wired()))

        machine.boot(interface="wwan0")

        machine.wait_address(lambda address: address == "10.77.0.2")
        wait_for("the route", lambda: "default via 10.77.0.1 dev wwan0" in machine.run("ip", "route"))
        wait_for("the resolver", lambda: "nameserver 192.0.2.53" in machine.read("/etc/resolv.conf"))


if __name__ == "__main__":
    unittest.main(verbosity=2)
