#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Which faults mutate.py makes of a text, and which tests it runs for a file. Builds and runs nothing."""

import contextlib
import io
import tempfile
import unittest
import unittest.mock
from pathlib import Path

import faults
import mutate


def changes(line):
    """(operator, the line with the fault) of each fault of a line."""
    return [(fault.operator, faults.with_fault(line, fault)) for fault in faults.faults_of(line)]


class FaultsOfText(unittest.TestCase):
    def test_operators(self):
        for line, expected in [
                ("x = a <= b", ("comparison", "x = a < b")),
                ("x = a == b", ("comparison", "x = a != b")),
                ("x = a && b", ("boolean", "x = a || b")),
                ("x = true", ("boolean", "x = false")),
                ("x{9}", ("number", "x{10}")),
                ("wait(60s)", ("number", "wait(61s)")),
                ("    if (a(b) && c)", ("condition", "    if (!(a(b) && c))")),
                ("    return a.b(c);", ("return", "    return {};")),
                ("    Call(a, b(c));", ("statement", "    {}")),
                ("    a->b[1] += c;", ("statement", "    {}")),
                ("    ::close(fd);", ("statement", "    {}")),
                ('f("a\\"b")', ("text", 'f("a\\"b~")'))]:
            with self.subTest(line):
                self.assertIn(expected, changes(line))

    def test_leaves_alone(self):
        for line in ["// a == b, 5, true", "#include <a1.h>", "std::map<int, int> a", "0x10", "name2", "return {};",
                     "return nullptr;", "return std::nullopt;", "return QString();", "    int a = b;", "    Type a(b);",
                     "    b));", "        .count();", "'\"' + '5'", 'R"(5 == "5")"', "/* 5\n 5 */",
                     'sizeof "00"', "static_assert(a <= 5);"]:
            with self.subTest(line):
                self.assertEqual([], changes(line))

    def test_statement_begins_its_line(self):
        for before, expected in [("if (a)\n", 1), ("if (a) {\n", 1), ("a();\n\n// why\n", 1), ("else\n", 1),
                                 ("const int fd =\n", 0), ("return a ||\n", 0), ("b(c,\n", 0)]:
            with self.subTest(before):
                found = [fault.operator for fault in faults.faults_of(before + "    Call(a);")]
                self.assertEqual(expected, found.count("statement"))

    def test_same_fault_once(self):
        self.assertEqual([("boolean", "    return false;")], changes("    return true;"))

    def test_place_after_comment(self):
        text = '/* "a"\n 1 */ f("b");  // "c"\ng(7)'

        self.assertEqual([(2, 8, '"b"'), (3, 2, "7")], [(f.line, f.column, f.old) for f in faults.faults_of(text)])

    def test_seed_decides(self):
        sources = ["src/core/corvi.cpp", "src/core/corvi_dhcp.cpp"]

        self.assertEqual(mutate.chosen_faults(sources, 5, 20), mutate.chosen_faults(sources, 5, 20))
        self.assertNotEqual(mutate.chosen_faults(sources, 5, 20), mutate.chosen_faults(sources, 6, 20))


class SwitchedFaults(unittest.TestCase):
    def test_each_kind(self):
        for line, old, expected in [
                ('f(QStringLiteral("a"));', '"a"', 'f((isFaulty(7) ? QStringLiteral("a~") : QStringLiteral("a")));'),
                ("constexpr auto X = 60s;", "60", "const auto X = (isFaulty(7) ? 61s : 60s);"),
                ("    if (a && b) // c", "&&",
                 "    if (isFaulty(7) ? static_cast<bool>(a || b) : static_cast<bool>(a && b)) // c"),
                ("    if (a)", "a", "    if (isFaulty(7) != static_cast<bool>(a))"),
                ("    return a == b;", "==", "{ if (isFaulty(7)) { return a != b; } else { return a == b; } }"),
                ("    return a;", "a", "{ if (isFaulty(7)) { return {}; } else { return a; } }"),
                ("    const bool a = b < c;", "<", "    const bool a = isFaulty(7) ? (b <= c) : (b < c);"),
                ("    Call(a);", "Call(a);", "    { if (!isFaulty(7)) { Call(a); } }"),
                ('f(QStringLiteral("a"\n"b"));', '"a"', None),
                ('f(QStringLiteral("a"\n"b"));', '"b"', None),
                ("        && a == b", "==", None)]:
            with self.subTest(line):
                fault = next(fault for fault in faults.faults_of(line) if fault.old == old)

                self.assertEqual(expected, faults.with_switch(line, fault, 7))

    def test_one_for_each_line(self):
        source = "src/core/corvi_dhcp.cpp"
        everything = [(source, fault) for fault in faults.faults_of((mutate.TOP / source).read_text())]

        switches = mutate.Switches(everything)

        self.assertEqual(len(everything), len(switches.numbers) + len(switches.separate))
        self.assertEqual(len(switches.numbers), len({fault.line for _, fault in switches.numbers}))


    def test_drops_what_the_compiler_refuses(self):
        source = "src/core/corvi_dhcp.cpp"
        text = (mutate.TOP / source).read_text()
        switches = mutate.Switches([(source, fault) for fault in faults.faults_of(text)])
        here = next(key for key in switches.numbers if key[1].operator == "condition")

        with tempfile.TemporaryDirectory() as folder, \
                unittest.mock.patch.multiple(mutate, WORK=Path(folder), COPY=Path(folder), BUILD=Path(folder) / "b/r"):
            (Path(folder) / "src/core").mkdir(parents=True)
            (Path(folder) / source).write_text("")
            (Path(folder) / "output").write_text(f"../../{source}:{here[1].line}:7: error: no\nx.h:1:1: error: no\n")
            self.assertTrue(switches.drop_refused())
            (Path(folder) / "output").write_text("ninja: failed\n")
            self.assertFalse(switches.drop_refused())

        self.assertNotIn(here, switches.numbers)
        self.assertIn(here, switches.separate)


