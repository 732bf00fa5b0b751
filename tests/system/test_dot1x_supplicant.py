# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""A supplicant that is killed or ended."""

import signal
import time

from dot1x import AUTHENTICATED, GAVE_UP, GONE, SupervisedTest, supplicants
from harness import LOG, holds_for, logged_at, main, read


class Ends(SupervisedTest):
    def test_killed(self):
        # A tick must see the association: the ticks without one are counted from there.
        holds_for("the supplicant", supplicants, 2.5)
        killed = time.time()
        self.signal_supplicant(signal.SIGKILL)

        self.daemon.wait_logged(GONE, timeout=4)
        self.assertLess(logged_at(GONE) - killed, 2.5, "noticed within two ticks")
        self.daemon.wait_logged(GAVE_UP, timeout=40)
        # 31 ticks without a connection.
        self.assertTrue(29 < logged_at(GAVE_UP) - logged_at(GONE) < 33)
        self.is_authenticated_again()
        self.assertEqual(read(LOG).count(GONE), 1)

    def test_ended(self):
        ended = time.time()
        self.signal_supplicant(signal.SIGTERM)

        self.daemon.wait_logged("WpaSuppThread::MessageReceived -- Terminating")
        self.is_authenticated_again()
        # Without waiting for anything but the hold-off and the time given to the old one.
        self.assertLess(logged_at(AUTHENTICATED) - ended, 20)
        self.assertFalse(self.daemon.logged(GAVE_UP))


if __name__ == "__main__":
    main()
