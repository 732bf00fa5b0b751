# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""A daemon that is started beside one that runs, as by hand beside the unit."""

import fcntl
import os
import subprocess
import time
from pathlib import Path

from harness import DAEMON, LOG, STATIC, Daemon, SystemTest, addresses, main, read, run, wait_for, wired, write_store

LOCK = Path("/run/corvi.lock")
OTHER_LOCK = Path("/tmp/corvi.lock")
REFUSED = "main() - another daemon is at work"


class Second(SystemTest):
    def setUp(self):
        super().setUp()
        self.cable("eth0")
        write_store(wired(**STATIC))
        for path in (LOCK, OTHER_LOCK):
            path.unlink(missing_ok=True)

    def second(self):
        return subprocess.run([DAEMON], capture_output=True, text=True, timeout=60, check=False)

    def test_second_one_ends_and_leaves_the_network_alone(self):
        first = self.start_daemon()
        self.wait_address("eth0")
        segments = run("ipcs", "-m", "-c")
        programs = run("pidof", "dhclient", "wpa_supplicant", check=False)

        second = self.second()

        self.assertEqual(second.returncode, 1)
        self.assertIn(f"process {first.pid}", second.stderr)
        self.assertEqual(read(LOG).count(f"{REFUSED}, process {first.pid}"), 1)
        self.assertEqual(read(LOG).count("Corvi::Start()"), 1)
        self.assertEqual(run("ipcs", "-m", "-c"), segments)
        self.assertEqual(run("pidof", "dhclient", "wpa_supplicant", check=False), programs)
        self.assertEqual(addresses("eth0"), ["10.77.0.5"])
        first.assert_runs()

    def test_one_that_is_started_again_and_again_is_told_once(self):
        first = self.start_daemon()

        errors = [self.second().stderr for _ in range(3)]

        self.assertEqual(read(LOG).count(REFUSED), 1)
        # Nor do the lines of a start come again and again.
        self.assertEqual(read(LOG).count("Corvi::Corvi  Created"), 2)
        for error in errors:
            self.assertIn(f"another daemon is at work, process {first.pid}", error)

    def test_lock_ends_with_its_daemon(self):
        self.stand_in("setup_resolved", "echo $$ > /tmp/child; exec sleep 1000")
        first = self.start_daemon()
        child = int(wait_for("a child of the daemon's", lambda: read("/tmp/child")))

        first.process.kill()
        second = Daemon()
        self.addCleanup(second.stop)

        wait_for("the second one at work", lambda: read(LOG).count("Corvi::Start()") == 2)
        second.assert_runs()
        self.assertNotIn(REFUSED, read(LOG))
        self.assertEqual(read(f"/proc/{child}/comm"), "sleep\n")

    def test_one_that_is_about_to_end_is_waited_for(self):
        with open(LOCK, "w", encoding="ascii") as lock:
            fcntl.lockf(lock, fcntl.LOCK_EX)
            daemon = Daemon()
            self.addCleanup(daemon.stop)
            time.sleep(0.5)  # within which it finds the lock taken, where the machine is not too busy

        daemon.wait_ready()

    def test_another_place_serves_where_run_has_none(self):
        LOCK.mkdir()
        self.addCleanup(LOCK.rmdir)
        first = self.start_daemon()

        second = self.second()

        self.assertEqual(second.returncode, 1)
        self.assertIn(f"process {first.pid}", second.stderr)

    def test_users_file_there_keeps_nobody_from_starting(self):
        LOCK.mkdir()
        self.addCleanup(LOCK.rmdir)
        OTHER_LOCK.touch()
        os.chown(OTHER_LOCK, 1000, 1000)
        with open(OTHER_LOCK, "r+b") as file:
            fcntl.lockf(file, fcntl.LOCK_EX)

            self.start_daemon()


if __name__ == "__main__":
    main()
