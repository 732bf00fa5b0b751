#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Seeds one-line faults into the product and says which of them no unit test notices.

Works in a copy of the sources below build/mutation, which stays for the next run. One build holds all the faults, each
behind a switch (fault.h); what cannot be switched, a case label or the size of an array, is built by itself. Without a
fault, each test notes which of its functions reach which fault: only these functions run for it, in the sandbox, one
test after the other until one fails. Ends with 1 when a fault survived. Not every survivor is a gap: some faults
change nothing that can be seen.
"""

import argparse
import fcntl
import fnmatch
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
from collections import Counter, defaultdict
from concurrent.futures import ThreadPoolExecutor, as_completed
from pathlib import Path

from faults import faults_of, with_fault, with_switch

TOP = Path(__file__).resolve().parents[2]
WORK = TOP / "build/mutation"
COPY = WORK / "source"
BUILD = COPY / "build/release"
FIXED_SEED = 1
BUILD_LIMIT = 3600  # seconds
STOPPING = threading.Event()

# Tests of a source file beyond tst_FILE*; those of a folder are for its files that have none of either kind.
MORE_TESTS = {
    "src/config/networkblock": ["tst_namednetwork_*", "tst_wpasupplicantcfg*", "tst_hostilevalues"],
    "src/config/networksetting": ["tst_corvi_bonding", "tst_wirelessdevice"],
    "src/config/storekeeping": ["tst_corvi_process", "tst_zeblastgood"],
    "src/config/storekeeping_device": ["tst_corvi_process"],
    "src/core/corvi": ["tst_corvi_life", "tst_corvi_tick"],
    "src/core/corvi_carrier": ["tst_corvi_bounce"],
    "src/core/corvi_discovery": ["tst_corvi_life", "tst_corvi_adapters"],
    "src/core/corvi_flags": ["tst_corvi_tick", "tst_corvi_life"],
    "src/core/corvi_queries": ["tst_corvi_carrier", "tst_corvi_dhcp", "tst_corvi_modem"],
    "src/core/corvi_wired": ["tst_corvi_carrier", "tst_corvi_upkeep", "tst_corvi_route"],
    "src/core/segmentnames": ["tst_corvi_segment*"],
    "src/core/segmentplace": ["tst_corvi_segment*"],
    "src/devices/carrierlosses": ["tst_networkdevice_link", "tst_networkdevice", "tst_corvi_bounce"],
    "src/devices/networkdevice_link": ["tst_corvi_upkeep"],
    "src/devices/networkdevice_upkeep": ["tst_corvi_upkeep", "tst_corvi_route"],
    "src/main": ["tst_corvi_process", "tst_corvi_memory"],
    "src/supplicant/wpactrl": ["tst_wpasupplicantcontrol*"],
    "src/support/interfacekind": ["tst_corvi_discovery", "tst_corvi_adapters"],
    "src/support/processmemory": ["tst_corvi_memory", "tst_corvi_process"],
    "src/support/program": ["tst_utils*", "tst_modem", "tst_interfacekind"],
    "platform/rules/securitymodes": ["tst_zebcheck", "tst_namednetwork*", "tst_storecheck"],
    "platform/rules/supplicantvalues": ["tst_supplicantline", "tst_zebcheck", "tst_namednetwork*", "tst_storeplan"],
    "platform/rules": ["tst_zebcheck", "tst_namednetwork*", "tst_wpasupplicantcfg*", "tst_storecheck", "tst_spelling"],
    "platform/status": ["tst_zebnetstatus", "tst_corvi_status", "tst_statustool"],
    "platform/zeb": ["tst_zeb*"],
    "tools/addresswait": ["tst_statustool*"],
    "tools/corvi-check": ["tst_checktool"],
    "tools/corvi-status": ["tst_statustool*"],
    "tools/eventlistener": ["tst_statustool*"],
    "tools/statusreader": ["tst_statustool*"],
    "tools/statustext": ["tst_statustool*"],
    "tools/storehints": ["tst_storeschema", "tst_storeadvice", "tst_storecheck"],
    "tools/supplicantfacts": ["tst_systemfacts_read", "tst_reporttext", "tst_statustool*"],
    "tools/systemfacts": ["tst_statustool*"],
    "tools/verdict": ["tst_reporttext", "tst_addresswait"],
    "tools": ["tst_checktool", "tst_statustool*", "tst_reporttext", "tst_store*", "tst_machinecheck", "tst_masking"],
}


def tests_of(source, tests):
    """The names of the unit tests that cover a source file, those of its own name first."""
    stem = Path(source).with_suffix("")
    first = [f"tst_{stem.name}", f"tst_{stem.name}_*", *MORE_TESTS.get(str(stem), [])]
    family = f"tst_{stem.name.split('_')[0]}*"
    found = [test for pattern in [*first, family] for test in sorted(fnmatch.filter(tests, pattern))]
    if not found:
        found = [test for folder in stem.parents for pattern in MORE_TESTS.get(str(folder), [])
                 for test in sorted(fnmatch.filter(tests, pattern))]
    return list(dict.fromkeys(found))


def unit_tests():
    return [path.stem for path in (TOP / "tests/unit").glob("tst_*.cpp")]


def end_group(process):
    """Ends a program and what it started. Ninja puts each compiler into a group of its own, and ends them when it is
    asked to end itself; what does not within 10 s, is killed."""
    try:
        for number in [signal.SIGTERM] + 100 * [0] + [signal.SIGKILL]:
            os.killpg(process.pid, number)
            time.sleep(0.1)
            process.poll()
    except ProcessLookupError:
        pass  # None of them is left.


def execute(command, limit, output=os.devnull, **options):
    """A program's status, None when it was ended after limit seconds. Whatever happens, it is gone afterwards."""
    end = time.monotonic() + limit
    with open(output, "wb") as file, \
            subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=file, stderr=file, cwd=COPY,
                             start_new_session=True, **options) as process:
        try:
            while process.poll() is None and time.monotonic() < end and not STOPPING.wait(0.05):
                pass
            return process.poll()
        finally:
            if process.poll() is None:
                end_group(process)


