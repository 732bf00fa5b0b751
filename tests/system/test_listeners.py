# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""The program that the daemon tells of events, in every mood."""

import os
import time
from pathlib import Path

from harness import (ADDRESS_PRESENT, EVENT_SOCKET, LINK_UP, RELOAD_FLAG, STATIC, SystemTest, holds_for, main, status,
                     touch, wait_for, wired, write_store)


def descriptors(daemon):
    return len(os.listdir(f"/proc/{daemon.pid}/fd"))


class Listeners(SystemTest):
    def setUp(self):
        super().setUp()
        self.cable("eth0")
        write_store(wired(**STATIC))

    def test_each_event_is_one_connection_of_four_bytes(self):
        listener = self.listen()

        self.start_daemon()

        self.wait_events(listener, LINK_UP, ADDRESS_PRESENT)
        self.assertEqual(listener.messages, [b"\x00\x02\x00\x01", b"\x00\x01\x00\x01"])

    def test_record_is_there_when_the_event_comes(self):
        listener = self.listen()
        self.start_daemon()

        self.wait_events(listener, ADDRESS_PRESENT)

        self.assertEqual(status()["ipAddress"], "10.77.0.5")

    def test_nobody_listens(self):
        daemon = self.start_daemon()

        self.wait_address("eth0")

        wait_for("record published", lambda: status()["connected"] and status()["ipAddress"] == "10.77.0.5")
        daemon.assert_runs()

    def test_socket_file_without_a_program_behind_it(self):
        listener = self.listen()
        listener.socket.close()
        self.assertTrue(Path(EVENT_SOCKET).exists())

        daemon = self.start_daemon()

        self.wait_address("eth0")
        holds_for("the daemon runs", daemon.runs, 2)

    def test_listener_that_accepts_and_never_reads(self):
        listener = self.listen(reads=False)
        daemon = self.start_daemon()
        wait_for("events accepted", lambda: len(listener.held) >= 2)

        daemon.rescan()

        wait_for("further events accepted", lambda: len(listener.held) >= 4)
        holds_for("the daemon runs", daemon.runs, 2)

    def test_listener_that_never_accepts_delays_but_does_not_stop_it(self):
        listener = self.listen(accepts=False)
        daemon = self.start_daemon()
        self.wait_address("eth0")
        start = time.monotonic()

        for _ in range(3):
            daemon.rescan()

        # Three rescans with two events each, and at most 1 s for an event that nobody takes.
        self.assertLess(time.monotonic() - start, 30)
        listener.close()
        reading = self.listen()
        touch(RELOAD_FLAG)
        self.wait_events(reading, LINK_UP, ADDRESS_PRESENT)

    def test_listeners_leave_no_descriptor_behind(self):
        listener = self.listen()
        daemon = self.start_daemon()
        self.wait_events(listener, ADDRESS_PRESENT)
        daemon.rescan()
        wait_for("second round", lambda: listener.events().count(ADDRESS_PRESENT) >= 2)
        time.sleep(1)
        before = descriptors(daemon)

        for round_number in range(3, 7):
            daemon.rescan()
            wait_for("next round", lambda n=round_number: listener.events().count(ADDRESS_PRESENT) >= n)

        wait_for("as many descriptors as before", lambda: descriptors(daemon) <= before, timeout=5)


if __name__ == "__main__":
    main()
