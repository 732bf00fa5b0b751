# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Waiting on an emulated processor, where starting a program costs a good part of a second."""

import harness


def wait_for(what, condition, timeout, interval=0.5):
    """As the harness's, but looks more rarely."""
    return harness.wait_for(what, condition, timeout, interval)


def address_on(interface, accept=lambda address: True):
    """The interface's address, or None. Asks the program only when the kernel's table has a new one."""
    if not harness.read(f"/sys/class/net/{interface}/address") or not _any_address():
        return None
    return next(filter(accept, harness.addresses(interface)), None)


def _any_address():
    lines = harness.read("/proc/net/fib_trie").splitlines()
    local = {before.split()[-1] for before, line in zip(lines, lines[1:]) if "host LOCAL" in line}
    return bool(local - {"127.0.0.1", "127.0.0.0"})