def builds(*targets):
    return execute(["cmake", "--build", BUILD, "--target", *targets, "--", "-k", "0"], BUILD_LIMIT,
                   WORK / "output") == 0


def passes(test, limit, functions=(), output=None, **environment):
    """Every test runs in the sandbox, also one that would not need it: nobody knows what a fault does. One that ends
    without its totals has not passed, whatever its status: the product may end the process, with success."""
    environment = {**os.environ, **environment,
                   "CORVI_RECORDER": str(BUILD / "tests/recorder"), "CORVI_BUILD_DIR": str(BUILD)}
    with tempfile.TemporaryDirectory() as folder:
        output = output or Path(folder) / "output"
        status = execute([COPY / "tests/sandbox/run", "--standins", BUILD / "tests/unit" / test, *functions], limit,
                         output, env=environment)
        return status == 0 and b"\nTotals: " in output.read_bytes()


def prepare_copy():
    """Brings the copy up to date. What did not change keeps its time, so that it is not compiled again."""
    names = subprocess.run(["git", "ls-files", "-z"], cwd=TOP, check=True, capture_output=True).stdout
    wanted = {name for name in os.fsdecode(names).split("\0") if name and (TOP / name).is_file()}
    for name in wanted:
        source, target = TOP / name, COPY / name
        if not target.is_file() or source.read_bytes() != target.read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, target)
    for path in [path for path in COPY.rglob("*") if path.is_file() and BUILD.parent not in path.parents]:
        if str(path.relative_to(COPY)) not in wanted:
            path.unlink()
    if execute(["cmake", "--preset", "release", "-DCORVI_BENCHMARKS=OFF"], BUILD_LIMIT, WORK / "output") != 0 \
            or not builds("recorder"):
        raise SystemExit((WORK / "output").read_text(errors="replace")[-3000:])


