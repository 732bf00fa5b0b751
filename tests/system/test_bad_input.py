# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Stores and interfaces that are not as they should be."""

import os
import re
import threading

from harness import (ADDRESS_PRESENT, LOG, NO_CONFIGURATION, RELOAD_FLAG, STATIC, STORE, SystemTest, addresses,
                     holds_for, main, read, run, store_text, touch, wait_for, wired, write_store, write_store_bytes)

OTHER = {**STATIC, "ipAddress": "10.77.0.6"}


class Store(SystemTest):
    def setUp(self):
        super().setUp()
        self.lan = self.cable("eth0")
        self.listener = self.listen()

    def test_no_store_then_one_that_appears(self):
        daemon = self.start_daemon()
        self.wait_events(self.listener, NO_CONFIGURATION)

        write_store(wired(**STATIC))
        touch(RELOAD_FLAG)

        self.assertEqual(self.wait_address("eth0"), "10.77.0.5")
        daemon.assert_runs()

    def test_unusable_store_is_named_and_survived(self):
        whole = store_text(wired(**STATIC)).encode()
        for label, content in (("empty", b""), ("cut in the middle", whole[:len(whole) // 2]),
                               ("no XML", b"nameserver 192.0.2.1\n"), ("zeros", b"\0" * 4096),
                               ("invalid UTF-8", whole.replace(b"lan", b"l\xff\xfen"))):
            with self.subTest(label):
                LOG.unlink(missing_ok=True)
                write_store_bytes(content)
                daemon = self.start_daemon()

                self.wait_events(self.listener, NO_CONFIGURATION)

                self.assertRegex(read(LOG), rf"{STORE}.*\d+")
                daemon.stop()
                self.listener.clear()

    def test_cut_store_leaves_the_last_good_one_in_force_until_it_is_whole(self):
        write_store(wired(**STATIC))
        daemon = self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)
        content = store_text(wired(**OTHER)).encode()

        self.listener.clear()
        write_store_bytes(content[:-30])
        touch(RELOAD_FLAG)
        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.assertEqual(addresses("eth0"), ["10.77.0.5"])
        self.assertIn(str(STORE), read(LOG))

        write_store_bytes(content)
        touch(RELOAD_FLAG)
        self.wait_address("eth0", lambda address: address == "10.77.0.6")
        daemon.assert_runs()

    def test_deleted_store_leaves_the_last_good_one_in_force(self):
        write_store(wired(**STATIC))
        self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.listener.clear()

        STORE.unlink()
        touch(RELOAD_FLAG)

        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.assertEqual(addresses("eth0"), ["10.77.0.5"])

    def test_store_that_is_no_file_does_not_block(self):
        for label, make in (("a pipe", os.mkfifo), ("a folder", os.mkdir),
                            ("a link to itself", lambda path: os.symlink(path, path))):
            with self.subTest(label):
                STORE.parent.mkdir(parents=True, exist_ok=True)
                make(STORE)
                daemon = self.start_daemon()

                self.wait_events(self.listener, NO_CONFIGURATION)

                daemon.stop()
                self.listener.clear()
                if STORE.is_dir():
                    STORE.rmdir()
                else:
                    STORE.unlink()

    def test_each_fault_is_told_once_for_each_change(self):
        write_store_bytes(b"<networkconfig><network>")
        daemon = self.start_daemon()
        daemon.wait_logged(str(STORE))

        for _ in range(2):
            daemon.rescan()
        self.assertEqual(read(LOG).count(str(STORE)), 1)

        write_store_bytes(b"<networkconfig>")
        for _ in range(2):
            daemon.rescan()
        self.assertEqual(read(LOG).count(str(STORE)), 2)


class Properties(SystemTest):
    # A property, a value that it cannot have, and what makes it matter.
    BAD = (("ipAddress", "10.77.0.256", {"staticIp": True, "netmask": "255.255.255.0"}),
           ("ipAddress", "10.77.0", {"staticIp": True, "netmask": "255.255.255.0"}),
           ("netmask", "255.0.255.0", {"staticIp": True, "ipAddress": "10.77.0.7"}),
           ("gateway", "somewhere", STATIC),
           ("dns1", "10.0.0.1; rm -rf /", {"staticDns": True}),
           ("dns2", "300.1.1.1", {"staticDns": True}),
           ("domain", "corp\nnameserver 6.6.6.6", {"staticDns": True}),
           ("mtu", "67", {}),
           ("mtu", "65536", {}),
           ("mtu", "large", {}),
           ("staticIp", "perhaps", {}),
           ("staticDns", "perhaps", {}),
           ("priority", "high", {}),
           ("band", "7 GHz", {}),
           ("ssid", "x" * 33, {}),
           ("scanSsid", "1", {}),
           ("useBgScan", "yes", {}),
           ("bgScanShortInterval", "soon", {}),
           ("bgScanSignal", "loud", {}),
           ("bgScanLongInterval", "-1", {}),
           ("wepKey", "12345", {}),
           ("passphrase", "two\nlines", {}),
           ("identity", "user\x7fname", {"securityMode": "802.1X (PEAP/MSCHAPv2)"}),
           ("password", "pass\u2028word", {"securityMode": "802.1X (PEAP/MSCHAPv2)"}),
           ("caCert", "../../shadow", {"securityMode": "802.1X (TLS/EAP)"}),
           ("clientCert", "../../shadow", {"securityMode": "802.1X (TLS/EAP)"}),
           ("privateKey", "../../shadow", {"securityMode": "802.1X (TLS/EAP)"}),
           ("privateKeyPassword", "two\nlines", {"securityMode": "802.1X (TLS/EAP)"}),
           ("pacFile", "../pac", {}),
           ("scep", "perhaps", {}),
           ("allowWeakCerts", "perhaps", {}),
           ("dot1xFallback", "sometimes", {}),
           ("securityMode", "WPA9", {}),
           ("speed", "100\tMbps\tFull", {}),
           ("hosts", ["10.0.0.9 printer\n6.6.6.6 bank"], {}),
           ("favouriteColour", "green", {}))

    def test_every_bad_value_is_named_with_its_network(self):
        self.cable("eth0")
        write_store(*(wired(f"lan{number}", **{**context, key: value})
                      for number, (key, value, context) in enumerate(self.BAD)))

        daemon = self.start_daemon()
        daemon.wait_logged("Corvi::Loop Force Rescan")

        wait_for("faults of all networks", lambda: len(set(re.findall(r"lan\d+", read(LOG)))) == len(self.BAD))
        lines = read(LOG).splitlines()
        for number, (key, value, _) in enumerate(self.BAD):
            with self.subTest(f"{key}={value!r}"):
                self.assertTrue(any(key in line and f"lan{number}" in line.replace('"', " ").replace(":", " ").split()
                                    for line in lines), f"no line names lan{number} and {key}")
        # The log shows what is not in Latin-1 as "?".
        self.assertNotRegex(read(LOG), "pass.{1,3}word")
        daemon.assert_runs()

    def test_bad_value_falls_back_to_the_default(self):
        self.cable("eth0")
        write_store(wired(**{**STATIC, "mtu": "70000", "gateway": "nowhere"}))

        self.start_daemon()

        self.assertEqual(self.wait_address("eth0"), "10.77.0.5")
        self.assertEqual(read("/sys/class/net/eth0/mtu"), "1500\n")


class Interfaces(SystemTest):
    def test_names_of_fifteen_characters(self):
        name = "en-fifteen-char"
        self.assertEqual(len(name), 15)
        self.cable(name)
        write_store(wired(**STATIC))

        self.start_daemon()

        self.assertEqual(self.wait_address(name), "10.77.0.5")

    def test_interfaces_that_vanish_while_they_are_listed(self):
        self.cable("eth0")
        listener = self.listen()
        write_store(wired(**STATIC))
        daemon = self.start_daemon()
        self.wait_events(listener, ADDRESS_PRESENT)
        stop = threading.Event()

        def come_and_go():
            while not stop.is_set():
                run("ip", "link", "add", "name", "eth8", "type", "veth", "peer", "name", "eth9", check=False)
                run("ip", "link", "delete", "dev", "eth8", check=False)

        thread = threading.Thread(target=come_and_go)
        thread.start()
        try:
            for _ in range(6):
                daemon.rescan()
        finally:
            stop.set()
            thread.join()

        daemon.assert_runs()
        listener.clear()
        daemon.rescan()
        self.wait_events(listener, ADDRESS_PRESENT)

    def test_no_interface_at_all(self):
        write_store(wired(**STATIC))

        daemon = self.start_daemon()

        daemon.wait_logged("Corvi::Loop Force Rescan")
        holds_for("the daemon runs", daemon.runs, 3)


if __name__ == "__main__":
    main()
