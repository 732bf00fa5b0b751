# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Waiting on an emulated processor."""

import harness


def wait_for(what, condition, timeout, interval=0.5):
    """As the harness's, but rarer: most conditions start a program, which costs a good part of a second here."""
    return harness.wait_for(what, condition, timeout, interval)
