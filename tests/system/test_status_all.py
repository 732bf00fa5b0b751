# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""What corvi-status says of each interface while the real daemon works: what it waits for, and why."""

import json
import re
import signal
import subprocess
import time
from pathlib import Path

from dot1x import Dot1xTest, peap
from harness import (SOURCE_DIR, STATIC, STATUS_TOOL, SystemTest, addresses, holds_for, main, run, wait_for, wired,
                     write_store)

STATE_FOLDER = Path("/run/corvi")
STATE = STATE_FOLDER / "state.json"
DOCUMENT = SOURCE_DIR / "docs/troubleshooting.md"


def report():
    """All that is known, as a program reads it."""
    return json.loads(run(STATUS_TOOL, "--all", "--json"))


def interface(name="eth0"):
    return next((entry for entry in report()["interfaces"] if entry["name"] == name), {})


def without_numbers(some_text):
    return re.sub(r"\d+", "N", some_text)


def text():
    """The same for a person."""
    return run(STATUS_TOOL, "--all")


class WithState(SystemTest):
    def setUp(self):
        super().setUp()
        STATE_FOLDER.mkdir(exist_ok=True)
        STATE.unlink(missing_ok=True)

    def wait_state(self, expected, name="eth0", timeout=30):
        """Waits until the sentence of the interface matches. It must be one that the documentation explains."""
        try:
            # Each look starts several programs, and every sentence lasts from one look of the daemon's to the next.
            match = wait_for(f"{name}: {expected}",
                             lambda: re.fullmatch(expected, interface(name).get("waitsFor", "")), timeout, interval=0.2)
        except AssertionError as error:
            raise AssertionError(f"{error}; is: {interface(name).get('waitsFor')}") from None
        sentence = without_numbers(match[0].partition(", after")[0].replace("attempts", "attempt"))
        self.assertIn(f"`{sentence}`", without_numbers(DOCUMENT.read_text(encoding="utf-8")))


