#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Seeds one-line faults into the product and says which of them no unit test notices.

Works in a copy of the sources below build/mutation, which stays for the next run. Each fault is built with the tests
of its file, one test after the other until one fails, each in the sandbox. Ends with 1 when a fault survived. Not
every survivor is a gap: some faults change nothing that can be seen.
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
import time
from collections import Counter, namedtuple
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
WORK = TOP / "build/mutation"
COPY = WORK / "source"
BUILD = COPY / "build/release"
FIXED_SEED = 1
BUILD_LIMIT = 900  # seconds

# Tests of a source file beyond tst_FILE*; those of a folder are for its files that have none of either kind.
MORE_TESTS = {
    "src/config/networkblock": ["tst_namednetwork_*", "tst_wpasupplicantcfg*", "tst_hostilevalues"],
    "src/config/networksetting": ["tst_corvi_bonding", "tst_wirelessdevice"],
    "src/config/storekeeping": ["tst_corvi_process", "tst_zeblastgood"],
    "src/config/storekeeping_device": ["tst_corvi_process"],
    "src/core/corvi": ["tst_corvi_life", "tst_corvi_tick"],
    "src/core/corvi_carrier": ["tst_corvi_bounce"],
    "src/core/corvi_discovery": ["tst_corvi_life", "tst_corvi_adapters"],
    "src/core/corvi_wired": ["tst_corvi_carrier", "tst_corvi_upkeep"],
    "src/core/segmentnames": ["tst_corvi_segment"],
    "src/core/segmentplace": ["tst_corvi_segment"],
    "src/devices/carrierlosses": ["tst_networkdevice_link", "tst_networkdevice", "tst_corvi_bounce"],
    "src/support/processmemory": ["tst_corvi_memory", "tst_corvi_process"],
    "src/support/program": ["tst_utils*", "tst_modem", "tst_interfacekind"],
    "platform/rules": ["tst_zebcheck", "tst_namednetwork*", "tst_wpasupplicantcfg*", "tst_storecheck", "tst_spelling"],
    "platform/status": ["tst_zebnetstatus", "tst_corvi_status", "tst_statustool"],
    "platform/zeb": ["tst_zeb*"],
    "tools": ["tst_checktool", "tst_statustool*", "tst_statusreport", "tst_store*", "tst_machinecheck", "tst_masking"],
}

Fault = namedtuple("Fault", "line column operator old new")

# What is no code: comments, literals, lines of the preprocessor.
NO_CODE = re.compile(r'(?P<comment>//[^\n]*|/\*.*?\*/)|(?P<raw>R"(\w*)\(.*?\)\3")|(?P<text>"(?:\\.|[^"\\\n])*")'
                     r"|'(?:\\.|[^'\\\n])+'|^[ \t]*#[^\n]*", re.S | re.M)
SWAPS = [
    ("comparison", re.compile(r"(?<= )(==|!=|<=|>=|<|>)(?= )"),
     {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">"}),
    ("boolean", re.compile(r"(?<= )(&&|\|\|)(?= )|\b(true|false)\b"),
     {"&&": "||", "||": "&&", "true": "false", "false": "true"}),
]
NUMBER = re.compile(r"(?<![\w.'])\d+(?=(?:ms|min|[hsuUlL])?\b)(?![.'])")
CONDITION = re.compile(r"\b(?:if|while) \(")
# "false" and the like are "{}" already, and "true" becomes "false" as a boolean.
RETURN = re.compile(r"\breturn (?!\{\}|true;|false;|nullptr;|0;)([^;]+)(?=;)")
STATEMENT = re.compile(r"(?:\s*)(?:(?:emit |\+\+|--)?[\w.:]+(?:->[\w.:]+)*"
                       r"(?:\(.*\)(?: << .*)?|(?:\[[^]]*\])? [-+|&]?= .*|\+\+|--)?);$")


def blank(text):
    """The text with what is no code blanked out, each character at its place."""
    return NO_CODE.sub(lambda found: re.sub(r"[^\n]", " ", found[0]), text)


def closing(code, opening):
    """Where the bracket is closed that is opened at a place of a line; -1 when on no line of its own."""
    depth = 0
    for place in range(opening, len(code)):
        depth += {"(": 1, ")": -1}.get(code[place], 0)
        if depth == 0:
            return place
    return -1


def faults_of_line(code, line):
    """(column, operator, old, new) of each fault that fits a line; code is the line without what is no code."""
    for operator, pattern, swaps in SWAPS:
        for found in pattern.finditer(code):
            yield found.start(), operator, found[0], swaps[found[0]]
    for found in NUMBER.finditer(code):
        yield found.start(), "number", found[0], str(int(found[0]) + 1)
    for found in CONDITION.finditer(code):
        end = closing(code, found.end() - 1)
        condition = line[found.end():end]
        # A declaration cannot be negated.
        if end > 0 and not re.search(r"[\w*&] [*&]?\w+ = |;", condition):
            yield found.end(), "condition", condition, f"!({condition})"
    for found in RETURN.finditer(code):
        yield found.start(1), "return", line[found.start(1):found.end(1)], "{}"
    indent = len(code) - len(code.lstrip())
    if STATEMENT.match(code) and code.count("(") == code.count(")") and indent:
        yield indent, "statement", line[indent:], "{}"


