# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""A supplicant that ends: killed, crashed, by itself.

  test_dot1x_supplicant.py            as a test: once each way
  test_dot1x_supplicant.py --times N  the long form
"""

import os
import signal
import sys
import time

from dot1x import AUTHENTICATED, GAVE_UP, TERMINATING, SupervisedTest, zombies
from harness import BUILD_DIR, LOG, logged_at, main, read, slowness

times = 1
# The end is noticed within two ticks, the next supplicant is started in the third, and 7.1 s are given to the one
# before. The rest is for the authentication.
LIMIT = 15


def send(number):
    return lambda pid: os.kill(pid, number)


def have_exit_with(number):
    def end(pid):
        if "libexitonsignal" not in read(f"/proc/{pid}/maps"):
            raise AssertionError("the supplicant would not exit on that signal, but die of it")
        os.kill(pid, number)
    return end


class Ends(SupervisedTest):
    def setUp(self):
        # One that ends by itself when it is told to.
        library = BUILD_DIR / "tests/system/libexitonsignal.so"
        self.stand_in("wpa_supplicant", f'LD_PRELOAD={library} exec /usr/sbin/wpa_supplicant "$@"')
        super().setUp()

    def comes_back(self, what, end):
        """Ends the supplicant as often as asked for; says for how long the port was without one that is let in."""
        took = []
        for _ in range(times):
            before = read(LOG).count(AUTHENTICATED)
            end(self.only_supplicant())
            ended = time.time()
            self.wait_authenticated(self.daemon, count=before + 1)
            took.append(logged_at(AUTHENTICATED) - ended)
            self.only_supplicant()
            self.assertEqual(zombies(), [])
        took.sort()
        print(f"{what}, {times} times: authorised again after {took[0]:.1f} to {took[-1]:.1f} s, "
              f"median {took[len(took) // 2]:.1f} s", flush=True)
        self.assertLess(took[-1], LIMIT * slowness())
        self.assertGreaterEqual(read(LOG).count(TERMINATING), times)
        self.assertFalse(self.daemon.logged(GAVE_UP))
        self.is_alone()

    def test_killed(self):
        self.comes_back("SIGKILL", send(signal.SIGKILL))

    def test_crashed(self):
        self.comes_back("SIGSEGV", send(signal.SIGSEGV))

    def test_ended(self):
        self.comes_back("SIGTERM", send(signal.SIGTERM))

    def test_exit_0(self):
        self.comes_back("exit 0", have_exit_with(signal.SIGRTMIN))

    def test_exit_255(self):
        self.comes_back("exit 255", have_exit_with(signal.SIGRTMIN + 1))


if __name__ == "__main__":
    if "--times" in sys.argv:
        at = sys.argv.index("--times")
        times = int(sys.argv[at + 1])
        del sys.argv[at:at + 2]
    main()
