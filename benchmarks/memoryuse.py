# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""What the daemon takes of the memory by number of interfaces and of definitions, beside a Qt program that does
next to nothing. For usertimes.py, in the sandbox, with a cable at eth0."""

import re
import subprocess

import harness

INTERFACES = (1, 100)
DEFINITIONS = (1, 200)


def kib(pid):
    """(private, shared) of a process: the pages that it has written, and those of programs and libraries, which other
    programs use too and which the kernel can drop."""
    sizes = dict(re.findall(r"^(\w+): +(\d+) kB$", harness.read(f"/proc/{pid}/smaps_rollup"), re.MULTILINE))
    private = int(sizes["Private_Dirty"])
    return private, int(sizes["Rss"]) - private


def settled_kib(pid):
    """The same, once it has not changed for two ticks of the daemon."""
    seen = []

    def is_settled():
        seen.append(kib(pid))
        return len(seen) > 25 and len(set(seen[-25:])) == 1
    harness.wait_for("memory no longer changes", is_settled, 90, interval=0.1)
    return seen[-1]


def add_interfaces(count):
    """Brings their number to count; the further ones have no cable."""
    for number in range(1, count):
        harness.run("ip", "link", "add", "name", f"eth{number}", "type", "bridge")


def remove_interfaces(count):
    for number in range(1, count):
        harness.run("ip", "link", "delete", "dev", f"eth{number}")


def measure_daemon(interfaces, definitions):
    add_interfaces(interfaces)
    harness.write_store(*(harness.wired(f"lan{number:03}", **harness.STATIC) for number in range(definitions)))
    daemon = harness.Daemon()
    harness.wait_for("address", lambda: harness.STATIC["ipAddress"] in harness.addresses("eth0"), 90)
    result = settled_kib(daemon.pid)
    daemon.stop()
    harness.run("ip", "addr", "flush", "dev", "eth0")
    remove_interfaces(interfaces)
    return result


def measure_bare_program():
    with subprocess.Popen([harness.BUILD_DIR / "benchmarks/bareidle", "eth0"]) as program:
        result = settled_kib(program.pid)
        program.kill()
    return result


def measure():
    """[(what, private, shared)], in KiB."""
    rows = [("a Qt program with the same timers", *measure_bare_program())]
    for interfaces in INTERFACES:
        for definitions in DEFINITIONS:
            what = f"{count(interfaces, 'interface')}, {count(definitions, 'definition')}"
            rows.append((what, *measure_daemon(interfaces, definitions)))
    return rows


def count(number, noun):
    return f"{number} {noun}" if number == 1 else f"{number} {noun}s"


def table(rows):
    lines = ["| with | private | shared |", "|---|--:|--:|"]
    lines += [f"| {what} | {private / 1024:.1f} MiB | {shared / 1024:.1f} MiB |" for what, private, shared in rows]
    return "\n".join(lines)
