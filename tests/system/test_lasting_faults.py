# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Faults that last. An hour of each writes at most 20 lines of level 2 after those of a start, and they name the
interface, the fault and what the daemon does about it.

  test_lasting_faults.py LastingFaults.test_no_dhcp_server                one fault, for an hour
  test_lasting_faults.py --seconds 45 LastingFaults.test_no_dhcp_server   as a test, each in a sandbox of its own

Each thing that is told has three lines at once, and in the hour one more for the count (src/support/reportonce.h). So
a shorter time has to leave room for one further line of each kind."""

import os
import re
import signal
import sys
import time
from pathlib import Path

from dot1x import Dot1xTest, peap, supplicants
from harness import (DEBUG_FLAG, LOG, REFRESH_FLAG, RELOAD_FLAG, RESOLV_CONF, STATIC, STORE, addresses, default_gateway, main,
                     read, run, touch, wait_for, wired, write_store)
from test_adapters import Socket

HOUR = 3600
LINES_AN_HOUR = 20

# What every start tells, each once; with authentication the last three, too.
START_LINES = ("Corvi::Corvi", "BUILD TIME", "Logginglevel", "Corvi::Corvi  Created", "Corvi::Start()",
               "Corvi::LoopTimer started", "Logginglevel", "Force Rescan", "Device Change",
               "Wired Device Connected 1", "UpdateIpInformation", "WpaSuppThread::Start",
               "Attached to control interface", "MessageReceived -- connected")

seconds = HOUR


def lines_after_start():
    lines = [line.split(" :  ", 1)[-1].strip() for line in read(LOG).splitlines()]
    for text in START_LINES:
        first = next((line for line in lines if text in line), None)
        if first:
            lines.remove(first)
    return lines


def kinds(lines):
    """The things that are told: what a line begins with, whatever it says of times and states."""
    return {" ".join(re.sub(r"\d+", "", line).split()[:5]) for line in lines}


class LastingFaults(Dot1xTest):
    def setUp(self):
        super().setUp()
        DEBUG_FLAG.unlink()

    def by_dhcp(self):
        self.lan = self.cable()
        self.dhcp_server(self.lan)
        write_store(wired())
        self.start_healthy()

    def by_static_address(self, **properties):
        self.lan = self.cable()
        write_store(wired(**STATIC, **properties))
        self.start_healthy()

    def start_healthy(self):
        self.start_daemon()
        self.wait_address("eth0")

    def start_authenticated(self):
        self.switch_port()
        self.authenticator()
        write_store(peap())
        daemon = self.start_daemon()
        daemon.wait_logged("WpaSuppThread::MessageReceived -- connected", timeout=60)

    def lasts(self, *told, each=1.0, fault=lambda: None):
        """The fault happens again and again, `each` so many seconds, for the whole time. In the end the log tells
        what is expected, and little else."""
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            fault()
            time.sleep(each)  # the pace of the fault is what it is about
        for text in told:
            wait_for(f"in the log: {text}", lambda text=text: text in read(LOG), timeout=120)
        lines = lines_after_start()
        print(f"{self.id()}: {len(lines)} lines in {seconds} s", *lines, sep="\n  ", flush=True)
        room = 0 if seconds >= HOUR else len(kinds(lines))
        self.assertLessEqual(len(lines) + room, LINES_AN_HOUR)

    # --- authentication --------------------------------------------------------------------------------------

    def test_supplicant_refuses_its_file(self):
        self.switch_port()
        write_store(peap())
        own_lines = Path("/tmp/config/files/wpa_supp_conf")
        own_lines.parent.mkdir(parents=True, exist_ok=True)
        own_lines.write_text("no_such_field=1\n")
        self.start_daemon()
        self.lasts("No supplicant stays on eth0 - next try in 10 s")

    def test_supplicant_ends_again_and_again(self):
        self.start_authenticated()
        self.lasts("The supplicant has ended on eth0 - another one follows within 15 s", each=5,
                   fault=lambda: self.signal_all(signal.SIGKILL))

    def test_supplicant_is_stopped_again_and_again(self):
        self.start_authenticated()
        self.lasts("The supplicant is stopped and answers nobody on eth0", each=20,
                   fault=lambda: self.signal_all(signal.SIGSTOP))

    @staticmethod
    def signal_all(number):
        for pid in supplicants():
            try:
                os.kill(pid, number)
            except ProcessLookupError:
                pass

    def test_wrong_password(self):
        self.switch_port()
        self.authenticator(password="another")
        write_store(peap())
        self.start_daemon()
        self.lasts("The authentication was refused on eth0 - the supplicant goes on trying",
                   "INVALID PASSWORD FOR NETWORK eth0")
        self.assertNotIn("Nobody answers", read(LOG))

    def test_nobody_authenticates(self):
        self.switch_port()
        write_store(peap())
        self.start_daemon()
        self.lasts("Nobody answers on the port, so no password was refused on eth0 - the supplicant goes on trying")
        self.assertNotIn("The authentication was refused", read(LOG))

    # --- address, route, resolver ----------------------------------------------------------------------------

    def test_no_dhcp_server(self):
        self.cable()
        write_store(wired())
        self.start_daemon()
        self.lasts("-dhclient(eth0) failed", "no address, trying again on eth0 - then after 20 s, 40 s and every 60 s")

    def test_dhcp_address_is_taken_away(self):
        self.by_dhcp()
        self.lasts("the address is gone: eth0", "no address, trying again on eth0", each=5, fault=self.flush)

    def test_static_address_is_taken_away(self):
        self.by_static_address()
        self.lasts("the static address is missing, setting it again on eth0", each=5, fault=self.flush)

    @staticmethod
    def flush():
        if addresses("eth0"):
            run("ip", "addr", "flush", "dev", "eth0")

    def test_somebody_sets_another_default_route(self):
        self.by_static_address()
        self.lasts("the default route is missing, setting it again on eth0", each=5, fault=self.change_default_route)

    @staticmethod
    def change_default_route():
        while default_gateway():
            run("ip", "route", "del", "default")
        run("ip", "route", "add", "default", "via", "10.77.0.254", "dev", "eth0", check=False)

    def test_somebody_overwrites_the_resolver_file(self):
        self.by_static_address(staticDns=True, dns1="10.77.0.1")
        self.lasts("NetworkDevice::SetDNS -   10.77.0.1", each=5, fault=self.overwrite_resolver_file)

    @staticmethod
    def overwrite_resolver_file():
        RESOLV_CONF.write_text("nameserver 192.0.2.1\n")
        touch(REFRESH_FLAG)

    def test_store_cannot_be_read(self):
        self.cable()
        write_store(wired())
        STORE.write_text("<networkconfig>")
        self.start_daemon()
        self.lasts("nothing is configured", "Could not find configuration", each=5, fault=lambda: touch(REFRESH_FLAG))

    # --- link and adapter ------------------------------------------------------------------------------------

    def test_adapter_cannot_be_brought_up(self):
        self.cable()
        run("ip", "link", "set", "dev", "eth0", "down")
        write_store(wired())
        self.stand_in("ifconfig", 'echo "SIOCSIFFLAGS: Input/output error" >&2; exit 1')
        self.start_daemon()
        self.lasts("the link is down, bringing it up again: eth0, last answer: SIOCSIFFLAGS: Input/output error")

    def test_somebody_takes_the_link_down(self):
        self.by_dhcp()
        self.lasts("the link is down, bringing it up again: eth0", each=5,
                   fault=lambda: run("ip", "link", "set", "dev", "eth0", "down"))

    def test_link_flaps(self):
        self.by_dhcp()
        self.lasts("Wired Device Connected 0", each=3, fault=self.flap)

    def flap(self):
        self.lan.pull()
        time.sleep(1.5)  # seen by some looks and missed by others
        self.lan.plug()

    def test_loose_adapter(self):
        socket = Socket("eth0", 81)
        self.addCleanup(socket.server.stop)
        socket.put_in()
        write_store(wired())
        self.start_healthy()
        self.lasts("the interfaces changed", "eth0", each=5,
                   fault=lambda: socket.pull_out() if socket.is_in else socket.put_in())

    def test_storm_of_reloads(self):
        self.by_dhcp()
        self.lasts("Corvi::Loop Force Rescan", each=2.5, fault=lambda: touch(RELOAD_FLAG))


if __name__ == "__main__":
    if "--seconds" in sys.argv:
        at = sys.argv.index("--seconds")
        seconds = int(sys.argv[at + 1])
        del sys.argv[at:at + 2]
    main()
