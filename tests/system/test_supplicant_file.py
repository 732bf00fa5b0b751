# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""From the store to the supplicant's file, through the daemon. The radio is a folder: the kernel's network class
directory is covered by one in which wlan0 is wireless."""

import hashlib
import os
import shutil
import stat
from pathlib import Path

from harness import (DEBUG_FLAG, LOG, SUPPLICANT_FILE, SystemTest, answer, journal, main, network, read, run, wait_for,
                     write_store)

CLASS = Path("/tmp/class")
SSID = "Café"
PASSPHRASE = "schlüssel7"


def key(ssid, passphrase):
    """IEEE 802.11-2020, J.4.1"""
    return hashlib.pbkdf2_hmac("sha1", passphrase.encode(), ssid.encode(), 4096, 32).hex()


def personal(ssid=SSID, passphrase=PASSPHRASE):
    return network("Home", securityMode="WPA Personal 1/2", ssid=ssid, passphrase=passphrase)


class SupplicantFile(SystemTest):
    def setUp(self):
        super().setUp()
        self.cable("wlan0")
        answer("wpa_passphrase", 'wpa_passphrase "$@"')
        shutil.rmtree(CLASS, ignore_errors=True)
        (CLASS / "wlan0/wireless").mkdir(parents=True)
        for name, content in (("type", "1"), ("carrier", "0"), ("address", "02:00:00:00:00:01")):
            (CLASS / "wlan0" / name).write_text(content + "\n")
        run("mount", "--bind", CLASS, "/sys/class/net")
        self.addCleanup(run, "umount", "/sys/class/net")

    def start_in_locale(self, name):
        os.environ["LC_ALL"] = name
        self.addCleanup(os.environ.__setitem__, "LC_ALL", os.environ.get("LC_ALL", "C.UTF-8"))
        return self.start_daemon()

    def wait_written(self, *lines):
        wait_for(f"in the supplicant's file: {lines}",
                 lambda: all(f"\t{line}\n" in read(SUPPLICANT_FILE) for line in lines), 20)

    def test_key_is_that_of_the_ssid_line_whatever_the_locale(self):
        write_store(personal())

        self.start_in_locale("C")

        self.wait_written(f'ssid="{SSID}"', f"psk={key(SSID, PASSPHRASE)}")

    def test_supplicant_is_started_on_the_file(self):
        write_store(personal())

        self.start_daemon()

        wait_for("the supplicant's start", lambda: any(
            line.startswith("wpa_supplicant ") and "wlan0" in line and str(SUPPLICANT_FILE) in line
            for line in journal()), 20)
        self.assertIn("network={", read(SUPPLICANT_FILE))

    def test_change_of_the_definition_changes_the_file(self):
        write_store(personal())
        daemon = self.start_daemon()
        self.wait_written(f"psk={key(SSID, PASSPHRASE)}")

        write_store(personal(passphrase="another one"))
        daemon.rescan()

        self.wait_written(f'psk={key(SSID, "another one")}')

    def test_one_bad_definition_costs_no_other(self):
        write_store(network("Bad", securityMode="WPA Enterprise 1/2 (PEAP/GTC)", ssid="Bad", identity='a"#b'),
                    network("Short", securityMode="WPA Personal 1/2", ssid="Short", passphrase="short"), personal())

        daemon = self.start_daemon()

        self.wait_written(f'ssid="{SSID}"')
        self.assertEqual(read(SUPPLICANT_FILE).count("network={"), 1)
        daemon.wait_logged("network \"Bad\": identity: holds a number sign after a quote")
        daemon.wait_logged("Short")

    def test_no_secret_is_shown_and_the_file_is_private(self):
        DEBUG_FLAG.touch()
        write_store(personal())

        self.start_daemon()

        self.wait_written(f"psk={key(SSID, PASSPHRASE)}")
        self.assertEqual(stat.S_IMODE(SUPPLICANT_FILE.stat().st_mode), 0o600)
        shown = LOG.read_bytes() + Path("/tmp/corvi-output").read_bytes()
        self.assertIn(b"NetworkDevice::Load props", shown)
        for encoding in ("utf-8", "latin-1"):
            self.assertNotIn(PASSPHRASE.encode(encoding), shown)
        self.assertNotIn(key(SSID, PASSPHRASE).encode(), shown)


if __name__ == "__main__":
    main()
