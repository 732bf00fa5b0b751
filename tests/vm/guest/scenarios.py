# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Which scenarios there are, and how one runs.

A scenario is a test method of a module in the folder scenarios: joins.open is
test_open of scenarios/joins.py. Each runs in a private machine of its own
(tests/sandbox) within the guest; a module that sets OWN_NETWORK = False keeps
the guest's own network namespace, where the kernel puts the interfaces that a
module's loading makes. Those never run side by side. One that sets
ON_REQUEST = True is not a part of "all".

    scenarios.py --list             says which there are
    scenarios.py --names NAME...    expands the names of modules and "all"
    scenarios.py --certificates FOLDER   makes the networks' certificates
    scenarios.py NAME               runs one; in the private machine
"""

import importlib
import inspect
import sys
import unittest
from pathlib import Path

VM = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(VM / "guest"), str(VM / "scenarios"), str(VM.parent / "system")]

import accesspoint  # noqa: E402 (from there)


class Scenario:
    def __init__(self, module, case, method):
        self.name = f"{module.__name__}.{method.removeprefix('test_')}"
        self.what = inspect.getdoc(getattr(case, method)) or ""
        self.own_network = getattr(module, "OWN_NETWORK", True)
        self.on_request = getattr(module, "ON_REQUEST", False)
        self.test = (case, method)

    def run(self):
        """Prints what it has to say; true when it passed."""
        case, method = self.test
        result = unittest.TextTestRunner(stream=sys.stdout, verbosity=0, failfast=True).run(case(method))
        return result.wasSuccessful() and result.testsRun == 1 and not result.skipped


def scenarios_of(name):
    """Those of one module."""
    module = importlib.import_module(name)
    found = []
    for _, case in inspect.getmembers(module, inspect.isclass):
        if case.__module__ == name and issubclass(case, unittest.TestCase):
            found += [Scenario(module, case, method) for method in vars(case) if method.startswith("test_")]
    return found


def all_scenarios():
    return [scenario for path in sorted((VM / "scenarios").glob("*.py")) for scenario in scenarios_of(path.stem)]


def chosen(names):
    """The scenarios of these names; a module's name stands for all of its scenarios, "all" for all but those
    on request. Raises KeyError for a name that there is not."""
    scenarios = all_scenarios()
    result = []
    for name in names:
        matching = [scenario for scenario in scenarios
                    if name in (scenario.name, scenario.name.split(".")[0])
                    or (name == "all" and not scenario.on_request)]
        if not matching:
            raise KeyError(name)
        result += [scenario for scenario in matching if scenario not in result]
    return result


def main():
    arguments = sys.argv[1:]
    if arguments == ["--list"]:
        for scenario in all_scenarios():
            print(f"{scenario.name:36} {scenario.what.partition(chr(10))[0]}")
        return 0
    if arguments[:1] == ["--names"]:
        try:
            print(*[scenario.name for scenario in chosen(arguments[1:])])
            return 0
        except KeyError as error:
            print(f"vm: no scenario {error}; --list shows them", file=sys.stderr)
            return 2
    if arguments[:1] == ["--certificates"]:
        accesspoint.make_certificates(Path(arguments[1]))
        return 0
    # Without the other modules, which an emulated processor takes seconds to read.
    name, = arguments
    wanted, = [scenario for scenario in scenarios_of(name.partition(".")[0]) if scenario.name == name]
    return 0 if wanted.run() else 1


if __name__ == "__main__":
    sys.exit(main())
