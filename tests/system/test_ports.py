# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""A cable that is moved between two ports of the terminal, one and the same switch at its other end.

  test_ports.py             as a test: 6 moves
  test_ports.py --moves N   the long form
"""

import sys
import time

from harness import (ADDRESS_PRESENT, LINK_DOWN, RELOAD_FLAG, DhcpServer, FarEnd, SystemTest, addresses,
                     default_routes, main, random_source, run, status, touch, wait_for, wired, write_store)

moves = 6


class Switch(FarEnd):
    """A switch with a cable to each of our ports, all of them pulled at first."""

    def __init__(self, *ports):
        super().__init__("switch", "bridge0")
        self.run("ip", "link", "set", "dev", "lo", "up")
        self.add_switch(self.far_end, "10.77.0.1", "forward_delay", "0")
        for port in ports:
            peer = "to-" + port
            run("ip", "link", "add", "name", port, "type", "veth", "peer", "name", peer, "netns", self.netns)
            # A veth leaves checksums to hardware that is not there, and DHCP clients drop such packets.
            run("ethtool", "-K", port, "tx", "off")
            self.run("ethtool", "-K", peer, "tx", "off")
            self.run("ip", "link", "set", "dev", peer, "master", self.far_end)

    def plug(self, port):
        self.run("ip", "link", "set", "dev", "to-" + port, "up")

    def pull(self, port):
        self.run("ip", "link", "set", "dev", "to-" + port, "down")


class Ports(SystemTest):
    def setUp(self):
        super().setUp()
        self.listener = self.listen()
        self.switch = Switch("eth0", "eth1")
        self.server = DhcpServer(self.switch)
        self.addCleanup(self.server.stop)
        write_store(wired())

    def gateway_answers(self):
        return "1 received" in run("ping", "-n", "-c", "1", "-W", "1", "10.77.0.1", check=False)

    def is_right(self, used, free):
        record = status()
        return (addresses(used) and not addresses(free) and record.get("connected")
                and record["ipAddress"] == addresses(used)[0]
                and [route["dev"] for route in default_routes()] == [used]
                and len(run("pidof", "dhclient", check=False).split()) == 1 and self.gateway_answers())

    def test_cable_moved_between_ports_keeps_the_network(self):
        chance = random_source()
        ports = ["eth0", "eth1"]
        self.switch.plug(ports[0])
        daemon = self.start_daemon()
        wait_for("network", lambda: self.is_right(*ports), timeout=30)
        worst = 0.0
        for _ in range(moves):
            self.switch.pull(ports[0])
            time.sleep(chance.choice((0, 0, 0.3, 1.2)))  # how long the cable is out is the point
            self.switch.plug(ports[1])
            ports.reverse()
            begun = time.monotonic()
            wait_for(f"network on {ports[0]} only", lambda: self.is_right(*ports), timeout=45)
            worst = max(worst, time.monotonic() - begun)
        daemon.assert_runs()
        print(f"{moves} moves, the slowest right after {worst:.1f} s", flush=True)

    def test_pulled_cable_and_reload_in_the_same_second(self):
        self.switch.plug("eth0")
        self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.listener.clear()

        self.switch.pull("eth0")
        touch(RELOAD_FLAG)

        self.wait_events(self.listener, LINK_DOWN)
        wait_for("nothing left", lambda: not addresses("eth0") and not default_routes())
        wait_for("record", lambda: not status()["connected"] and not status()["ipAddress"])

    def test_pulled_cable_while_the_daemon_is_away(self):
        self.switch.plug("eth0")
        daemon = self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.listener.clear()
        daemon.process.kill()
        daemon.wait_end()

        self.switch.pull("eth0")
        self.start_daemon()

        self.wait_events(self.listener, LINK_DOWN)
        wait_for("nothing left", lambda: not addresses("eth0") and not default_routes())
        wait_for("record", lambda: not status()["connected"] and not status()["ipAddress"])


if __name__ == "__main__":
    if "--moves" in sys.argv:
        at = sys.argv.index("--moves")
        moves = int(sys.argv[at + 1])
        del sys.argv[at:at + 2]
    main()
