#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Has a real wpa_supplicant read every .conf file of this folder.

A file passes when the supplicant starts on it, complains of no line, begins as
many networks as there are blocks, and has taken each text, key and number that
it repeats in its debug output as it stands in the file. For each file, copies
with one line broken must not pass. Run it in the sandbox.
"""

import re
import subprocess
import sys
from pathlib import Path

FOLDER = Path(__file__).resolve().parent
INTERFACE = "eth0"
COMPLAINT = re.compile(r"Line \d+: |invalid|unknown|unsupported|fail|warn|not allowed|ignor|removed |could not", re.I)


def read_by_supplicant(path):
    """What the supplicant prints up to the end of its start, and whether it started."""
    # Left behind by the one before, which was killed in the middle of its start.
    Path("/run/wpa_supplicant", INTERFACE).unlink(missing_ok=True)
    command = ["wpa_supplicant", "-ddK", "-Dwired", f"-i{INTERFACE}", f"-c{path}"]
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT) as supplicant:
        lines = []
        for line in supplicant.stdout:
            lines.append(line.decode("utf-8", "backslashreplace").rstrip("\n"))
            if lines[-1].startswith(f"{INTERFACE}: Added interface"):
                supplicant.kill()
                return lines, True
        return lines, False


def parser_lines(lines):
    """The part of the output that is about the file."""
    first = next(i for i, line in enumerate(lines) if line.startswith("Reading configuration file"))
    last = next((i for i, line in enumerate(lines) if line.startswith("Priority group")), len(lines))
    return lines[first + 1 : last]


def shown_values(lines):
    """What the supplicant says it took, in order: (key, value as bytes or text)."""
    shown = []
    for line in lines:
        dump = re.match(r"(\w+)(?: \([^)]*\))? - hexdump(_ascii)?\(len=(\d+)\):(.*)", line)
        plain = re.match(r"(\w+)=(-?\d+) \(0x[0-9a-f]+\)$", line)
        if dump:
            shown.append([dump[1], bytes.fromhex(dump[4]) if not dump[2] else b""])
        elif plain:
            shown.append([plain[1], plain[2]])
        elif shown and line.startswith("     "):
            shown[-1][1] += bytes.fromhex(line[5:53])
    return [(key.lower(), value) for key, value in shown]


def meant_values(lines):
    """What the file says, in the form of shown_values()."""
    meant = []
    for line in lines:
        key, _, value = line.strip().partition("=")
        if not line.startswith("\t") or not value:
            continue
        if value.startswith('"') and value.endswith('"'):
            meant.append((key, value[1:-1].encode()))
        elif key in ("psk", "wep_key0"):
            meant.append((key, bytes.fromhex(value)))
        elif value.startswith("hash:"):
            meant.append((key, bytes.fromhex(value[5:])))
        else:
            meant.append((key, value))
    return meant


def faults(path):
    output, started = read_by_supplicant(path)
    said = parser_lines(output)
    written = path.read_text(encoding="utf-8").split("\n")
    found = [] if started else ["the supplicant did not start on it"]
    found += [f"complaint: {line}" for line in said if COMPLAINT.search(line)]

    blocks = written.count("network={")
    begun = sum("start of a new network block" in line for line in said)
    if begun != blocks:
        found.append(f"{begun} networks begun of {blocks}")

    for setting in written[: written.index("")]:
        key, _, value = setting.partition("=")
        if not setting.startswith("#") and not {setting, f"{key}='{value}'"} & set(said):
            found.append(f"setting not taken: {setting}")

    # A number equal to the one in force is taken in silence; a text never is.
    meant = meant_values(written)
    shown = shown_values(said)
    for key, value in shown:
        if (key, value) not in meant:
            found.append(f"{key} taken as {value!r}")
    for key, value in meant:
        if isinstance(value, bytes) and (key, value) not in shown:
            found.append(f"{key} not taken as {value!r}")
    return found


def broken_copies(path):
    """Copies of a file that no supplicant should take as they stand, each with a name."""
    text = path.read_text(encoding="utf-8")
    yield "unknown setting", "no_such_setting=1\n" + text
    if "network={" not in text:
        return
    yield "unknown option", text.replace("network={\n", "network={\n\tno_such_option=1\n", 1)
    yield "unknown word", re.sub(r"key_mgmt=\S+", "key_mgmt=NO-SUCH", text, count=1)
    yield "block not closed", text[: text.rindex("}")]
    if '"' in text:
        yield "open quotes", re.sub(r'"\n', "\n", text, count=1)
    if "psk=" in text:
        yield "short key", re.sub(r"psk=..", "psk=", text, count=1)


def main():
    subprocess.run(["ip", "link", "add", INTERFACE, "type", "veth", "peer", "name", "peer0"], check=True)
    subprocess.run(["ip", "link", "set", "dev", INTERFACE, "up"], check=True)
    failed = 0
    files = sorted(FOLDER.glob("*.conf"))
    for path in files:
        found = faults(path)
        print(f"{path.name}: {'; '.join(found) or 'taken as it stands'}")
        failed += bool(found)

        copy = Path("/tmp/broken.conf")
        for name, text in broken_copies(path):
            copy.write_text(text, encoding="utf-8")
            if not faults(copy):
                print(f"{path.name} with {name}: this check finds no fault in it")
                failed += 1
    print(f"{len(files)} files, {failed} failures")
    return 1 if failed or not files else 0


if __name__ == "__main__":
    sys.exit(main())