def faults_of(text):
    """Every fault of a source text, in the order of its lines."""
    code = blank(text)
    faults = []
    for number, (code_line, line) in enumerate(zip(code.split("\n"), text.split("\n")), 1):
        faults += [Fault(number, *fault) for fault in faults_of_line(code_line, line)]
    for found in NO_CODE.finditer(text):
        if found["text"] is not None:
            start = text.rfind("\n", 0, found.start()) + 1
            faults.append(Fault(text.count("\n", 0, start) + 1, found.start() - start, "text", found[0],
                                found[0][:-1] + '~"'))
    return sorted(faults)


def with_fault(text, fault):
    lines = text.split("\n")
    line = lines[fault.line - 1]
    assert line[fault.column:].startswith(fault.old)
    lines[fault.line - 1] = line[:fault.column] + fault.new + line[fault.column + len(fault.old):]
    return "\n".join(lines)


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


def execute(command, limit, **options):
    """A program's status, None when it was ended after limit seconds. Whatever happens, it is gone afterwards."""
    with open(WORK / "output", "wb") as output, \
            subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output, stderr=output, cwd=COPY,
                             start_new_session=True, **options) as process:
        try:
            return process.wait(limit)
        except subprocess.TimeoutExpired:
            return None
        finally:
            if process.poll() is None:
                end_group(process)


def builds(*targets):
    return execute(["cmake", "--build", BUILD, "--target", *targets], BUILD_LIMIT) == 0


def passes(test, limit):
    """Every test runs in the sandbox, also one that would not need it: nobody knows what a fault does."""
    environment = {**os.environ, "CORVI_RECORDER": str(BUILD / "tests/recorder"), "CORVI_BUILD_DIR": str(BUILD)}
    return execute([COPY / "tests/sandbox/run", "--standins", BUILD / "tests/unit" / test], limit, env=environment) == 0


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
    if execute(["cmake", "--preset", "release", "-DCORVI_BENCHMARKS=OFF"], BUILD_LIMIT) != 0 or not builds("recorder"):
        raise SystemExit((WORK / "output").read_text(errors="replace")[-3000:])


class Trial:
    """Tries one fault after the other in the copy."""

    def __init__(self, tests, limit):
        self.tests = tests
        self.limit = limit
        self.good = set()

    def is_good(self, test):
        """A test that fails without a fault would kill each of them."""
        if test not in self.good and builds(test) and passes(test, self.limit):
            self.good.add(test)
        return test in self.good

    def run(self, source, fault):
        """What became of a fault: (result, the test that noticed it)."""
        result, test = self.run_once(source, fault)
        while result == "killed" and not self.is_good(test):
            print(f"{test} fails without a fault, too: not used any more", flush=True)
            self.tests.remove(test)
            result, test = self.run_once(source, fault)
        return result, test

    def run_once(self, source, fault):
        path = COPY / source
        text = path.read_text()
        path.write_text(with_fault(text, fault))
        try:
            return self.try_tests(source)
        finally:
            path.write_text(text)

    def try_tests(self, source):
        for test in tests_of(source, self.tests):
            if not builds(test):
                return "not compiled", ""
            if not passes(test, self.limit):
                return "killed", test
        return "survived", ""


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--seed", default=FIXED_SEED, help="chooses the faults: a number (%(default)s), or random")
    parser.add_argument("--count", type=int, default=40, help="how many faults (%(default)s)")
    parser.add_argument("--files", default="src/*/*.cpp", help="sources, as a pattern (%(default)s)")
    parser.add_argument("--limit", type=int, default=240, help="seconds for each test (%(default)s)")
    arguments = parser.parse_args()
    arguments.seed = random.randrange(2**32) if arguments.seed == "random" else int(arguments.seed)
    return arguments


def chosen_faults(sources, seed, count):
    faults = [(source, fault) for source in sources for fault in faults_of((TOP / source).read_text())]
    # Sorted, a file's faults follow each other, and little is built twice.
    return sorted(random.Random(seed).sample(faults, min(count, len(faults))))


def main():
    arguments = parse_arguments()
    sources = sorted(str(path.relative_to(TOP)) for path in TOP.glob(arguments.files) if path.suffix == ".cpp")
    if not sources:
        raise SystemExit(f"no source file: {arguments.files}")
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(130))
    WORK.mkdir(parents=True, exist_ok=True)
    with open(WORK / "lock", "wb") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        print("seed", arguments.seed, flush=True)
        prepare_copy()
        return report(chosen_faults(sources, arguments.seed, arguments.count), Trial(unit_tests(), arguments.limit))


def report(faults, trial):
    results = Counter()
    for source, fault in faults:
        begin = time.monotonic()
        result, test = trial.run(source, fault)
        results[result] += 1
        print(f"{result:12} {source}:{fault.line}: {fault.operator}: {fault.old} -> {fault.new}"
              f"  ({test + ', ' if test else ''}{time.monotonic() - begin:.0f} s)", flush=True)
    tried = results["killed"] + results["survived"]
    print(f"{results['killed']} killed, {results['survived']} survived, {results['not compiled']} not compiled;",
          f"score {100 * results['killed'] / max(tried, 1):.1f} %")
    return 1 if results["survived"] else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
