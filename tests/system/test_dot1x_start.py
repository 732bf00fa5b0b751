# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""What is in the way of a start: a supplicant that is stopped, missing, or left behind by an earlier daemon, or a link
that somebody has taken down."""

import signal
import time
from pathlib import Path

from dot1x import GAVE_UP, LAUNCHED, LEFT_OVER, Dot1xTest, SupervisedTest, peap, socket_files, supplicants
from harness import LOG, holds_for, main, read, run, wait_for, wired, write_store

PROGRAM = Path("/usr/sbin/wpa_supplicant")


class StoppedInTheWay(Dot1xTest):
    def test_restart_while_the_supplicant_is_stopped(self):
        self.switch_port()
        self.authenticator()
        write_store(peap())
        daemon = self.start_daemon()
        self.wait_authenticated(daemon)
        self.signal_supplicant(signal.SIGSTOP)
        self.port.pull()
        daemon.wait_logged("Wired Device Connected 0")
        self.port.plug()

        # It cannot hear that it is to end: the daemon waits 10 s for that reply, and 10 s for the one to DETACH.
        self.wait_authenticated(daemon, count=2, timeout=100)

        self.assertTrue(daemon.logged(LEFT_OVER))
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


class LinkDown(SupervisedTest):
    def test_link_that_is_taken_down_before_the_launch(self):
        def stays():
            launches = read(LOG).count(LAUNCHED)
            time.sleep(20)
            return read(LOG).count(LAUNCHED) == launches and len(supplicants()) == 1

        self.daemon.rescan()
        self.daemon.wait_logged("need to make sure it stops before continuing", count=2, timeout=30)
        run("ip", "link", "set", "eth0", "down")

        wait_for("a supplicant that stays", stays, 90)
        self.wait_address("eth0", self.server.serves)


class LeftBehind(Dot1xTest):
    def restarted(self, *networks):
        """An authenticated daemon dies; its successor finds these networks. The supplicant of the first one."""
        self.switch_port()
        self.authenticator()
        write_store(peap())
        daemon = self.start_daemon()
        self.wait_authenticated(daemon)
        daemon.process.kill()
        daemon.wait_end()
        old = self.only_supplicant()
        LOG.unlink()
        write_store(*networks)
        return self.start_daemon(), old

    def test_is_replaced(self):
        daemon, old = self.restarted(peap())

        self.wait_authenticated(daemon)

        self.assertTrue(daemon.logged(f"{LEFT_OVER}, process {old}"))
        self.assertNotEqual(self.only_supplicant(), old)
        self.assertEqual(len(socket_files(daemon)), 1)

    def test_ends_when_nobody_needs_one(self):
        daemon, old = self.restarted(wired())

        # A minute after the start, and not before.
        holds_for("the supplicant", lambda: supplicants() == [old], 45)
        wait_for("no supplicant", lambda: not supplicants(), 45)
        self.assertTrue(daemon.logged(f"{LEFT_OVER}, process {old}"))


if __name__ == "__main__":
    main()
