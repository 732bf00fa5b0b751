# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""A kernel module that the machine does not have, for programs and for the kernel that asks for it."""

import shutil
from pathlib import Path

# The folder that the kernel's helper (guest/modprobe) sees too; a private machine's own files it does not.
MISSING = Path("/mnt/missing")
_TAKEN = Path("/run/taken-modules")


def _folder(module):
    return next(Path("/usr/lib/modules").glob(f"*/kernel/drivers/net/{module}"))


def hide(module):
    _TAKEN.mkdir(exist_ok=True)
    shutil.move(_folder(module), _TAKEN / module)
    MISSING.mkdir(exist_ok=True)
    (MISSING / f"rtnl-link-{module.removesuffix('ing')}").touch()


def show(module):
    (MISSING / f"rtnl-link-{module.removesuffix('ing')}").unlink()
    drivers = next(Path("/usr/lib/modules").glob("*/kernel/drivers/net"))
    shutil.move(_TAKEN / module, drivers / module)
