# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""A supplicant that is in the way of a start: stopped, missing, or left behind by an earlier daemon."""

import os
import signal
import time
from pathlib import Path

from dot1x import ATTACHED, GAVE_UP, Dot1xTest, peap, socket_files, supplicants
from harness import LOG, holds_for, main, wait_for, write_store

PROGRAM = Path("/usr/sbin/wpa_supplicant")


class StoppedInTheWay(Dot1xTest):
    def test_restart_while_the_supplicant_is_stopped(self):
        self.switch_port()
        self.authenticator()
        write_store(peap())
        daemon = self.start_daemon()
        self.wait_authenticated(daemon)
        stopped = self.signal_supplicant(signal.SIGSTOP)
        begin = time.monotonic()
        self.port.pull()
        daemon.wait_logged("Wired Device Connected 0")
        self.port.plug()
        # It cannot hear that it is to end: the daemon waits 10 s for that reply, and 10 s for the one to DETACH.
        time.sleep(max(0.0, begin + 20 - time.monotonic()))
        os.kill(stopped, signal.SIGCONT)

        self.wait_authenticated(daemon, count=2, timeout=100)
        wait_for("one supplicant", lambda: len(supplicants()) == 1)
        holds_for("one supplicant", lambda: len(supplicants()) == 1, 3)


class Missing(Dot1xTest):
    def test_missing_program(self):
        away = PROGRAM.with_suffix(".away")
        PROGRAM.rename(away)
        self.addCleanup(lambda: away.exists() and away.rename(PROGRAM))
        self.switch_port()
        self.authenticator()
        write_store(peap())
        daemon = self.start_daemon()

        daemon.wait_logged("WpaSuppThread::CreateWpaCtl() Open wpactl eth0 0", timeout=40)
        daemon.wait_logged(GAVE_UP, timeout=40)
        away.rename(PROGRAM)
        self.wait_authenticated(daemon)
        self.assertEqual(len(supplicants()), 1)


class LeftBehind(Dot1xTest):
    def test_supplicant_of_an_earlier_daemon(self):
        self.switch_port()
        self.authenticator()
        write_store(peap())
        daemon = self.start_daemon()
        self.wait_authenticated(daemon)
        daemon.process.kill()
        daemon.wait_end()
        self.assertEqual(len(supplicants()), 1)
        LOG.unlink()

        daemon = self.start_daemon()

        daemon.wait_logged(ATTACHED, timeout=40)
        holds_for("one supplicant", lambda: len(supplicants()) == 1, 5)
        self.assertEqual(len(socket_files(daemon)), 1)


if __name__ == "__main__":
    main()
