#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""How long whoever sits at the terminal waits for the network, beside what the DHCP client alone needs, and what the
daemon takes of the memory.

  usertimes.py [--rounds N] [--write] BUILD_DIR

Prints two tables; --write makes docs/performance.md and docs/performance.svg of them. Runs in the sandbox.
"""

import argparse
import fcntl
import os
import socket
import statistics
import struct
import subprocess
import sys
import time
from pathlib import Path

TOP = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(TOP / "tests/system"))
SIOCGIFADDR = 0x8915
CASES = {
    "start": "start of the daemon, cable in",
    "carrier": "cable put back, same network",
    "moved": "cable moved at once to another network",
}


def enter_sandbox(build):
    """Goes on as the same program in a private machine."""
    os.environ["CORVI_BUILD_DIR"] = str(Path(build).resolve())
    sandbox = str(TOP / "tests/sandbox/run")
    os.execv(sandbox, [sandbox, "--platform", "/usr/bin/python3", "-B", os.path.abspath(__file__), *sys.argv[1:]])


def address_of(interface):
    """The interface's first address, "" without one. No program is started for it."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
        try:
            answer = fcntl.ioctl(control, SIOCGIFADDR, struct.pack("256s", interface.encode()))
        except OSError:
            return ""
    return socket.inet_ntoa(answer[20:24])


class Lan:
    """One cable; its other end is in one of two networks, each with a DHCP server of its own."""

    NETWORKS = ("10.77.0", "10.78.0")

    def __init__(self):
        self.cable = harness.Cable("eth0")
        self.server = harness.DhcpServer(self.cable)

    def move(self):
        """Another network answers at the same interface."""
        network = next(network for network in self.NETWORKS if network != self.server.network)
        self.server.stop()
        self.cable.run("ip", "addr", "flush", "dev", self.cable.far_end)
        self.cable.run("ip", "addr", "add", f"{network}.1/24", "dev", self.cable.far_end)
        self.server = harness.DhcpServer(self.cable, network=network)

    def seconds_to_address(self, begin):
        """From a moment until the interface has an address that the server gave."""
        harness.wait_for("address", lambda: self.server.serves(address_of("eth0")), 60, interval=0.005)
        return time.monotonic() - begin


def wait_quiet():
    """Waits until nothing was started for two ticks of the daemon."""
    seen = []

    def quiet():
        seen.append(harness.last_pid())
        return len(seen) > 40 and seen[-1] == seen[-40]
    harness.wait_for("nothing is started any more", quiet, 90)


def measured(lan, change, own_programs):
    """(seconds to the address, programs started) of a change; of the latter, own_programs are ours."""
    before = harness.last_pid()
    begin = change()
    seconds = lan.seconds_to_address(begin)
    wait_quiet()
    return seconds, harness.last_pid() - before - own_programs


def client_alone(lan, cleared):
    """What the DHCP client needs by itself, on an interface that is up: with no lease from before, or with one."""
    if cleared:
        forget_leases()

    clients = []

    def change():
        begin = time.monotonic()
        clients.append(subprocess.Popen(["dhclient", "-q", "eth0"], stdin=subprocess.DEVNULL))
        return begin
    result = measured(lan, change, 0)
    clients[0].wait()
    harness.end_by_name("dhclient")
    harness.run("ip", "addr", "flush", "dev", "eth0")
    return result


def forget_leases():
    for path in Path("/var/lib/dhcp").glob("*"):
        path.unlink()


def measure_client(lan, rounds):
    harness.run("ip", "link", "set", "dev", "eth0", "up")
    results = {case: [] for case in CASES}
    for _ in range(rounds):
        results["start"].append(client_alone(lan, True))
        results["carrier"].append(client_alone(lan, False))
        lan.move()
        results["moved"].append(client_alone(lan, False))
    harness.run("ip", "link", "set", "dev", "eth0", "down")
    return results


def plug(lan):
    lan.cable.plug()
    return time.monotonic()


def wait_for_no_tick_in_particular(chance):
    """What came before ended with a tick of the daemon, and a cable does not wait for one."""
    time.sleep(chance.random())


def put_back(lan, listener, chance):
    """Out long enough to be noticed; the moment when it is in again counts."""
    listener.clear()
    lan.cable.pull()
    harness.wait_for("loss noticed", lambda: harness.LINK_DOWN in listener.events(), 30)
    harness.wait_for("address gone", lambda: not address_of("eth0"), 30)
    wait_for_no_tick_in_particular(chance)
    return plug(lan)


def move_at_once(lan, chance):
    wait_for_no_tick_in_particular(chance)
    lan.cable.pull()
    return plug(lan)


