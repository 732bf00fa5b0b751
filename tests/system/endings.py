# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""The ways in which a supplicant ends without a word."""

import os
import signal

from harness import BUILD_DIR, read

LIBRARY = BUILD_DIR / "tests/system/libexitonsignal.so"
# In the place of the supplicant: one that ends by itself when it is told to.
STAND_IN = f'LD_PRELOAD={LIBRARY} exec /usr/sbin/wpa_supplicant "$@"'


def send(number):
    return lambda pid: os.kill(pid, number)


def have_exit_with(number):
    def end(pid):
        if LIBRARY.name not in read(f"/proc/{pid}/maps"):
            raise AssertionError("the supplicant would not exit on that signal, but die of it")
        os.kill(pid, number)
    return end


KILL = send(signal.SIGKILL)
CRASH = send(signal.SIGSEGV)
TERMINATE = send(signal.SIGTERM)
EXIT_0 = have_exit_with(signal.SIGRTMIN)
EXIT_255 = have_exit_with(signal.SIGRTMIN + 1)