class Wired(WithState):
    def test_no_carrier(self):
        cable = self.cable()
        cable.pull()
        write_store(wired())

        self.start_daemon()

        self.wait_state("no carrier")
        self.assertEqual(interface()["link"]["carrier"], False)
        self.assertIn("  State:        no carrier\n", text())

    def test_no_server(self):
        self.cable()
        write_store(wired())

        self.start_daemon()

        self.wait_state(r"asking for an address by DHCP for \d+ s")
        self.wait_state(r"no DHCP server answered 1 attempt, next in \d s", timeout=60)
        self.assertEqual(interface()["state"], "no-dhcp-answer")
        self.wait_state(r"asking for an address by DHCP for \d+ s, after 1 attempt without an answer")
        self.wait_state(r"no DHCP server answered 2 attempts, next in 1\d s", timeout=60)
        text()

    def test_connected(self):
        server = self.dhcp_server(self.cable())
        write_store(wired())

        self.start_daemon()

        self.wait_state("connected")
        eth0 = interface()
        self.assertTrue(eth0["carriesTraffic"])
        self.assertTrue(server.serves(eth0["addresses"][0].split("/")[0]))
        self.assertEqual(eth0["gateway"], "10.77.0.1")
        self.assertEqual(eth0["resolver"], ["10.77.0.1"])
        self.assertEqual(eth0["lease"]["server"], "10.77.0.1")
        self.assertEqual(eth0["definition"]["name"], "lan")
        self.assertEqual(eth0["definition"]["reason"], "the only one for a wired interface")
        text()

    def test_leased_address_that_became_a_static_one(self):
        self.dhcp_server(self.cable())
        write_store(wired())
        daemon = self.start_daemon()
        wait_for("a lease", lambda: "lease" in interface(), 30)

        write_store(wired(**{**STATIC, "ipAddress": addresses("eth0")[0]}))
        daemon.rescan()

        def static():
            entry = interface()
            return entry if entry["definition"]["staticAddress"] and entry["addresses"] else None
        # The earlier lease still stands in the client's file.
        self.assertNotIn("lease", wait_for("the static address", static, 30))

    def test_gateway_that_is_the_device_itself(self):
        self.cable()
        write_store(wired(**{**STATIC, "gateway": STATIC["ipAddress"]}))

        self.start_daemon()

        self.wait_state("has an address, but its default route by 10.77.0.5 leads to no other host: "
                        "that is its own address")

    def test_second_cable_waits_for_the_first(self):
        self.cable("eth0")
        self.cable("eth1", address="10.78.0.1/24")
        write_store(wired(**STATIC))

        self.start_daemon()

        self.wait_state("connected")
        self.wait_state("not used while eth0 carries the traffic", name="eth1")

    def test_static_address_that_is_taken_away(self):
        self.cable()
        write_store(wired(**STATIC))
        self.start_daemon()
        self.wait_state("connected")
        expected = "its static address is missing and is set again"

        def is_missed():
            run("ip", "addr", "flush", "dev", "eth0")
            return interface()["waitsFor"] == expected

        wait_for(expected, is_missed)
        self.assertIn(f"`{expected}`", DOCUMENT.read_text(encoding="utf-8"))

    def test_default_route_that_is_taken_away(self):
        self.cable()
        write_store(wired(**STATIC))
        self.start_daemon()
        self.wait_state("connected")
        expected = "has an address, but its default route by 10.77.0.1 is missing and is set again"

        def is_missed():
            run("ip", "route", "flush", "default")
            return interface()["waitsFor"] == expected

        wait_for(expected, is_missed)
        self.assertIn(f"`{expected}`", DOCUMENT.read_text(encoding="utf-8"))

    def test_ipv6_alone(self):
        # Without the daemon, whose flush before each attempt by DHCP takes this address, too.
        self.cable()
        run("ip", "addr", "add", "2001:db8::5/64", "dev", "eth0")

        self.assertEqual(interface()["addresses"], [])
        self.assertIn("  Address:      2001:db8::5/64\n", text())

    def test_missing_client(self):
        run("mount", "--bind", "/dev/null", "/usr/sbin/dhclient")
        self.addCleanup(run, "umount", "/usr/sbin/dhclient")
        self.cable()
        write_store(wired())

        daemon = self.start_daemon()

        self.wait_state(r"dhclient cannot be started: .*, next in \d s", timeout=60)
        self.assertIn("\nA program that it needs does not work: dhclient cannot be started: ", text())
        self.assertTrue(daemon.logged("dhclient cannot be started: "))

    def test_no_definition(self):
        self.cable()
        write_store()

        self.start_daemon()

        self.wait_state("the store defines no network for a wired interface")


class Waiting(WithState):
    def wait(self, *options):
        return subprocess.run([STATUS_TOOL, "--wait", *options], capture_output=True, text=True, timeout=60,
                              check=False)

    def test_address_comes(self):
        self.cable()
        write_store(wired(**STATIC))
        with subprocess.Popen([STATUS_TOOL, "--wait", "--interface", "eth0"]) as waiting:
            self.addCleanup(waiting.kill)
            holds_for("no address, and still waiting", lambda: waiting.poll() is None, 1)

            self.start_daemon()

            self.assertEqual(waiting.wait(30), 0)
        self.assertEqual(addresses("eth0"), ["10.77.0.5"])
        self.assertEqual(self.wait().returncode, 0)

    def test_time_out_says_why(self):
        self.cable().pull()
        write_store(wired(**STATIC))
        self.start_daemon()
        self.wait_state("no carrier")

        result = self.wait("--timeout", "1")

        self.assertEqual(result.returncode, 2)
        self.assertEqual(result.stderr, "corvi-status: no address in time: eth0: no carrier\n")
        self.assertEqual(result.stdout, "")

    def test_other_interface_does_not_count(self):
        self.cable()
        write_store(wired(**STATIC))
        self.start_daemon()
        self.wait_state("connected")

        result = self.wait("--interface", "eth7", "--timeout", "0")

        self.assertEqual(result.returncode, 2)
        self.assertIn("there is no such interface", result.stderr)