def measure_daemon(lan, rounds):
    results = {case: [] for case in CASES}
    listener = harness.Listener()
    chance = harness.random_source()
    for _ in range(rounds):
        forget_leases()
        daemons = []

        def start():
            begin = time.monotonic()
            daemons.append(harness.Daemon())
            return begin
        results["start"].append(measured(lan, start, 0))
        results["carrier"].append(measured(lan, lambda: put_back(lan, listener, chance), 2))
        lan.move()
        results["moved"].append(measured(lan, lambda: move_at_once(lan, chance), 2))
        daemons[0].stop()
        harness.end_by_name("dhclient")
        harness.run("ip", "addr", "flush", "dev", "eth0")
        harness.run("ip", "link", "set", "dev", "eth0", "down")
    listener.close()
    return results


def median(results, column):
    return statistics.median(result[column] for result in results)


def table(client, daemon):
    lines = ["| what happens | `dhclient` alone | Corvi | multiple | fastest to slowest | "
             "programs, alone | programs, Corvi |", "|---|--:|--:|--:|--:|--:|--:|"]
    for case, text in CASES.items():
        alone, whole = median(client[case], 0), median(daemon[case], 0)
        times = [seconds for seconds, _ in daemon[case]]
        lines.append(f"| {text} | {alone:.2f} s | {whole:.2f} s | {whole / alone:.1f} | {min(times):.2f} to "
                     f"{max(times):.2f} s | {median(client[case], 1):.0f} | {median(daemon[case], 1):.0f} |")
    return "\n".join(lines)


def bar(top, seconds, scale, colour, text):
    return (f'<rect x="10" y="{top}" width="{seconds * scale:.1f}" height="16" fill="{colour}"/>'
            f'<text x="{16 + seconds * scale:.1f}" y="{top + 13}">{text}</text>')


def plot(client, daemon):
    """A bar for each median, in SVG."""
    longest = max(median(results[case], 0) for results in (client, daemon) for case in CASES)
    scale = 480 / longest  # pixels a second
    lines = ['<svg xmlns="http://www.w3.org/2000/svg" width="700" height="230" font-size="13" '
             'font-family="sans-serif">',
             '<rect width="700" height="230" fill="white"/>']
    for place, (case, text) in enumerate(CASES.items()):
        top = 10 + place * 72
        alone, whole = median(client[case], 0), median(daemon[case], 0)
        lines += [f'<text x="10" y="{top + 13}" font-weight="bold">{text}</text>',
                  bar(top + 20, alone, scale, "#9ab", f"dhclient alone: {alone:.2f} s"),
                  bar(top + 40, whole, scale, "#258", f"Corvi: {whole:.2f} s ({whole / alone:.1f} times)")]
    return "\n".join([*lines, "</svg>", ""])


def document(rows, memory, rounds, load):
    return f"""# Performance

How long whoever sits at the terminal waits for the network: from the event until the kernel has the address, through
the real DHCP client, over a virtual cable, from a server that answers at once. The floor is what `dhclient` alone needs
from its own start, on an interface that is up: without a lease from before, with one of the same network, with one of
another. Medians of {rounds} rounds, all of one run. "Programs" are the processes and threads that were started in all.

{rows}

![the same as bars](performance.svg)

The rest is mostly waiting for the daemon's tick, which comes once a second: a cable that is put in waits up to a second
for the next, at a moment that chance chooses here. At the start the first tick comes after a second and only
discovers the interfaces; the second one sets them up.

What the daemon takes of the memory while one interface is in use, with a fixed address. "Private" are the pages that
it has written, "shared" those of programs and libraries, which other programs use too and which the kernel can drop.

{memory}

The machine: {os.cpu_count()} processors; {load}. `benchmarks/run.sh` says what else it
costs. This page and the plot are made by

```sh
benchmarks/usertimes.py --rounds {rounds} --write build/release
```
"""


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--rounds", type=int, default=9)
    parser.add_argument("--write", action="store_true", help="docs/performance.md and its plot")
    parser.add_argument("build_dir")
    arguments = parser.parse_args()
    if socket.gethostname() != "corvi-sandbox":
        enter_sandbox(arguments.build_dir)
    begin = os.getloadavg()[0]
    lan = Lan()
    harness.write_store(harness.wired())
    client = measure_client(lan, arguments.rounds)
    daemon = measure_daemon(lan, arguments.rounds)
    lan.server.stop()
    rows = table(client, daemon)
    memory = memoryuse.table(memoryuse.measure())
    load = f"its load was {begin:.1f} at the begin and {os.getloadavg()[0]:.1f} at the end"
    print(rows, memory, load, sep="\n")
    if arguments.write:
        (TOP / "docs/performance.md").write_text(document(rows, memory, arguments.rounds, load))
        (TOP / "docs/performance.svg").write_text(plot(client, daemon))


if __name__ == "__main__":
    import harness
    import memoryuse
    main()
