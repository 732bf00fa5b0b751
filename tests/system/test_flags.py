# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""The files and signals by which others steer the daemon."""

import os
import signal
from pathlib import Path

from harness import (ADDRESS_PRESENT, DEBUG_FLAG, DHCP_STARTED, HOST_LIST, KILL_FLAG, LINK_DOWN, LINK_UP, LOG,
                     REFRESH_FLAG, RELOAD_FLAG, STATIC, SUPPLICANT_FILE, Daemon, SystemTest, holds_for, main, read,
                     status, touch, wait_for, wired, write_store)


def rescans():
    return read(LOG).count("Corvi::Loop Force Rescan")


class Flags(SystemTest):
    def setUp(self):
        super().setUp()
        self.lan = self.cable("eth0")
        self.listener = self.listen()
        write_store(wired(**STATIC))

    def test_kill_file_ends_it_with_success(self):
        daemon = self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)

        KILL_FLAG.touch()

        self.assertEqual(daemon.wait_end(5), 0)
        self.assertIn("Corvi::LoopTimer exit", read(LOG))

    def test_kill_file_of_an_earlier_run_is_removed(self):
        KILL_FLAG.touch()

        daemon = self.start_daemon()

        self.assertFalse(KILL_FLAG.exists())
        self.wait_events(self.listener, ADDRESS_PRESENT)
        daemon.assert_runs()

    def test_termination_signals_end_it_in_order(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(signal.Signals(number).name):
                daemon = self.start_daemon()
                # Not earlier: system(3) ignores SIGINT while the rescan's shell command runs.
                self.wait_events(self.listener, ADDRESS_PRESENT)

                os.kill(daemon.pid, number)

                self.assertEqual(daemon.wait_end(10), 0)
                self.assertNotIn("QThread", read("/tmp/corvi-output"))
                LOG.unlink()
                self.listener.clear()

    def test_reload_file_forces_one_rescan_and_is_consumed(self):
        daemon = self.start_daemon()
        self.wait_events(self.listener, LINK_UP, ADDRESS_PRESENT)
        self.listener.clear()
        self.assertEqual(rescans(), 1)

        touch(RELOAD_FLAG)

        daemon.wait_logged("Corvi::Loop Force Rescan", count=2)
        self.assertFalse(RELOAD_FLAG.exists())
        self.wait_events(self.listener, LINK_UP, ADDRESS_PRESENT)
        holds_for("no further rescan", lambda: rescans() == 2, 3)

    def test_hang_up_signal_reloads(self):
        daemon = self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)

        os.kill(daemon.pid, signal.SIGHUP)

        daemon.wait_logged("Corvi::Loop Force Rescan", count=2)
        holds_for("no further rescan", lambda: rescans() == 2 and daemon.runs(), 3)

    def test_folders_at_the_names_of_files_are_displaced(self):
        for path in (KILL_FLAG, SUPPLICANT_FILE, HOST_LIST):
            touch(path / "filled")

        daemon = self.start_daemon()

        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.assertFalse(KILL_FLAG.exists())
        wait_for("host list", HOST_LIST.is_file)
        self.listener.clear()
        touch(REFRESH_FLAG / "filled")
        wait_for("refresh folder gone", lambda: not REFRESH_FLAG.exists())
        self.wait_events(self.listener, ADDRESS_PRESENT)
        touch(RELOAD_FLAG / "filled")
        daemon.wait_logged("Corvi::Loop Force Rescan", count=2)
        self.wait_events(self.listener, ADDRESS_PRESENT, ADDRESS_PRESENT)
        holds_for("nothing more", lambda: rescans() == 2 and self.listener.events().count(ADDRESS_PRESENT) == 2, 4)
        self.assertFalse([path for path in Path("/tmp").iterdir() if path.name.startswith("refresh_network")])

    def test_reload_file_that_is_there_at_start_gives_one_rescan(self):
        touch(RELOAD_FLAG)

        self.start_daemon()

        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.assertFalse(RELOAD_FLAG.exists())
        self.assertEqual(rescans(), 1)

    def test_refresh_file_configures_the_link_again(self):
        self.start_daemon()
        self.wait_events(self.listener, LINK_UP, ADDRESS_PRESENT)
        self.listener.clear()

        REFRESH_FLAG.touch()

        self.wait_events(self.listener, LINK_UP, ADDRESS_PRESENT)
        self.assertFalse(REFRESH_FLAG.exists())
        self.assertEqual(rescans(), 1)

    def test_refresh_file_is_consumed_without_a_cable_too(self):
        self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.lan.pull()
        self.wait_events(self.listener, LINK_DOWN)

        REFRESH_FLAG.touch()

        wait_for("refresh file consumed", lambda: not REFRESH_FLAG.exists())

    def test_debug_file_decides_the_level_at_start(self):
        DEBUG_FLAG.touch()

        daemon = self.start_daemon()

        daemon.wait_logged("Logginglevel = 5")
        daemon.wait_logged("Corvi::Init() Complete")

    def test_debug_file_that_comes_later_counts_at_the_next_rescan(self):
        daemon = self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)
        DEBUG_FLAG.touch()
        holds_for("level unchanged", lambda: "Logginglevel = 5" not in read(LOG), 3)

        daemon.rescan()

        daemon.wait_logged("Logginglevel = 5")

    def test_log_stands_still_while_nothing_happens(self):
        self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)
        size = LOG.stat().st_size

        holds_for("nothing logged", lambda: LOG.stat().st_size == size, 6)


class SecondDaemon(SystemTest):
    """After a first one that was killed, and left what it had set up."""

    def setUp(self):
        super().setUp()
        self.cable("eth0")
        write_store(wired(**STATIC))
        first = self.start_daemon()
        self.wait_address("eth0")
        first.process.kill()
        first.wait_end()

    def test_attaches_to_the_segment_that_exists(self):
        DEBUG_FLAG.touch()

        second = Daemon()
        self.addCleanup(second.stop)

        second.wait_logged("Corvi::run - Attached to shared memory segment")
        wait_for("its record", lambda: status()["ipAddress"] == "10.77.0.5")
        second.assert_runs()

    def test_starts_again_after_one_that_was_killed(self):
        LOG.unlink()
        listener = self.listen()

        self.start_daemon()

        self.wait_events(listener, LINK_UP, ADDRESS_PRESENT)
        self.assertNotIn(DHCP_STARTED, listener.events())
        self.assertEqual(status()["ipAddress"], "10.77.0.5")


if __name__ == "__main__":
    main()