def write_if_new(path, text):
    if path.read_text() != text:
        path.write_text(text)


class Switches:
    """The faults that one build holds: a number for each, on every line at most one."""

    def __init__(self, faults):
        # Read once: somebody may work on the sources meanwhile.
        self.originals = {source: (TOP / source).read_text() for source, _ in faults}
        self.numbers = {}
        self.separate = []
        lines = set()
        for number, (source, fault) in enumerate(faults, 1):
            if (source, fault.line) in lines or with_switch(self.originals[source], fault, number) is None:
                self.separate.append((source, fault))
            else:
                self.numbers[source, fault] = number
                lines.add((source, fault.line))

    def write(self):
        texts = defaultdict(list)
        for (source, fault), number in self.numbers.items():
            texts[source].append((fault, number))
        for source, here in texts.items():
            text = self.originals[source]
            for fault, number in here:
                text = switched_beside(text, fault, number, self.originals[source])
            # Instead of the first line, a comment, so that the others keep their numbers.
            write_if_new(COPY / source, f'#include "{COPY}/tests/mutation/fault.h"\n' + text.partition("\n")[2])

    def drop_refused(self):
        """Takes out what the compiler refused with a switch, and says whether there was any."""
        found = re.findall(r"^(\S+?):(\d+):\d+: ", (WORK / "output").read_text(errors="replace"), re.M)
        places = {(os.path.relpath(os.path.normpath(BUILD / path), COPY), int(line)) for path, line in found}
        # A statement of several lines may be refused on another one than the fault's.
        refused = {min(near, key=lambda key: abs(key[1].line - line)) for path, line in places
                   if (near := [key for key in self.numbers if key[0] == path])}
        for source, fault in sorted(refused):
            del self.numbers[source, fault]
            self.separate.append((source, fault))
            write_if_new(COPY / source, self.originals[source])
        return bool(refused)


def switched_beside(text, fault, number, original):
    """The text, that may hold switches on other lines, with one more."""
    lines = text.split("\n")
    lines[fault.line - 1] = with_switch(original, fault, number).split("\n")[fault.line - 1]
    return "\n".join(lines)


def functions_by_fault(notes):
    """Of each number in the notes the functions that reach it, in the order in which they ran: one may count on being
    the first."""
    functions = defaultdict(list)
    for line in dict.fromkeys(notes.splitlines()):
        number, _, function = line.partition(" ")
        functions[int(number)].append(function)
    return functions


