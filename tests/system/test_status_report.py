# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""The archive for a support engineer: all that is asked for, and no secret, nor in anything else that tells."""

import datetime
import random
import re
import shutil
import subprocess
import tarfile
from pathlib import Path

from dot1x import SUPPLICANT_LOG
from harness import (LOG, STATUS_TOOL, STORE, SUPPLICANT_FILE, SystemTest, main, network, read, run,
                     store_text, wait_for, wired, write_store, write_store_bytes)

FOLDER = Path("/tmp/reports")
STATE_FOLDER = Path("/run/corvi")
LAST_GOOD = Path("/var/lib/corvi/last-good.xml")
TRANSCRIPT = Path("/tmp/dhclient.log")
ENTRIES = {"networkconfig.xml", "last-good.xml", "wpa_supplicant.conf", "status.txt", "status.json", "state.json",
           "corvi-mon.log", "wpa_supplicant.log", "dhclient.log", "dhclient.leases", "dhclient.conf", "resolv.conf",
           "os-release", "ip-address.txt", "ip-route.txt", "unit.txt", "unit-properties.txt", "journal.txt",
           "kernel.txt", "packages.txt", "wpa_supplicant-version.txt", "dhclient-version.txt"}


class Canaries:
    """Random secrets, to be found again wherever they may not be."""

    def __init__(self, seed):
        self.random = random.Random(seed)
        self.all = []

    def make(self):
        letters = self.random.choices("abcdefghijkmnpqrstuvwxyz23456789&<'", k=14)
        self.all.append("canary" + "".join(letters))
        return self.all[-1]

    def forms(self):
        for canary in self.all:
            data = canary.encode()
            yield from (data, data.hex().encode(), data.hex().upper().encode(),
                        canary.replace("&", "&amp;").replace("<", "&lt;").encode())


class ReportTest(SystemTest):
    def setUp(self):
        super().setUp()
        shutil.rmtree(FOLDER, ignore_errors=True)
        FOLDER.mkdir()
        STATE_FOLDER.mkdir(exist_ok=True)

    def write(self):
        """The archive's files, by name."""
        archive = Path(run(STATUS_TOOL, "--report", FOLDER, timeout=120).strip())
        self.assertEqual(archive.stat().st_mode & 0o7777, 0o600)
        self.assertEqual(list(FOLDER.iterdir()), [archive])
        with tarfile.open(archive) as tar:
            return {Path(member.name).name: tar.extractfile(member).read() for member in tar if member.isfile()}


class Report(ReportTest):
    def test_holds_what_is_asked_for(self):
        server = self.dhcp_server(self.cable())
        write_store(wired())
        self.start_daemon()
        address = self.wait_address("eth0", server.serves)
        wait_for("the transcript, written when the client is done", TRANSCRIPT.exists)

        files = self.write()

        self.assertEqual(set(files), ENTRIES)
        self.assertIn(b"<name>lan</name>", files["networkconfig.xml"])
        self.assertIn(b"Corvi::Start()", files["corvi-mon.log"])
        self.assertIn(b"bound to", files["dhclient.log"])
        for entry in ("status.txt", "status.json", "ip-address.txt"):
            self.assertIn(address.encode(), files[entry], entry)
        self.assertIn(b"isc-dhclient", files["dhclient-version.txt"])

    def test_long_log_is_cut_at_a_line(self):
        with open(LOG, "w", encoding="utf-8") as log:
            for number in range(60000):
                log.write(f"line {number:09}\n")

        files = self.write()

        lines = files["corvi-mon.log"].decode().splitlines()
        self.assertEqual(lines[-1], "line 000059999")
        self.assertTrue(all(len(line) == 14 for line in lines))
        self.assertGreater(len(lines), 30000)

    def test_folder_that_cannot_be_written(self):
        result = subprocess.run([STATUS_TOOL, "--report", "/proc/nowhere"], capture_output=True, text=True, check=False)

        self.assertEqual(result.returncode, 1)
        self.assertTrue(result.stderr.startswith("corvi-status: "))

    def test_empty_name_of_a_folder(self):
        result = subprocess.run([STATUS_TOOL, "--report", ""], capture_output=True, text=True, check=False)

        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertEqual(result.stderr, "corvi-status: --report needs a folder\n")

    def test_says_nothing_else(self):
        result = subprocess.run([STATUS_TOOL, "--report", FOLDER], capture_output=True, text=True, check=True)

        self.assertEqual(result.stderr, "")

    def test_links_at_the_archive_s_name(self):
        elsewhere = Path("/tmp/elsewhere")
        now = datetime.datetime.now()
        for second in range(120):
            name = (now + datetime.timedelta(seconds=second)).strftime("corvi-report-%Y%m%d-%H%M%S.tar.gz")
            (FOLDER / name).symlink_to(elsewhere)

        archive = Path(run(STATUS_TOOL, "--report", FOLDER, timeout=100).strip())

        self.assertFalse(elsewhere.exists())
        self.assertFalse(archive.is_symlink())
        self.assertTrue(tarfile.is_tarfile(archive))

    def test_another_file_under_the_name_of_a_log(self):
        for kind in ("symbolic link", "second name"):
            with self.subTest(kind):
                secret = Path("/tmp/only-for-root")
                secret.write_text("of nobody's business\n", encoding="utf-8")
                self.addCleanup(secret.unlink, missing_ok=True)
                TRANSCRIPT.unlink(missing_ok=True)
                self.addCleanup(TRANSCRIPT.unlink, missing_ok=True)
                (TRANSCRIPT.symlink_to if kind == "symbolic link" else TRANSCRIPT.hardlink_to)(secret)

                files = self.write()

                self.assertNotIn(b"business", files["dhclient.log"])
                shutil.rmtree(FOLDER)
                FOLDER.mkdir()

    def test_ordinary_user(self):
        write_store(wired(password="a-secret-of-root"))
        STORE.chmod(0o600)
        FOLDER.chmod(0o777)

        run("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", STATUS_TOOL, "--report", FOLDER)

        archive = next(FOLDER.iterdir())
        self.assertEqual(archive.stat().st_uid, 65534)
        with tarfile.open(archive) as tar:
            store = next(tar.extractfile(member).read() for member in tar if member.name.endswith("networkconfig.xml"))
        self.assertEqual(store, b"cannot be read: Permission denied\n")


