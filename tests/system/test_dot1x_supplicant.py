# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""A supplicant that ends: killed, crashed, by itself. With a number as argument, that many times each way, and two
ways more, for which gdb must be there:

    tests/sandbox/run --platform env CORVI_BUILD_DIR=... python3 -B tests/system/test_dot1x_supplicant.py 50
"""

import os
import signal
import subprocess
import sys
import time

from dot1x import AUTHENTICATED, GAVE_UP, TERMINATING, SupervisedTest, supplicants, zombies
from harness import LOG, logged_at, main, read

IS_LONG = len(sys.argv) > 1 and sys.argv[1].isdigit()
TIMES = int(sys.argv.pop(1)) if IS_LONG else 1
# The end is noticed within two ticks, the next supplicant is started in the third, and 7.1 s are given to the one
# before. The rest is for the authentication.
LIMIT = 15


def exit_with(status):
    """Has a process end itself, as by a bug of its own, without a word."""
    def end(pid):
        # It complains that the call did not return.
        subprocess.run(["gdb", "--batch", "--nx", "-p", str(pid), "-ex", f"call (void)_exit({status})"],
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
    return end


def send(number):
    return lambda pid: os.kill(pid, number)


class Ends(SupervisedTest):
    def comes_back(self, what, end):
        """Ends the supplicant TIMES times; says for how long the port was without one that is let in."""
        times = []
        for _ in range(TIMES):
            before = read(LOG).count(AUTHENTICATED)
            end(self.only_supplicant())
            ended = time.time()
            self.wait_authenticated(self.daemon, count=before + 1)
            times.append(logged_at(AUTHENTICATED) - ended)
            self.only_supplicant()
            self.assertEqual(zombies(), [])
        times.sort()
        print(f"{what}, {TIMES} times: authorised again after {times[0]:.1f} to {times[-1]:.1f} s, "
              f"median {times[len(times) // 2]:.1f} s", flush=True)
        self.assertLess(times[-1], LIMIT)
        self.assertGreaterEqual(read(LOG).count(TERMINATING), TIMES)
        self.assertFalse(self.daemon.logged(GAVE_UP))
        self.is_alone()

    def test_killed(self):
        self.comes_back("SIGKILL", send(signal.SIGKILL))

    def test_crashed(self):
        self.comes_back("SIGSEGV", send(signal.SIGSEGV))

    def test_ended(self):
        self.comes_back("SIGTERM", send(signal.SIGTERM))

    if IS_LONG:
        def test_exit_0(self):
            self.comes_back("exit 0", exit_with(0))

        def test_exit_255(self):
            self.comes_back("exit 255", exit_with(255))


if __name__ == "__main__":
    main()
