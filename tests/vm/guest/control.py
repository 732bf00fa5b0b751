# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Questions to a supplicant or an access point over its control socket, without a program for each."""

import itertools
import os
import socket
from pathlib import Path

_numbers = itertools.count()


def ask(path, command):
    """The answer, or nothing where nobody listens. Refusals are no answers."""
    own = Path(f"/tmp/control-{os.getpid()}-{next(_numbers)}")
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sock:
        sock.bind(str(own))
        try:
            sock.connect(str(path))
            sock.settimeout(10)
            sock.send(command.encode())
            answer = sock.recv(65536).decode(errors="replace")
        except OSError:
            return ""
        finally:
            own.unlink()
    return "" if answer.startswith(("FAIL", "UNKNOWN COMMAND")) else answer
