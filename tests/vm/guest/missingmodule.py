# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""A machine without drivers to load: for programs, and for the kernel where it asks by itself."""

from pathlib import Path

from harness import run

# In the folder that the kernel's helper (guest/modprobe) sees too; a private machine's own files it does not.
MISSING = Path("/mnt/missing")


def hide(alias):
    """From now on programs find no module at all, and the kernel not the one of this alias."""
    run("mount", "-t", "tmpfs", "tmpfs", "/usr/lib/modules")
    MISSING.mkdir(exist_ok=True)
    (MISSING / alias).touch()


def show(alias):
    (MISSING / alias).unlink()
    run("umount", "/usr/lib/modules")
