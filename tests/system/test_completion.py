# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Command lines that bash completes, as bash does it."""

import os
import subprocess
from pathlib import Path

from harness import BUILD_DIR, SOURCE_DIR, SystemTest, main, run

COMPLETION = SOURCE_DIR / "packaging/corvi.bash-completion"
# Types a line, asks for what it may become, and prints that.
SCRIPT = """
. "$1"; shift
registered=$(complete -p "${1##*/}") || exit
function=${registered##*-F } function=${function%% *}
COMPREPLY=(of-the-line-before)
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
"$function" "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
printf '%s\\n' "${COMPREPLY[@]}"
"""


def completions(*words):
    """What the last word of a command line may become."""
    environment = {**os.environ, "PATH": f"{BUILD_DIR}/bin:{os.environ['PATH']}"}
    result = subprocess.run(["bash", "-c", SCRIPT, "bash", COMPLETION, *words], capture_output=True, text=True,
                            env=environment, check=True)
    return result.stdout.split()


class Completion(SystemTest):
    def test_options(self):
        self.assertEqual(completions("corvi-status", "--wa"), ["--watch", "--wait"])
        self.assertIn("--report", completions("corvi-status", "--"))
        self.assertEqual(completions("corvi-status", "-"), completions("corvi-status", "--"))
        self.assertEqual(completions("corvi-status", "--all", "--j"), ["--json"])
        self.assertEqual(completions("corvi-check", "--j"), ["--json"])

    def test_every_option_of_the_program(self):
        for tool in ("corvi-status", "corvi-check"):
            said = {word.strip(",") for word in run(BUILD_DIR / "bin" / tool, "--help").split()
                    if word.startswith("--")}
            self.assertEqual(set(completions(tool, "--")), said, tool)

    def test_interfaces(self):
        for name in ("eth0", "eth1", "wlan0"):
            run("ip", "link", "add", "name", name, "type", "veth")

        self.assertEqual(completions("corvi-status", "--wait", "--interface", "e"), ["eth0", "eth1"])
        self.assertNotIn("lo", completions("corvi-status", "--wait", "--interface", ""))
        self.assertEqual(completions("corvi-check", "--interfaces", "eth0,w"), ["eth0,wlan0"])

    def test_interface_whose_name_is_a_command(self):
        run("ip", "link", "add", "name", "e$(id)", "type", "veth")

        self.assertEqual(completions("corvi-status", "--interface", "e"), [])

    def test_folders_and_files(self):
        folder = Path("/tmp/completion")
        folder.mkdir()
        self.addCleanup(run, "rm", "-r", folder)
        (folder / "reports").mkdir()
        (folder / "rest.xml").touch()

        self.assertEqual(completions("corvi-status", "--report", f"{folder}/re"), [f"{folder}/reports"])
        self.assertEqual(sorted(completions("corvi-check", f"{folder}/re")),
                         [f"{folder}/reports", f"{folder}/rest.xml"])
        self.assertEqual(completions(f"{BUILD_DIR}/bin/corvi-check", f"{folder}/rest"), [f"{folder}/rest.xml"])
        self.assertEqual(completions("corvi-status", f"{folder}/re"), [])

    def test_nothing_for_a_number(self):
        self.assertEqual(completions("corvi-status", "--timeout", ""), [])
        self.assertEqual(completions("corvi-status", "--timeout", "-"), [])


if __name__ == "__main__":
    main()
