# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""A supplicant that ends: killed, crashed, by itself.

  test_dot1x_supplicant.py            as a test: once each way
  test_dot1x_supplicant.py --times N  the long form
"""

import sys
import time

import endings
from dot1x import AUTHENTICATED, GAVE_UP, TERMINATING, SupervisedTest, zombies
from harness import LOG, logged_at, main, read, slowness

times = 1
# The end is noticed within two ticks, the next supplicant is started in the third, and 7.1 s are given to the one
# before. The rest is for the authentication.
LIMIT = 15


class Ends(SupervisedTest):
    def setUp(self):
        self.stand_in("wpa_supplicant", endings.STAND_IN)
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
        self.comes_back("SIGKILL", endings.KILL)

    def test_crashed(self):
        self.comes_back("SIGSEGV", endings.CRASH)

    def test_ended(self):
        self.comes_back("SIGTERM", endings.TERMINATE)

    def test_exit_0(self):
        self.comes_back("exit 0", endings.EXIT_0)

    def test_exit_255(self):
        self.comes_back("exit 255", endings.EXIT_255)


if __name__ == "__main__":
    if "--times" in sys.argv:
        at = sys.argv.index("--times")
        times = int(sys.argv[at + 1])
        del sys.argv[at:at + 2]
    main()
