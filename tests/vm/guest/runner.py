# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Runs the scenarios in the guest and says how each went.

    runner.py SOURCE BUILD SCENARIO...

Scenarios mostly wait (for a supplicant's seven seconds, a scan, a lease), so
several run side by side, each in its own private machine.
"""

import os
import subprocess
import sys
import threading
import time
from collections import deque
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import scenarios  # first: it says where the others are found
from harness import SLOWNESS, run, slowness

SIDE_BY_SIDE = 5
# The longest scenario takes about two minutes; one that hangs must not take the others' time. In seconds of a
# machine at its best, as harness.wait_for() counts them, for each time that it repeats something.
LIMIT = 360 * int(os.environ["CORVI_TIMES"])
# Slower than this counts as this slow, so that every wait ends.
SLOWEST = 20
# Python's own status for a fault of the runner is 1.
SOME_FAILED = 3
# More processes than a scenario starts.
PROCESSES = 20000
LOGS = Path("/mnt")
# What a failed scenario leaves behind for the reader.
KEPT = "/var/log /tmp/*.conf /tmp/*.log /tmp/ap* /tmp/corvi-output /tmp/config"

print_lock = threading.Lock()


def say(text):
    with print_lock:
        print(text, flush=True)


def measure_slowness():
    """Tells the scenarios how slow the machine is, by the time that it takes to start a program compared with the
    shortest so far; and the host that the machine is alive, by a line that is not shown."""
    recent = deque(maxlen=5)
    best = None
    while True:
        begin = time.monotonic()
        subprocess.run(["/bin/true"], check=True)
        recent.append(time.monotonic() - begin)
        best = min(recent) if best is None else min(best, *recent)
        new = SLOWNESS.with_suffix(".new")
        new.write_text(f"{min(max(1.0, sum(recent) / len(recent) / best), SLOWEST):.2f}")
        new.rename(SLOWNESS)
        say("vm: alive")
        time.sleep(5)


def kill_when_hung(process, hung):
    """Ends a scenario that takes too long, and says so by setting the event."""
    used = 0.0
    while process.poll() is None:
        time.sleep(1)
        used += 1 / slowness()
        if used > LIMIT:
            hung.set()
            process.kill()
            return


def prepare():
    Path("/proc/sys/kernel/pid_max").write_text("4194304")
    # Radios are made by the scenarios. Without a country, access points may not use 5 and 6 GHz.
    run("modprobe", "mac80211_hwsim", "radios=0")
    run("modprobe", "veth")
    run("mount", "-t", "debugfs", "debugfs", "/sys/kernel/debug")
    run("iw", "reg", "set", "DE")


def private_machine(scenario, source):
    sandbox = f"{source}/tests/sandbox/run"
    if scenario.own_network:
        # Those that cannot run side by side would be the last to end; the processors are theirs first.
        return ["nice", "-n", "5", sandbox, "--platform"]
    # The same network's /sys cannot be mounted over itself.
    return ["unshare", "--mount", "--ipc", "--uts", "--pid", "--fork", "--kill-child", "--mount-proc",
            "/bin/sh", "-c", 'umount -l /sys && exec "$@"', "sh", sandbox, "--inside", "platform"]


def run_scenario(scenario, source, number):
    logs = LOGS / scenario.name
    logs.mkdir(exist_ok=True)
    # The private machine's files go with it, so they are copied by its last command.
    keep = f"find {KEPT} -type f -exec cp --parents -t {logs} {{}} + 2>/dev/null"
    # The kernel tells users of its wireless interface apart by a number made from their process's, whatever
    # namespace they are in: an access point stops when one of the same number ends elsewhere.
    own_numbers = f"echo {number * PROCESSES} >/proc/sys/kernel/ns_last_pid"
    script = f'{own_numbers} || exit; "$@"; status=$?; [ $status = 0 ] || {keep}; exit $status'
    command = [*private_machine(scenario, source), "/bin/sh", "-c", script, "sh",
               "/usr/bin/python3", "-X", f"pycache_prefix={sys.pycache_prefix}", "-u",
               scenarios.__file__, scenario.name]
    begin = time.monotonic()
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                               text=True, errors="replace")
    hung = threading.Event()
    threading.Thread(target=kill_when_hung, args=(process, hung), daemon=True).start()
    output = []
    for line in process.stdout:
        output.append(line.rstrip())
        if line.startswith("* "):
            say(f"vm: {scenario.name}: {line[2:].rstrip()}")
    process.wait()
    return report(scenario, process.returncode == 0, hung.is_set(), time.monotonic() - begin, output)


def report(scenario, passed, hung, seconds, output):
    (LOGS / scenario.name / "output").write_text("\n".join(output) + "\n")
    lines = [f"vm: {'pass' if passed else 'FAIL'} {scenario.name} ({seconds:.0f} s)"]
    if hung:
        lines.append(f"vm:      ended: it took more than {LIMIT} s of a machine at its best")
    if not passed:
        lines += [f"vm:      {line}" for line in output]
    say("\n".join(lines))
    return scenario.name, passed


def run_again(failed, source, first_number):
    """Runs what failed beside others once more, alone: the emulated processor may have been too slow for all of
    them. A fault of the daemon fails again; what passes now is named, as it did not pass at first."""
    say(f"vm: once more, alone: {' '.join(scenario.name for scenario in failed)}")
    results = [run_scenario(scenario, source, number) for number, scenario in enumerate(failed, first_number)]
    late = [name for name, passed in results if passed]
    if late:
        say(f"vm: passed at the second try only: {' '.join(late)}")
    return [name for name, passed in results if not passed]


def main():
    source, build, names = sys.argv[1], sys.argv[2], sys.argv[3:]
    os.environ["CORVI_BUILD_DIR"] = build
    threading.Thread(target=measure_slowness, daemon=True).start()
    prepare()
    wanted = scenarios.chosen(names)
    begin = time.monotonic()
    with ThreadPoolExecutor(SIDE_BY_SIDE) as radio_lane, ThreadPoolExecutor(1) as guest_lane:
        results = [(radio_lane if scenario.own_network else guest_lane).submit(run_scenario, scenario, source, number)
                   for number, scenario in enumerate(wanted, 1)]
    failed = [scenario for scenario, result in zip(wanted, results) if not result.result()[1]]
    if failed:
        failed = run_again(failed, source, len(wanted) + 1)
    say(f"vm: {len(results) - len(failed)} of {len(results)} scenarios passed in {time.monotonic() - begin:.0f} s")
    if failed:
        say(f"vm: failed: {' '.join(failed)}")
    return SOME_FAILED if failed else 0


if __name__ == "__main__":
    sys.exit(main())
