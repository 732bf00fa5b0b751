# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""What the daemon does with the few rights that its unit leaves it."""

import os
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

# Asks the kernel for a module that is none, and says what came of it and with which rights.
MODPROBE = """#!/bin/sh
{ insmod /usr/local/no-module.ko; grep ^CapEff: /proc/self/status; } >>/var/log/modprobe 2>&1
"""
CAP_SYS_MODULE = 1 << 16

# Opens what shows whether radios are switched off, as the supplicant does.
LOOK_AT_SWITCHES = """[Service]
ExecStartPre=-/bin/sh -c 'exec 2>/var/log/rfkill; : </dev/rfkill; echo opened >&2'
"""

# What a user makes under the keys of the status segment and of its lock.
FOREIGN = """
import ctypes, sys
libc = ctypes.CDLL(None, use_errno=True)
segment, lock = map(int, sys.argv[1:])
if libc.shmget(segment, 512, 0o1666) == -1 or libc.semget(lock, 1, 0o1600) == -1:
    sys.exit(f"errno {ctypes.get_errno()}")
"""


def key_of(path):
    """As ftok(3) makes it, with Qt's project."""
    info = os.stat(path)
    return ord("Q") << 24 | (info.st_dev & 0xff) << 16 | info.st_ino & 0xffff


def complete(told):
    return told if "CapEff:" in told and told.endswith("\n") else None


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

    def what_came_of_the_bond_s_driver(self, drop_in):
        """The effective rights of the program that loads it, and all that it said. What the driver itself does is
        seen in the virtual machine (tests/vm)."""
        machine = self.given_machine(self.installed)
        if drop_in:
            folder = machine.root / "etc/systemd/system/corvi.service.d"
            folder.mkdir()
            shutil.copy(machine.root / "usr/share/doc/corvi/examples/bonding.conf", folder)
        (machine.root / "usr/local/no-module.ko").write_text("none\n" * 1000)
        modprobe = machine.root / "usr/local/sbin/modprobe"
        modprobe.write_text(MODPROBE)
        modprobe.chmod(0o755)
        (machine.root / STORE[1:]).write_text(store_text(wired(), bonding_enable=True))
        machine.boot(capability="CAP_SYS_MODULE")
        told = wait_for("the driver is asked for", lambda: complete(machine.read("/var/log/modprobe")))
        # Without a bond the cable is used alone.
        machine.wait_address()
        return int(told.split("CapEff:")[1].split()[0], 16), told

    def test_driver_of_a_bond_without_the_drop_in(self):
        rights, told = self.what_came_of_the_bond_s_driver(drop_in=False)

        self.assertFalse(rights & CAP_SYS_MODULE)
        self.assertIn("Operation not permitted", told)

    def test_driver_of_a_bond_with_the_drop_in(self):
        rights, told = self.what_came_of_the_bond_s_driver(drop_in=True)

        self.assertTrue(rights & CAP_SYS_MODULE)
        # The kernel looked at the file, or has no modules at all.
        self.assertNotIn("Operation not permitted", told)

    def test_switches_of_radios_are_seen(self):
        machine = self.given_machine(self.installed)
        folder = machine.root / "etc/systemd/system/corvi.service.d"
        folder.mkdir()
        (folder / "look.conf").write_text(LOOK_AT_SWITCHES)
        (machine.root / STORE[1:]).write_text(store_text(wired()))
        machine.boot()
        machine.run("mknod", "/dev/rfkill", "c", "10", "242")

        machine.run("systemctl", "restart", "corvi")

        # It is there and may be opened, though the kernel of the machine that runs the tests may have no driver for it.
        told = machine.read("/var/log/rfkill")
        self.assertTrue("opened" in told or "No such device" in told, told)

    def test_segment_and_lock_of_a_user(self):
        machine = self.given_machine(self.installed)
        machine.boot()
        names = machine.run("find", "/tmp", "-maxdepth", "1", "-name", "qipc_s*").split()
        keys = [key_of(f"/proc/{machine.leader}/root{name}") for name in sorted(names)]
        machine.run_in_its_ipc_as_user("python3", "-c", FOREIGN, *keys)
        machine.write(STORE, store_text(wired(**STATIC)))

        machine.run("systemctl", "start", "corvi")

        machine.wait_address(lambda address: address == STATIC["ipAddress"])
        wait_for("its status", lambda: STATIC["ipAddress"] in machine.run("corvi-status"))
        told = [line for line in machine.read(LOG).splitlines() if "made by another user" in line]
        self.assertEqual(len(told), 1, told)
        self.assertIn("the status segment, its lock", told[0])
        # It has no right to remove what is another's; no key leads there any more.
        for name, old in zip(sorted(names), keys):
            self.assertNotEqual(key_of(f"/proc/{machine.leader}/root{name}"), old)
            self.assertEqual(machine.run("stat", "-c", "%U %a", name).strip(), "root 640")


if __name__ == "__main__":
    unittest.main(verbosity=2)
