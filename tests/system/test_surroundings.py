# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""A daemon that is started or left in surroundings that lack something: streams, an environment, a reader."""

import os
import re
import signal
import subprocess

from harness import DAEMON, LOG, STATIC, SystemTest, main, read, wait_for, wired, write_store


class Surroundings(SystemTest):
    def setUp(self):
        super().setUp()
        self.cable("eth0")
        write_store(wired(**STATIC))

    def start(self, *command, **options):
        process = subprocess.Popen(command or (DAEMON,), **{"stderr": subprocess.DEVNULL, **options})
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def works(self, process):
        self.wait_address("eth0")
        self.assertIsNone(process.poll())

    def test_closed_streams_are_not_taken_by_other_files(self):
        process = self.start("/bin/sh", "-c", f"exec {DAEMON} <&- >&- 2>&-")

        self.works(process)

        streams = [os.readlink(f"/proc/{process.pid}/fd/{number}") for number in range(3)]
        self.assertEqual(streams, ["/dev/null"] * 3)

    def test_signals_that_the_starter_blocks_or_ignores(self):
        def block():
            signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGCHLD, signal.SIGTERM])
            signal.signal(signal.SIGUSR1, signal.SIG_IGN)
        process = self.start(DAEMON, preexec_fn=block)

        # With SIGCHLD blocked, no tool was seen to end before its limit of 30 s.
        self.works(process)
        ignored = re.search(r"^SigIgn:\s+(\w+)$", read(f"/proc/{process.pid}/status"), re.M)[1]
        self.assertFalse(int(ignored, 16) >> (signal.SIGUSR1 - 1) & 1)
        process.terminate()
        self.assertEqual(process.wait(20), 0)

    def test_tools_are_found_without_an_environment(self):
        process = self.start("/usr/bin/env", "-i", DAEMON)

        self.works(process)

    def test_path_that_is_set_stays(self):
        process = self.start("/usr/bin/env", "-i", "PATH=/nowhere", DAEMON)

        wait_for("the daemon misses its tools", lambda: "ifconfig cannot be started" in read(LOG))
        self.assertIsNone(process.poll())

    def test_reader_of_its_output_that_is_gone(self):
        self.stand_in("update_hosts", "grep SigIgn: /proc/self/status >/tmp/ignored")
        reader, writer = os.pipe()
        # With the signal's default, which Python takes away from itself.
        process = self.start(stdout=writer, stderr=writer, restore_signals=True)
        os.close(writer)
        os.close(reader)

        self.works(process)
        # A tool of ours, in a pipe of its own, ends with it as ever.
        ignored = wait_for("the tool's signals", lambda: read("/tmp/ignored"))
        self.assertEqual(int(ignored.split()[1], 16) >> (signal.SIGPIPE - 1) & 1, 0)


if __name__ == "__main__":
    main()