class Trial:
    """Tries the faults in the copy: those behind a switch side by side, then one build for each of the others."""

    def __init__(self, faults, tests, limit, jobs):
        self.tests = tests
        self.limit = limit
        self.jobs = jobs
        self.switches = Switches(faults)
        # Of each test that passes without a fault: which of its functions reach which number.
        self.reached = {}

    def run(self):
        """Yields each fault with what became of it: (source, fault, result, the test that noticed it)."""
        with ThreadPoolExecutor(self.jobs) as pool:
            try:
                self.build_switched()
                list(pool.map(self.look_without_fault, self.wanted_tests()))
                pending = {pool.submit(self.try_switched, *key, number): key
                           for key, number in self.switches.numbers.items()}
                for done in as_completed(pending):
                    yield (*pending[done], *done.result())
            finally:
                STOPPING.set()
                pool.shutdown(cancel_futures=True)
        STOPPING.clear()
        for source, text in self.switches.originals.items():
            write_if_new(COPY / source, text)
        for source, fault in sorted(self.switches.separate):
            yield (source, fault, *self.try_alone(source, fault))

    def wanted_tests(self):
        """Those of each source, also of one whose faults cannot be switched."""
        return sorted({test for source, _ in [*self.switches.numbers, *self.switches.separate]
                       for test in tests_of(source, self.tests)})

    def build_switched(self):
        while True:
            self.switches.write()
            if builds(*self.wanted_tests()):
                return
            if not self.switches.drop_refused():
                raise SystemExit((WORK / "output").read_text(errors="replace")[-3000:])

    def look_without_fault(self, test):
        """A test that fails without a fault would kill each of them."""
        noted = BUILD / f"reached-{test}"  # The sandbox shows this folder.
        noted.write_text("")
        noted.chmod(0o666)  # A test may go on as another user.
        begin = time.monotonic()
        output = WORK / f"{test}.output"
        # Noting takes memory, and some tests count it.
        if not passes(test, self.limit, CORVI_FAULTS_REACHED=str(noted)) and \
                not passes(test, self.limit, output=output):
            print(f"{test} fails without a fault, too: not used; see {output}", flush=True)
            return
        self.reached[test] = functions_by_fault(noted.read_text())
        print(f"{test} takes {time.monotonic() - begin:.0f} s", flush=True)

    def try_switched(self, source, fault, number):
        # The tests of its file first, then those of other files that come by.
        own = tests_of(source, self.tests)
        tests = [test for test in dict.fromkeys([*own, *sorted(self.reached)])
                 if number in self.reached.get(test, {})]
        if not tests:
            return "survived", "reached by no test"
        # What a function leaves behind may only be seen in another one, so at last all of those of its file run: of
        # what every test comes by, all would take an hour.
        for whole in (False, True):
            for test in tests:
                functions = self.reached[test][number]
                needs_all = not {"", "initTestCase", "cleanupTestCase"}.isdisjoint(functions)
                if needs_all == whole or whole and test in own:
                    if not passes(test, self.limit, () if whole else functions, CORVI_FAULT=str(number)):
                        return "killed", test
        return "survived", ""

    def try_alone(self, source, fault):
        path = COPY / source
        text = path.read_text()
        path.write_text(with_fault(text, fault))
        try:
            for test in [test for test in tests_of(source, self.tests) if test in self.reached]:
                if not builds(test):
                    return "not compiled", ""
                if not passes(test, self.limit):
                    return "killed", test
            return "survived", ""
        finally:
            path.write_text(text)


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--seed", default=FIXED_SEED, help="chooses the faults: a number (%(default)s), or random")
    parser.add_argument("--count", type=int, default=40, help="how many faults (%(default)s)")
    parser.add_argument("--files", nargs="+", default=["src/*/*.cpp"], help="sources, as patterns (%(default)s)")
    parser.add_argument("--limit", type=int, default=240, help="seconds for each test (%(default)s)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="tests at a time (%(default)s)")
    arguments = parser.parse_args()
    arguments.seed = random.randrange(2**32) if arguments.seed == "random" else int(arguments.seed)
    return arguments


def chosen_faults(sources, seed, count):
    faults = [(source, fault) for source in sources for fault in faults_of((TOP / source).read_text())]
    # Sorted, a file's faults follow each other, and little is built twice.
    return sorted(random.Random(seed).sample(faults, min(count, len(faults))))


def main():
    arguments = parse_arguments()
    sources = sorted({str(path.relative_to(TOP)) for pattern in arguments.files for path in TOP.glob(pattern)
                      if path.suffix == ".cpp"})
    if not sources:
        raise SystemExit(f"no source file: {' '.join(arguments.files)}")
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(130))
    WORK.mkdir(parents=True, exist_ok=True)
    with open(WORK / "lock", "wb") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        print("seed", arguments.seed, flush=True)
        prepare_copy()
        faults = chosen_faults(sources, arguments.seed, arguments.count)
        return report(Trial(faults, unit_tests(), arguments.limit, arguments.jobs).run())


def report(outcomes):
    results = Counter()
    for source, fault, result, test in outcomes:
        results[result] += 1
        print(f"{result:12} {source}:{fault.line}: {fault.operator}: {fault.old} -> {fault.new}"
              f"{'  (' + test + ')' if test else ''}", flush=True)
    tried = results["killed"] + results["survived"]
    print(f"{results['killed']} killed, {results['survived']} survived, {results['not compiled']} not compiled;",
          f"score {100 * results['killed'] / max(tried, 1):.1f} %")
    return 1 if results["survived"] else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
