# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""The program that the daemon tells of events, in every mood."""

import os
import time
from pathlib import Path

from harness import (ADDRESS_PRESENT, DEBUG_FLAG, EVENT_SOCKET, LINK_UP, RELOAD_FLAG, STATIC, SystemTest, holds_for,
                     main, slowness, status, touch, wait_for, wired, write_store)

# What the log says last of a round, on level 5.
CONFIGURED = "NetworkDevice::ConfigureNetwork -- end"


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
        DEBUG_FLAG.touch()
        listener = self.listen(accepts=False)
        daemon = self.start_daemon()
        daemon.wait_logged("SendEvent()  Complete", count=2)
        start = time.monotonic()

        for events in (4, 6, 8):
            daemon.rescan()
            daemon.wait_logged("SendEvent()  Complete", count=events)

        # Three times up to 1 s each for the tick that rescans, the tick that sets up and two events that nobody
        # takes; the rest is for a busy machine.
        self.assertLess(time.monotonic() - start, (12 + 6) * slowness())
        listener.close()
        reading = self.listen()
        touch(RELOAD_FLAG)
        self.wait_events(reading, LINK_UP, ADDRESS_PRESENT)

    def test_listeners_leave_no_descriptor_behind(self):
        DEBUG_FLAG.touch()
        listener = self.listen()
        daemon = self.start_daemon()
        daemon.wait_logged(CONFIGURED)
        daemon.rescan()
        daemon.wait_logged(CONFIGURED, count=2)
        before = descriptors(daemon)

        for count in range(3, 7):
            daemon.rescan()
            daemon.wait_logged(CONFIGURED, count=count)

        self.assertGreaterEqual(len(listener.events()), 2 * 5)
        wait_for("as many descriptors as before", lambda: descriptors(daemon) <= before, timeout=5)


if __name__ == "__main__":
    main()
