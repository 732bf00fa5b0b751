# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Adapters that are put in and pulled out at random moments: while nothing happens, while a DHCP client asks, while a
supplicant starts. Each leads to a network of its own, so that what is left of another one shows.

  test_adapters.py              as a test: 8 changes with and 8 without authentication
  test_adapters.py --changes N  the long form
"""

import collections
import sys
import time

from carriers import dhcp_clients
from dot1x import Authenticator, Dot1xTest, peap, supplicants, zombies
from harness import (LOG, RESOLV_CONF, DhcpServer, FarEnd, addresses, default_routes, main, random_source,
                     read, run, status, wait_for, wait_settled, wired, write_store)

changes = 8
# Between two times that everything must have come to rest.
CHANGES_IN_A_ROW = 4
# In which the daemon would undo what it has just done.
TWO_TICKS = 2.2


class Socket(FarEnd):
    """A wall socket with a network 10.NUMBER.0.0/24 of its own behind it, and the adapter that is put into it."""

    def __init__(self, adapter, number):
        super().__init__("lan-" + adapter, "port0")
        self.adapter = adapter
        self.network = f"10.{number}.0"
        self.port = "hall-" + adapter  # a name of its own for each authenticator
        self.far_end = self.port
        self.run("ip", "link", "set", "dev", "lo", "up")
        # Stays when the adapter goes. It lets an authenticator on it hear the frames of IEEE 802.1X, which a bridge
        # keeps to itself otherwise (group_fwd_mask, ip-link(8)).
        self.add_switch(self.port, f"{self.network}.1", "forward_delay", "0", "group_fwd_mask", "8")
        self.server = DhcpServer(self, network=self.network)
        self.authenticates = False
        self.authenticator = None
        self.is_in = False

    def put_in(self):
        if self.authenticates:
            self.authenticator = Authenticator(self, name="hostapd-" + self.adapter)
        run("ip", "link", "add", "name", self.adapter, "type", "veth", "peer", "name", "wire", "netns", self.netns)
        # A veth leaves checksums to hardware that is not there, and DHCP clients drop such packets.
        run("ethtool", "-K", self.adapter, "tx", "off")
        self.run("ethtool", "-K", "wire", "tx", "off")
        self.run("ip", "link", "set", "dev", "wire", "master", self.port, "up")
        self.is_in = True

    def pull_out(self):
        run("ip", "link", "delete", "dev", self.adapter)
        self.is_in = False
        self.let_go()

    def let_go(self):
        """A port forgets whom it let in when its link goes."""
        if self.authenticator:
            self.authenticator.stop()


class Adapters(Dot1xTest):
    def setUp(self):
        super().setUp()
        self.chance = random_source()
        self.sockets = [Socket(adapter, number) for adapter, number in (("eth0", 81), ("eth1", 82), ("usb0", 83))]
        for socket in self.sockets:
            self.addCleanup(socket.server.stop)
        self.slowest = 0.0
        self.rests = collections.Counter()

    def test_by_dhcp(self):
        write_store(wired())
        self.come_and_go(lambda: bool(dhcp_clients()), lambda used: not supplicants())

    def test_with_authentication(self):
        for socket in self.sockets:
            socket.authenticates = True
            self.addCleanup(socket.let_go)
        write_store(peap())
        self.come_and_go(lambda: bool(supplicants()), self.is_authenticated)

    def come_and_go(self, is_busy, is_secured):
        self.daemon = self.start_daemon()
        self.daemon.wait_logged("Corvi::Loop Force Rescan")
        for change in range(1, changes + 1):
            self.change(self.chance.choice(self.sockets))
            if change % CHANGES_IN_A_ROW == 0 or change == changes:
                self.comes_to_rest(is_secured)
            else:
                self.wait_a_moment(is_busy)
        print(f"{changes} changes, the slowest right after {self.slowest:.1f} s; "
              f"{len(self.listener.messages)} events; came to rest with {dict(self.rests)}", flush=True)

    def change(self, socket):
        if not socket.is_in:
            socket.put_in()
            return
        socket.pull_out()
        if self.chance.random() < 0.3:
            time.sleep(self.chance.uniform(0, 1))  # how soon it is put in again is the point
            socket.put_in()

    def wait_a_moment(self, is_busy):
        """Somewhere in the life of an adapter, or in the middle of what was just begun for it."""
        end = time.monotonic() + self.chance.uniform(0, 4)
        awaits_work = self.chance.random() < 0.5
        while time.monotonic() < end and not (awaits_work and is_busy()):
            time.sleep(0.02)
        time.sleep(self.chance.uniform(0, 0.3))

    def comes_to_rest(self, is_secured):
        used = next((socket for socket in self.sockets if socket.is_in), None)
        what_is_wrong = []

        def is_right():
            what_is_wrong[:] = self.faults(used) + ([] if is_secured(used) else ["not as secure as asked for"])
            return not what_is_wrong
        try:
            self.slowest = max(self.slowest, wait_settled("at rest", is_right, TWO_TICKS, timeout=180))
        except AssertionError as error:
            raise AssertionError(f"{error}: with {[socket.adapter for socket in self.sockets if socket.is_in]}: "
                                 f"{what_is_wrong}") from None
        self.rests[used.adapter if used else "none"] += 1
        self.assertEqual(zombies(), [])
        # What was reported has come, each once.
        wait_for(f"{self.reported()} events", lambda: len(self.listener.messages) == self.reported(), timeout=5)
        self.listener.events()

    def faults(self, used):
        """What is wrong or stale, as texts, where the first adapter that is there has to carry the traffic."""
        name, network = (used.adapter, used.network + ".") if used else (None, None)
        found = []
        for socket in self.sockets:
            held = addresses(socket.adapter) if socket.is_in else []
            if socket is not used and held:
                found.append(f"{held} on {socket.adapter}")
            if socket is used and (len(held) != 1 or not held[0].startswith(network)):
                found.append(f"{held} on {socket.adapter} in use")
        routes = [(route["dev"], route.get("gateway")) for route in default_routes()]
        if routes != ([(name, network + "1")] if used else []):
            found.append(f"default routes {routes}")
        if dhcp_clients() != ([name] if used else []):
            found.append(f"DHCP clients of {dhcp_clients()}")
        if used and f"nameserver {network}1\n" not in read(RESOLV_CONF) or read(RESOLV_CONF).count("nameserver") > 1:
            found.append(f"resolver {read(RESOLV_CONF)!r}")
        record = status()  # Empty until there was something to tell.
        if record.get("connected", False) != bool(used):
            found.append(f"connected in the record of {record}")
        if [record.get("ipAddress", "")] != (addresses(name) if used else [""]):
            found.append(f"address in the record of {record}")
        return found

    def is_authenticated(self, used):
        """One supplicant at most, and where it matters it was let in."""
        if not used:
            return len(supplicants()) <= 1
        return len(supplicants()) == 1 and "Supplicant PAE state=AUTHENTICATED" in run(
            "wpa_cli", "-p", "/run/wpa_supplicant", "-i", used.adapter, "status", check=False)

    @staticmethod
    def reported():
        return read(LOG).count("SendEvent()  Start")


if __name__ == "__main__":
    if "--changes" in sys.argv:
        at = sys.argv.index("--changes")
        changes = int(sys.argv[at + 1])
        del sys.argv[at:at + 2]
    main()
