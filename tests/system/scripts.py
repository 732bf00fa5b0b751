# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""What the tests of the platform's own commands share: running one of them, with fakes of the programs it runs."""

import os
import shutil
import subprocess
from pathlib import Path

from harness import SystemTest, read

SCRIPTS = Path(__file__).resolve().parents[2] / "platform/scripts"
FAKES = Path("/tmp/fakes")


def script(name, *arguments, expect=0, timeout=30, before=()):
    """Runs one of the scripts in the folder of the fakes (see fake()), which come before the real programs; its
    standard output. "before" is a program that runs it, with its arguments."""
    result = subprocess.run([*before, SCRIPTS / name, *arguments], capture_output=True, text=True, timeout=timeout, check=False,
                            cwd=FAKES, env={**os.environ, "PATH": f"{FAKES}:{os.environ['PATH']}"})
    assert result.returncode == expect, f"{name}: status {result.returncode}, {result.stdout}{result.stderr}"
    return result.stdout


def fake(name, body):
    """A program of this name that notes its arguments in /tmp/fakes/calls and then runs the shell lines."""
    path = FAKES / name
    path.write_text(f'#!/bin/sh\necho "{name} $*" >>{FAKES}/calls\n{body}\n')
    path.chmod(0o755)


def calls():
    return read(FAKES / "calls").splitlines()


class ScriptTest(SystemTest):
    def setUp(self):
        super().setUp()
        shutil.rmtree(FAKES, ignore_errors=True)
        FAKES.mkdir()
