# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""A supplicant under a radio's network that ends without a word, again and again: how long until the next one is let
in. Runs on request only, as it takes long: "tests/vm/run --times N revival"."""

import os
import time

import accesspoint
import endings
from accesspoint import PASSPHRASE
from dot1x import LAUNCHED, SUPPLICANT_LOG, supplicants, zombies
from harness import DEBUG_FLAG, LOG, logged_at, read, run, slowness, touch, wait_settled, write_store
from waiting import wait_for
from wifi import JOIN_TIME, WifiTest, definition, say

ON_REQUEST = True

TIMES = int(os.environ.get("CORVI_TIMES") or 1)
# In seconds of a machine at its best. Up to 3 s until the next supplicant is started, 7.1 s that are given to the one
# before; the rest is for the scan and the association, on an emulated processor.
LIMIT = 20

ENDED = "WpaSuppThread::MessageReceived -- Terminating"
ATTACHED = "Attached to control interface"
CONNECTED = "WpaSuppThread::MessageReceived -- connected"
CONFIGURED = "NetworkDevice::ConfigureNetwork -- end"


class Revival(WifiTest):
    def setUp(self):
        super().setUp()
        touch(DEBUG_FLAG)  # The steps of a start are to be seen, each time.
        self.stand_in("wpa_supplicant", endings.STAND_IN)

    def wait_let_in(self, launches):
        """Waits until the supplicant of that launch is let in, and the daemon, which DHCP blocks, is at rest. It may
        have been let in twice meanwhile."""
        def came():
            log = read(LOG)
            return log.count(LAUNCHED) == launches and \
                log.rfind(LAUNCHED) < log.rfind(CONNECTED) < log.rfind(CONFIGURED)
        wait_settled("let in and configured", came, 3, JOIN_TIME)

    def joined_daemon(self):
        self.access = self.access_point("office", accesspoint.WPA2)
        write_store(definition("office", "WPA Personal 1/2", passphrase=PASSPHRASE))
        daemon = self.start_daemon()
        self.wait_joined(self.access)
        self.wait_let_in(1)
        return daemon

    @staticmethod
    def tell(what, rounds):
        say(f"{what}, {TIMES} times, in seconds:")
        for name, pick in (("least", 0), ("median", TIMES // 2), ("most", -1)):
            say(f"{name:7}" + "".join(f"{sorted(step)[pick]:7.1f}" for step in zip(*rounds)))

    def comes_back(self, what, end):
        self.joined_daemon()
        rounds = [self.end_once(end) for _ in range(TIMES)]
        self.tell(f"{what}: until it is noticed, the next one launched, reached, let in", rounds)
        self.wait_joined(self.access)
        self.assertEqual(self.count_logged("failed to connect"), 0)

    def end_once(self, end):
        """Seconds from the end to each step of the way back."""
        launches = self.count_logged(LAUNCHED)
        running = supplicants()
        self.assertEqual(len(running), 1)
        end(running[0])
        ended = time.time()
        self.wait_let_in(launches + 1)
        self.assertEqual(len(supplicants()), 1)
        self.assertEqual(zombies(), [])
        took = [logged_at(text) - ended for text in (ENDED, LAUNCHED, ATTACHED, CONNECTED)]
        say(" ".join(f"{seconds:.1f}" for seconds in took))
        self.assertLess(took[-1], LIMIT * slowness())
        return took

    def test_by_hand(self):
        """The daemon's part is not in it: the same command by hand, until it is let in."""
        self.joined_daemon().stop()
        self.tell("by hand: until it goes into the background, is let in", [self.start_once() for _ in range(TIMES)])

    def start_once(self):
        running, = supplicants()
        command = read(f"/proc/{running}/cmdline").split("\0")[:-1]
        endings.KILL(running)
        wait_for("it is gone", lambda: not supplicants(), 10)
        os.truncate(SUPPLICANT_LOG, 0)
        begun = time.time()
        run(*command)
        in_background = time.time() - begun
        wait_for("let in", lambda: "CTRL-EVENT-CONNECTED" in read(SUPPLICANT_LOG), JOIN_TIME, 0.1)
        return in_background, time.time() - begun

    def test_killed(self):
        """SIGKILL."""
        self.comes_back("SIGKILL", endings.KILL)

    def test_crashed(self):
        """SIGSEGV."""
        self.comes_back("SIGSEGV", endings.CRASH)

    def test_exit_0(self):
        """It ends by itself, with status 0."""
        self.comes_back("exit 0", endings.EXIT_0)

    def test_exit_255(self):
        """It ends by itself, with status 255."""
        self.comes_back("exit 255", endings.EXIT_255)
