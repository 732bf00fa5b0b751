# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Programs that are missing, crash, say nothing, say far too much, or hang: the daemon goes on."""

import os
import time

from harness import (REAL_PATH, RELOAD_FLAG, STANDINS, STATIC, Daemon, SystemTest, answer, clear_journal, end_by_name,
                     holds_for, journal, main, run, touch, wait_for, wired, write_store)

# Those that configuring by DHCP runs; a static address takes route, too.
PROGRAMS = ("setup_resolved", "ifconfig", "ip", "ethtool", "stop_dhclient.sh", "dhclient", "update_hosts")
FLOOD = "head -c 10000000 /dev/zero | tr '\\0' x"


class Tools(SystemTest):
    def setUp(self):
        super().setUp()
        self.cable("eth0")
        # The stand-ins do not raise links.
        run("ip", "link", "set", "dev", "eth0", "up")

    def start_among_standins(self):
        """The daemon finds the stand-ins and nothing else, so that one that is removed is missing."""
        path = os.environ["PATH"]
        os.environ["PATH"] = str(STANDINS / "bin")
        try:
            daemon = Daemon()
        finally:
            os.environ["PATH"] = path
        self.addCleanup(daemon.stop)
        daemon.wait_ready()
        return daemon

    def remove(self, program):
        path = (STANDINS / "bin" / program) if program != "stop_dhclient.sh" else "/usr/network/stop_dhclient.sh"
        target = os.readlink(path)
        os.unlink(path)
        self.addCleanup(os.symlink, target, path)

    def wait_configured(self, daemon, timeout=30):
        """The hosts list is applied near the end of a configuration, the MTU last of all."""
        wait_for("configuration came to its end",
                 lambda: "ip link set eth0 mtu 1400" in journal() or not daemon.runs(), timeout)
        daemon.assert_runs()

    def assert_survives(self, misbehave, programs=PROGRAMS, **properties):
        for program in programs:
            # Each begins with nothing that the one before left, however that one ended.
            self.doCleanups()
            self.setUp()
            with self.subTest(program):
                write_store(wired(mtu="1400", speed="100 Mbps Full", **properties))
                misbehave(program)
                daemon = self.start_among_standins()

                if program == "ip" and misbehave == self.remove:
                    daemon.wait_logged("Corvi::Loop Force Rescan")
                    holds_for("the daemon runs", daemon.runs, 3)
                else:
                    self.wait_configured(daemon)

                daemon.rescan()
                daemon.stop()

    def test_missing(self):
        self.assert_survives(self.remove)

    def test_missing_with_a_static_address(self):
        self.assert_survives(self.remove, ("ifconfig", "ip", "route"), **STATIC)

    def test_crash(self):
        self.assert_survives(lambda program: answer(program, "kill -SEGV $$"))

    def test_failure_without_a_word(self):
        self.assert_survives(lambda program: answer(program, "exit 1"))

    def test_flood_of_output(self):
        self.assert_survives(lambda program: answer(program, f"PATH={REAL_PATH}; {FLOOD}; {FLOOD} >&2"))

    def test_dhcp_client_that_reports_a_lease_in_ten_megabytes(self):
        write_store(wired(mtu="1400"))
        answer("dhclient", f"PATH={REAL_PATH}; {FLOOD}; echo; echo bound to 10.77.0.8 -- renewal in 300 seconds.")

        daemon = self.start_among_standins()

        self.wait_configured(daemon)
        self.assertFalse(daemon.logged("dhclient(eth0) failed"))

    def test_dhcp_client_that_hangs_is_given_up(self):
        write_store(wired(mtu="1400"))
        answer("dhclient", f"PATH={REAL_PATH}; echo DHCPDISCOVER on eth0; exec sleep 100")

        daemon = self.start_among_standins()
        start = time.monotonic()

        self.wait_configured(daemon, timeout=45)
        self.assertGreater(time.monotonic() - start, 25)
        self.assertTrue(daemon.logged("dhclient(eth0) failed"))
        self.assertEqual(run("pidof", "sleep", check=False), "", "the client must not outlive its attempt")

    def test_command_that_hangs_at_every_rescan_is_not_waited_for(self):
        write_store(wired(mtu="1400", **STATIC))
        answer("setup_resolved", "exec /bin/sleep 1000")
        self.addCleanup(end_by_name, "sleep")

        daemon = self.start_among_standins()

        self.wait_configured(daemon, timeout=45)
        daemon.wait_logged("setup_resolved has not ended and is not waited for")
        clear_journal()
        touch(RELOAD_FLAG)
        self.wait_configured(daemon, timeout=20)
        self.assertNotIn("setup_resolved", journal())

    def test_other_program_that_hangs_is_given_up(self):
        write_store(wired(mtu="1400", **STATIC))
        answer("route", f"PATH={REAL_PATH}; test $1 = add || exec sleep 100")

        daemon = self.start_among_standins()

        self.wait_configured(daemon, timeout=45)
        self.assertIn("route add default gw 10.77.0.1", journal())
        clear_journal()
        answer("route", "")
        touch(RELOAD_FLAG)
        self.wait_configured(daemon)


if __name__ == "__main__":
    main()
