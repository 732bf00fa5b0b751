# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""The bond, with the real driver: on and off, its address, a link that is lost, what stays behind.

The driver makes its first bond in the guest's own network, so these run there, one after another.
"""

from pathlib import Path

import missingmodule
from harness import FarEnd, SystemTest, addresses, end_by_name, holds_for, read, run, wired, write_store
from waiting import address_on, wait_for
from wifi import say

OWN_NETWORK = False

SAVED_MAC = Path("/tmp/config/files/network/bondedMac")
MODES = ("balance-rr", "active-backup", "balance-xor", "broadcast", "802.3ad", "balance-tlb", "balance-alb")
ACTIVE_BACKUP = 1
SETTLE_TIME = 90
BURST = 10
SERVER = "10.77.0.1"


class Switch(FarEnd):
    """A switch; its ports are the far ends of cables."""

    def __init__(self):
        super().__init__("lan", "switch")
        self.add_switch(self.far_end, SERVER)

    def add_port(self, interface):
        port = f"to-{interface}"
        run("ip", "link", "add", "name", interface, "type", "veth", "peer", "name", port, "netns", self.netns)
        run("ethtool", "-K", interface, "tx", "off")
        self.run("ethtool", "-K", port, "tx", "off")
        self.run("ip", "link", "set", "dev", port, "master", self.far_end, "up")

    def pull(self, interface):
        self.run("ip", "link", "set", "dev", f"to-{interface}", "down")

    def plug(self, interface):
        self.run("ip", "link", "set", "dev", f"to-{interface}", "up")


def bond_mode(interface="eth0"):
    return read(f"/sys/class/net/{interface}/bonding/mode").split(" ")[0]


def ports(bond="eth0"):
    return sorted(read(f"/sys/class/net/{bond}/bonding/slaves").split())


def is_loaded(module):
    return Path(f"/sys/module/{module}").exists()


def machine_state():
    """What must be as before once bonding is off again: interfaces, their numbers, addresses and masters. Without
    programs, as it is asked again and again."""
    state = {}
    for path in Path("/sys/class/net").iterdir():
        if path.is_dir():
            name = path.name
            state[name] = (read(path / "ifindex").strip(), read(path / "address").strip(), (path / "master").resolve())
    return state, is_loaded("bonding")


class BondingTest(SystemTest):
    def setUp(self):
        run("modprobe", "-r", "bonding", check=False)
        super().setUp()
        self.switch = Switch()
        self.switch.add_port("eth0")
        self.switch.add_port("eth1")
        self.dhcp_server(self.switch)
        self.before = machine_state()

    def set_bonding(self, enabled, mode=ACTIVE_BACKUP):
        write_store(wired(), bonding_enable=enabled, bonding_mode=mode)

    def wait_bonded(self):
        self.wait_ports()
        return self.wait_lease()

    @staticmethod
    def wait_ports():
        wait_for("the bond is eth0", bond_mode, SETTLE_TIME)
        wait_for("both ports", lambda: ports() == ["eth0-swap", "eth1"], 20)

    def wait_lease(self):
        address = wait_for("an address on eth0", lambda: address_on("eth0"), SETTLE_TIME)
        self.assert_reached()
        return address

    def assert_reached(self):
        wait_for("the far end answers", lambda: "1 received" in run("ping", "-c1", "-W2", SERVER, check=False), 20)

    @staticmethod
    def restart_machine():
        """Brings the network to where a start of the machine would."""
        end_by_name("dhclient")
        run("modprobe", "-r", "bonding")
        run("ip", "link", "set", "dev", "eth0-swap", "down")
        run("ip", "link", "set", "dev", "eth1", "down")
        run("ip", "link", "set", "dev", "eth0-swap", "name", "eth0")

    def wait_unbonded(self):
        wait_for("no bond", lambda: not bond_mode() and "eth0-swap" not in machine_state()[0], SETTLE_TIME)
        return self.wait_lease()


class OnAndOff(BondingTest):
    def test_on_and_off(self):
        """On from the start, switched off and on again by the store and the reload file, three times over."""
        self.set_bonding(True)
        daemon = self.start_daemon()
        self.wait_bonded()
        for turn in range(1, 4):
            self.set_bonding(False)
            daemon.rescan()
            address = self.wait_unbonded()
            say(f"turn {turn}: off: address {address}, driver loaded: {is_loaded('bonding')}")
            interfaces, _ = machine_state()
            self.assertEqual(interfaces, self.before[0])
            self.assertFalse(is_loaded("bonding"))

            # eth0 is up now; kernels before 6.2 rename it only when it was taken down.
            self.set_bonding(True)
            daemon.rescan()
            self.wait_ports()
            address = wait_for("an address on the bond", lambda: address_on("eth0"), SETTLE_TIME)
            say(f"turn {turn}: on: {bond_mode()} with {ports()}, address {address}; "
                f"eth0-swap has {addresses('eth0-swap')}")

    def test_port_pulled_and_put_back(self):
        """Each adapter is pulled and put back. The first one cannot have its name back, which the bond has."""
        self.set_bonding(True)
        self.start_daemon()
        address = self.wait_bonded()
        for pulled, left, back in (("eth1", ["eth0-swap"], "eth1"), ("eth0-swap", ["eth1"], "eth2")):
            run("ip", "link", "delete", "dev", pulled)
            wait_for("the port is gone", lambda left=left: ports() == left, 20)
            self.switch.add_port(back)
            wait_for("the port is back", lambda left=left, back=back: ports() == sorted([*left, back]), SETTLE_TIME)
            self.assert_reached()
        self.assertEqual(addresses("eth0"), [address])

    def test_restart_while_up(self):
        """The daemon is started anew while the bond is up: the same bond, address and lease afterwards."""
        self.set_bonding(True)
        daemon = self.start_daemon()
        address = self.wait_bonded()
        mac = read("/sys/class/net/eth0/address")
        daemon.stop()

        self.start_daemon()
        wait_for("the second daemon has looked", lambda: read("/var/log/corvi-mon.log").count("Force Rescan") == 2,
                 SETTLE_TIME)
        self.assertEqual(self.wait_bonded(), address)
        self.assertEqual(read("/sys/class/net/eth0/address"), mac)

    def test_adapters_of_other_names(self):
        """Adapters of other names, the driver loaded without a bond: the bond is used, also by the next daemon."""
        names = ["enp1s0", "enp2s0"]
        for old, new in zip(("eth0", "eth1"), names):
            run("ip", "link", "set", "dev", old, "down")
            run("ip", "link", "set", "dev", old, "name", new)
        run("modprobe", "bonding", "max_bonds=0")
        self.set_bonding(True)
        daemon = self.start_daemon()
        wait_for("both ports", lambda: ports() == names, SETTLE_TIME)
        address = self.wait_lease()
        daemon.stop()
        end_by_name("dhclient")
        run("ip", "addr", "flush", "dev", "eth0")

        self.start_daemon()

        self.assertEqual(self.wait_lease(), address)
        self.assertEqual(ports(), names)
        say(f"a bond of {names} has its address {address}, and again after a restart of the daemon")

    def test_driver_missing(self):
        """Without the driver there is no bond, and eth0 serves as it is; the log says so."""
        missingmodule.hide("rtnl-link-bond")
        self.addCleanup(missingmodule.show, "rtnl-link-bond")
        self.set_bonding(True)
        daemon = self.start_daemon()
        daemon.wait_logged("Bonding driver was not found", SETTLE_TIME)
        holds_for("the daemon runs without the driver", lambda: daemon.runs() and not is_loaded("bonding"), 10)
        wait_for("eth0 has its name back", lambda: "eth0-swap" not in machine_state()[0], SETTLE_TIME)
        self.wait_lease()
        say(f"without the driver: interfaces {sorted(machine_state()[0])}, eth0 has its address")


class SavedMac(BondingTest):
    FORCED = "02:42:ac:11:00:77"

    def bond_mac_with(self, content):
        SAVED_MAC.parent.mkdir(parents=True, exist_ok=True)
        SAVED_MAC.write_text(content)
        self.set_bonding(True)
        self.start_daemon()
        self.wait_bonded()
        return read("/sys/class/net/eth0/address").strip()

    def test_saved_mac_with_line_feed(self):
        """A saved address becomes the bond's."""
        self.assertEqual(self.bond_mac_with(self.FORCED + "\n"), self.FORCED)
        self.assertEqual(SAVED_MAC.read_text(), self.FORCED + "\n")

    def test_saved_mac_without_line_feed(self):
        """A saved address without its line feed is not used, but replaced by the bond's."""
        mac = self.bond_mac_with(self.FORCED)
        self.assertNotEqual(mac, self.FORCED)
        self.assertEqual(SAVED_MAC.read_text(), mac + "\n")

    def test_saved_mac_kept(self):
        """Without a saved address the bond's first one is saved, and is its own after a restart of the machine
        with another network card: same lease."""
        self.set_bonding(True)
        daemon = self.start_daemon()
        address = self.wait_bonded()
        saved = SAVED_MAC.read_text()
        self.assertEqual(saved.strip(), read("/sys/class/net/eth0/address").strip())
        daemon.stop()
        self.restart_machine()
        run("ip", "link", "set", "dev", "eth0", "address", self.FORCED)

        self.start_daemon()

        self.assertEqual(self.wait_bonded(), address)
        self.assertEqual(SAVED_MAC.read_text(), saved)
        say(f"the address {address} is the same after a restart with another card")