class Daemon(WithState):
    def test_dead_daemon_is_not_believed(self):
        self.cable()
        write_store(wired(**STATIC))
        daemon = self.start_daemon()
        self.wait_state("connected")

        daemon.process.kill()
        daemon.process.wait()

        self.assertTrue(STATE.exists())
        first = text().splitlines()[0]
        self.assertEqual(first, "Corvi does not run. What follows is what the system itself says.")
        self.assertIn(f"`{first}`", DOCUMENT.read_text(encoding="utf-8"))
        self.assertEqual(interface()["waitsFor"], "has an address")

    def test_stopped_daemon(self):
        self.cable()
        write_store(wired(**STATIC))
        daemon = self.start_daemon()
        self.wait_state("connected")

        daemon.process.send_signal(signal.SIGSTOP)
        self.addCleanup(daemon.process.send_signal, signal.SIGCONT)

        wait_for("the daemon is stopped", lambda: not report()["daemonWell"])
        first = report()["daemon"]
        self.assertIn(f"`{without_numbers(first)}`", without_numbers(DOCUMENT.read_text(encoding="utf-8")))

    def test_daemon_without_a_folder_for_its_state(self):
        STATE_FOLDER.rmdir()
        self.cable()
        write_store(wired(**STATIC))

        daemon = self.start_daemon()

        wait_for("an address", lambda: interface()["addresses"])
        self.assertIn(f"`{report()['daemon']}`", DOCUMENT.read_text(encoding="utf-8"))
        self.assertIn("Corvi runs, but what it waits for is not known", report()["daemon"])
        self.assertFalse(daemon.logged("TellState"))

    def test_ordinary_user(self):
        self.cable()
        write_store(wired(**STATIC))
        self.start_daemon()
        self.wait_state("connected")

        output = run("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", STATUS_TOOL, "--all")

        self.assertRegex(output, r"\ACorvi runs \(process \d+\)\.\n")
        self.assertIn("  State:        connected\n", output)

    def test_idle_daemon_leaves_the_file_alone(self):
        self.cable()
        write_store(wired(**STATIC))
        self.start_daemon()
        self.wait_state("connected")
        self.assertEqual(STATE.stat().st_mode & 0o777, 0o644)

        def state_of_a_tick():
            # A new file has the time of the day, until its time is set.
            state = STATE.stat()
            return state if state.st_mtime <= time.monotonic() + 1 else None

        def stands_still():
            # Each time that it is written it is another file; each tick sets its time.
            first = wait_for("the time of a tick", state_of_a_tick)
            wait_for("four ticks", lambda: STATE.stat().st_mtime >= first.st_mtime + 4)
            return STATE.stat().st_ino == first.st_ino

        # What comes with the address may still be on its way.
        self.assertTrue(any(stands_still() for _ in range(10)))


class Authentication(WithState, Dot1xTest):
    def test_nobody_lets_us_in(self):
        self.switch_port(is_open=False)
        write_store(peap())

        self.start_daemon()

        self.wait_state(r"waiting for authentication for \d+ s, unsecured fallback at 60 s", timeout=90)
        # The supplicant itself begins a moment later.
        wait_for("the supplicant's state", lambda: interface().get("supplicant", {}).get("eapState") == "IDLE")
        self.assertIn("EAP IDLE", text())

    def test_wrong_password(self):
        self.switch_port(is_open=False)
        self.authenticator(controls_port=True, password="another")
        write_store(peap())

        self.start_daemon()

        wait_for("a failure", lambda: interface().get("lastFailure"), 60)
        self.assertEqual(interface()["lastFailure"]["reason"], "EAP authentication failed")
        text()

    def test_line_that_the_supplicant_does_not_know(self):
        self.switch_port(is_open=False)
        extra = Path("/tmp/config/files/wpa_supp_conf")
        extra.parent.mkdir(parents=True, exist_ok=True)
        extra.write_text("nonsense=1\n", encoding="utf-8")
        write_store(peap())

        self.start_daemon()

        self.wait_state(r"no supplicant stays, next try in \d+ s", timeout=240)

    def test_let_in(self):
        self.switch_port(is_open=False)
        self.authenticator(controls_port=True)
        write_store(peap())

        self.start_daemon()

        self.wait_state("connected", timeout=60)
        supplicant = interface()["supplicant"]
        self.assertEqual((supplicant["state"], supplicant["eapState"]), ("COMPLETED", "SUCCESS"))
        self.assertNotIn("lastFailure", interface())
        text()


if __name__ == "__main__":
    main()