class TrialOfFault(unittest.TestCase):
    def setUp(self):
        self.ran = []
        self.trial = mutate.Trial([], ["tst_corvi_carrier", "tst_corvi_bounce", "tst_corvi_wired"], 1, 1)

    def outcome(self, reached, red=()):
        def passes(test, _limit, functions=(), **_environment):
            self.ran.append((test, *functions))
            return self.ran[-1] not in red
        self.trial.reached = reached
        with unittest.mock.patch.object(mutate, "passes", passes):
            return self.trial.try_switched("src/core/corvi_carrier.cpp", None, 3)

    def test_only_functions_that_reach_it_run_first(self):
        reached = {"tst_corvi_carrier": {3: ["b", "a"], 4: ["c"]}, "tst_corvi_bounce": {4: ["d"]}}

        self.assertEqual(("killed", "tst_corvi_carrier"), self.outcome(reached, [("tst_corvi_carrier", "b", "a")]))
        self.assertEqual([("tst_corvi_carrier", "b", "a")], self.ran)

    def test_survivor_saw_every_function(self):
        self.assertEqual(("survived", ""), self.outcome({"tst_corvi_carrier": {3: ["a"]}}))
        self.assertEqual([("tst_corvi_carrier", "a"), ("tst_corvi_carrier",)], self.ran)

    def test_that_only_comes_by_need_not_run_whole(self):
        self.outcome({"tst_modem": {3: ["a"]}, "tst_utils": {3: ["", "a"]}})

        self.assertEqual([("tst_modem", "a"), ("tst_utils",)], self.ran)

    def test_what_is_reached_before_the_functions_needs_all(self):
        self.outcome({"tst_corvi_carrier": {3: ["initTestCase", "a"]}}, [("tst_corvi_carrier",)])

        self.assertEqual([("tst_corvi_carrier",)], self.ran)

    def test_builds_the_tests_of_faults_without_a_switch(self):
        self.trial.switches.separate = [("src/core/corvi_wired.cpp", None)]

        self.assertIn("tst_corvi_wired", self.trial.wanted_tests())

    def test_nothing_reaches_it(self):
        self.assertEqual(("survived", "reached by no test"), self.outcome({"tst_corvi_carrier": {4: ["a"]}}))

    def test_test_that_always_fails_kills_nothing(self):
        with unittest.mock.patch.object(mutate, "passes", lambda *_, **__: False), \
                unittest.mock.patch.object(mutate, "BUILD", Path(tempfile.mkdtemp())), \
                contextlib.redirect_stdout(io.StringIO()) as said:
            self.trial.look_without_fault("tst_corvi_carrier")

        self.assertEqual({}, self.trial.reached)
        self.assertRegex(said.getvalue(), "tst_corvi_carrier fails without a fault.* /.*/tst_corvi_carrier.output")


class FunctionsByFault(unittest.TestCase):
    def test_order_is_that_of_the_run(self):
        notes = "3 b\n4 b\n3 a\n3 b\n3 \n"

        self.assertEqual({3: ["b", "a", ""], 4: ["b"]}, mutate.functions_by_fault(notes))


class Passing(unittest.TestCase):
    def test_needs_success_and_totals(self):
        for status, text, expected in [(0, "PASS\nTotals: 1 passed\n", True), (1, "FAIL\nTotals: 0 passed\n", False),
                                       (0, "PASS\n", False), (None, "PASS\n", False)]:
            def execute(_command, _limit, output, **_options):
                output.write_text(text)
                return status
            with self.subTest(text), unittest.mock.patch.object(mutate, "execute", execute):
                self.assertEqual(expected, mutate.passes("tst_modem", 1))


class TestsOfSource(unittest.TestCase):
    def test_own_name_first(self):
        tests = ["tst_corvi_dhcp", "tst_corvi_carrier", "tst_corvi_bounce", "tst_modem", "tst_corvi_carrier_more"]

        self.assertEqual(["tst_corvi_carrier", "tst_corvi_carrier_more", "tst_corvi_bounce", "tst_corvi_dhcp"],
                         mutate.tests_of("src/core/corvi_carrier.cpp", tests))

    def test_table_names_files_and_tests(self):
        for name, patterns in mutate.MORE_TESTS.items():
            with self.subTest(name):
                self.assertTrue((mutate.TOP / name).is_dir() or (mutate.TOP / f"{name}.cpp").is_file())
                for pattern in patterns:
                    self.assertTrue(mutate.fnmatch.filter(mutate.unit_tests(), pattern), pattern)

    def test_each_source_has_tests(self):
        for pattern in ("src/*/*.cpp", "platform/*/*.cpp", "tools/*.cpp"):
            for path in mutate.TOP.glob(pattern):
                with self.subTest(path.name):
                    self.assertTrue(mutate.tests_of(str(path.relative_to(mutate.TOP)), mutate.unit_tests()))


if __name__ == "__main__":
    unittest.main()