class LinkLost(BondingTest):
    @staticmethod
    def links_down():
        return read("/proc/net/bonding/eth0").count("MII Status: down")

    def lose_a_link(self, mode):
        self.set_bonding(True, mode=mode)
        daemon = self.start_daemon()
        address = self.wait_bonded()
        self.assertEqual(bond_mode(), MODES[mode])
        self.assertEqual(read("/sys/class/net/eth0/bonding/miimon").strip(), "100")
        self.pull_each()
        self.assertEqual(addresses("eth0"), [address])
        say(f"{MODES[mode]}: traffic without each of two links")
        daemon.stop()

    def pull_each(self):
        # Each in turn: the traffic may use only one of them.
        for interface in ("eth0", "eth1"):
            self.switch.pull(interface)
            wait_for("the driver has seen it", lambda: self.links_down() == 1, 5)
            self.wait_for_traffic("without one link")
            self.switch.plug(interface)
            wait_for("the driver has seen it", lambda: self.links_down() == 0, 5)
            self.wait_for_traffic("with both links")

    @staticmethod
    def wait_for_traffic(when):
        """The far end answers each of many: some of them are of the link that is away, where it is still used. The
        driver may take seconds to tell the far end of another port."""
        wait_for(f"traffic {when}",
                 lambda: f"{BURST} received" in run("ping", f"-c{BURST}", "-i0.1", "-W1", SERVER, check=False), 20)

    def lose_a_link_in(self, *modes):
        for mode in modes:
            self.lose_a_link(mode)
            self.restart_machine()
            SAVED_MAC.unlink()

    def test_link_lost(self):
        """Each of two links is lost and regained, modes 0 to 3 one after another."""
        self.lose_a_link_in(0, 1, 2, 3)

    def test_link_lost_at_any_switch(self):
        """The same, modes 4 to 6, at a switch that knows no aggregation."""
        self.lose_a_link_in(4, 5, 6)