class Secrets(ReportTest):
    def store_of(self, canaries):
        networks = []
        for number in range(160):
            definition = network(f"lan{number:03}", securityMode="802.1X (PEAP/MSCHAPv2)", identity="me",
                                 password=canaries.make(), passphrase=canaries.make(),
                                 privateKeyPassword=canaries.make(), pasword=canaries.make(),
                                 Passphrase=canaries.make())
            comment = canaries.make().replace("<", "").replace("&", "")
            canaries.all[-1] = comment
            networks.append(definition + f"<!-- {comment} -->\n")
        return store_text(*networks, key=canaries.make())

    def outputs(self):
        """All that any tool tells, by what tells it."""
        told = {f"report: {name}": content for name, content in self.write().items()}
        for options in (["--all"], ["--all", "--json"], ["--json"], []):
            told[" ".join(["status", *options])] = run(STATUS_TOOL, *options, check=False).encode()
        told["state"] = (STATE_FOLDER / "state.json").read_bytes()
        told["log"] = LOG.read_bytes()
        return told

    def assert_silent(self, canaries):
        forms = list(canaries.forms())
        for name, content in self.outputs().items():
            for form in forms:
                if form in content:
                    self.fail(f"{name} holds {form}")

    def test_thousand_canaries(self):
        canaries = Canaries(20261121)
        server = self.dhcp_server(self.cable())
        write_store_bytes(self.store_of(canaries).encode())
        extra = Path("/tmp/config/files/wpa_supp_conf")
        extra.parent.mkdir(parents=True, exist_ok=True)
        while len(canaries.all) < 1000:
            with open(extra, "a", encoding="utf-8") as lines:
                lines.write(f"# {canaries.make()}\n")
        Path("/tmp/debug_corvi").touch()
        self.start_daemon()
        wait_for("the supplicant's file", lambda: "hash:" in read(SUPPLICANT_FILE), 60)
        hashes = re.findall("hash:([0-9a-f]{32})", read(SUPPLICANT_FILE))
        self.assertGreater(len(hashes), 100)
        canaries.all += hashes
        self.assertIn(canaries.all[0], STORE.read_text(encoding="utf-8").replace("&amp;", "&").replace("&lt;", "<"))
        del server

        self.assert_silent(canaries)

    def test_large_store(self):
        write_store_bytes((store_text(wired(password="open-sesame")) + "\n" * 2_000_000).encode())
        SUPPLICANT_LOG.write_text("eth0: open-sesame was not accepted\n")
        self.addCleanup(SUPPLICANT_LOG.unlink)

        files = self.write()

        self.assertIn(b"<name>lan</name>", files["networkconfig.xml"])
        self.assertEqual(files["wpa_supplicant.log"], b"eth0: ******** was not accepted\n")

    def test_secret_that_a_log_tells(self):
        write_store(wired(password="open-sesame"))
        SUPPLICANT_LOG.write_text("eth0: open-sesame was not accepted\n")
        self.addCleanup(SUPPLICANT_LOG.unlink)

        files = self.write()

        self.assertEqual(files["wpa_supplicant.log"], b"eth0: ******** was not accepted\n")

    def test_secret_behind_the_error_of_a_broken_store(self):
        write_store(wired(password="open-sesame"))
        self.start_daemon()
        wait_for("the last good version", lambda: "open-sesame" in read(LAST_GOOD))
        write_store_bytes(b"<networkconfig><network><name></wrong>" + store_text(wired(password="open-sesame")).encode())
        SUPPLICANT_LOG.write_text("eth0: open-sesame was not accepted\n")
        self.addCleanup(SUPPLICANT_LOG.unlink)

        files = self.write()

        self.assertEqual(files["wpa_supplicant.log"], b"eth0: ******** was not accepted\n")
        self.assertIn(b"<name>lan</name>", files["last-good.xml"])


if __name__ == "__main__":
    main()
