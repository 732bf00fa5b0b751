# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""The platform's own commands, as the daemon runs them."""

import shutil
import subprocess
from pathlib import Path

from harness import HOST_LIST, HOSTS, RESOLV_CONF, main, read, run
from scripts import FAKES, SCRIPTS, ScriptTest, calls, fake, script

DHCLIENT_CONF = Path("/etc/dhcp/dhclient.conf")


def update(listed="10.0.0.9\tprinter\n127.0.0.1\tlocalhost\n"):
    HOST_LIST.write_text(listed)
    script("update_hosts")


class UpdateHosts(ScriptTest):
    def test_adds_the_list_and_keeps_foreign_lines(self):
        update()

        lines = read(HOSTS).splitlines()
        self.assertEqual(lines[:2], ["127.0.0.1 localhost", "192.0.2.7 kept-by-the-site"])
        self.assertIn("10.0.0.9\tprinter", lines)
        self.assertEqual(run("getent", "hosts", "printer").split(), ["10.0.0.9", "printer"])

    def test_second_run_changes_nothing(self):
        update()
        before = HOSTS.stat()

        script("update_hosts")

        self.assertEqual((HOSTS.stat().st_ino, HOSTS.stat().st_mtime_ns), (before.st_ino, before.st_mtime_ns))

    def test_new_list_replaces_the_old_one(self):
        update()

        update("10.0.0.10\tscanner\n")

        self.assertIn("scanner", read(HOSTS))
        self.assertNotIn("printer", read(HOSTS))
        self.assertIn("kept-by-the-site", read(HOSTS))

    def test_lines_added_after_the_block_are_kept(self):
        update()
        with HOSTS.open("a") as hosts:
            hosts.write("192.0.2.8 added-later\n")

        update("10.0.0.10\tscanner\n")

        self.assertIn("192.0.2.8 added-later", read(HOSTS))

    def test_block_without_an_end_loses_no_line(self):
        update()
        HOSTS.write_text(read(HOSTS).replace("# END corvi hosts\n", "192.0.2.8 after-the-cut\n"))

        script("update_hosts")

        self.assertIn("192.0.2.8 after-the-cut", read(HOSTS))

    def test_lines_that_are_no_host_entries_are_left_out(self):
        update("rubbish\n10.0.0.9\tprinter\n# BEGIN corvi hosts\n10.0.0.11\n")

        self.assertNotIn("rubbish", read(HOSTS))
        self.assertNotIn("10.0.0.11", read(HOSTS))
        self.assertIn("printer", read(HOSTS))

    def test_missing_list_changes_nothing(self):
        before = read(HOSTS)

        script("update_hosts", expect=1)

        self.assertEqual(read(HOSTS), before)

    def test_list_that_is_a_link_is_refused(self):
        HOST_LIST.symlink_to("/etc/passwd")

        script("update_hosts", expect=1)

        self.assertNotIn("BEGIN", read(HOSTS))

    def test_hosts_file_stays_readable_for_all(self):
        update()

        self.assertEqual(HOSTS.stat().st_mode & 0o777, 0o644)

    def test_empty_folder_becomes_the_hosts_file(self):
        HOSTS.unlink()
        HOSTS.mkdir()

        update()

        self.assertIn("printer", read(HOSTS))

    def test_filled_folder_gets_no_file(self):
        HOSTS.unlink()
        (HOSTS / "kept").mkdir(parents=True)
        self.addCleanup(shutil.rmtree, HOSTS)
        HOST_LIST.write_text("10.0.0.9\tprinter\n")

        script("update_hosts", expect=2)

        self.assertEqual([entry.name for entry in HOSTS.iterdir()], ["kept"])

    def test_link_into_a_folder_that_is_gone_becomes_a_file(self):
        HOSTS.unlink()
        HOSTS.symlink_to("/run/gone/hosts")
        HOST_LIST.write_text("10.0.0.9\tprinter\n")

        script("update_hosts")

        self.assertFalse(HOSTS.is_symlink())
        self.assertIn("printer", read(HOSTS))

    def test_link_to_the_hosts_file_is_kept(self):
        real = Path("/etc/hosts.real")
        HOSTS.rename(real)
        self.addCleanup(real.unlink)
        HOSTS.symlink_to(real)
        self.addCleanup(HOSTS.unlink)

        update()

        self.assertTrue(HOSTS.is_symlink())
        self.assertIn("printer", read(real))


class InitHostname(ScriptTest):
    def setUp(self):
        super().setUp()
        name, stored = run("hostname").strip(), read("/etc/hostname")
        self.addCleanup(lambda: (run("hostname", name), Path("/etc/hostname").write_text(stored)))

    def test_name_that_is_set_stays(self):
        run("hostname", "chosen-by-the-site")

        script("init_hostname")

        self.assertEqual(run("hostname").strip(), "chosen-by-the-site")

    def test_unset_name_comes_from_the_file(self):
        run("hostname", "localhost")
        Path("/etc/hostname").write_text("from-the-file\n")

        script("init_hostname")

        self.assertEqual(run("hostname").strip(), "from-the-file")

    def test_name_is_made_from_the_address(self):
        self.cable("eth0")
        run("ip", "link", "set", "dev", "eth0", "address", "02:00:00:ab:cd:ef")
        run("hostname", "localhost")
        Path("/etc/hostname").unlink()

        script("init_hostname")

        self.assertEqual(run("hostname").strip(), "client-abcdef")
        self.assertEqual(read("/etc/hostname"), "client-abcdef\n")

    def test_failure_is_told_and_leaves_no_file_behind(self):
        run("hostname", "localhost")
        Path("/etc/hostname").write_text("")
        fake("hostname", "[ $# = 0 ] && echo localhost")
        fake("mv", "exit 1")

        script("init_hostname", expect=1)

        self.assertEqual(list(Path("/etc").glob("*.new.*")), [])

    def test_dhcp_client_configuration_is_made_and_is_valid(self):
        DHCLIENT_CONF.unlink(missing_ok=True)

        script("init_hostname")

        # The client reads its configuration before it looks at the interface.
        output = subprocess.run(["dhclient", "-v", "-1", "-cf", DHCLIENT_CONF, "none0"], capture_output=True,
                                text=True, timeout=20, check=False).stderr
        self.assertNotRegex(output, r"line \d+|expected|unknown")
        self.assertIn("none0", output)

    def test_dhcp_client_is_told_not_to_hold_the_daemon_for_long(self):
        DHCLIENT_CONF.unlink(missing_ok=True)

        script("init_hostname")

        self.assertEqual(read(DHCLIENT_CONF), read(SCRIPTS / "dhclient.conf"))
        settings = [line for line in read(DHCLIENT_CONF).splitlines() if not line.startswith("#")]
        self.assertEqual(settings[-3:], ["timeout 10;", "reboot 2;", "retry 20;"])
        self.assertEqual(DHCLIENT_CONF.stat().st_mode & 0o777, 0o644)

    def test_dhcp_client_configuration_that_is_there_stays(self):
        DHCLIENT_CONF.write_text("timeout 7;\n")

        script("init_hostname")

        self.assertEqual(read(DHCLIENT_CONF), "timeout 7;\n")


class SetupResolved(ScriptTest):
    def test_missing_file_is_made(self):
        RESOLV_CONF.unlink()

        script("setup_resolved")

        self.assertTrue(RESOLV_CONF.is_file())

    def test_link_to_nothing_becomes_a_file(self):
        RESOLV_CONF.unlink()
        RESOLV_CONF.symlink_to("/run/gone/resolv.conf")

        script("setup_resolved")

        self.assertFalse(RESOLV_CONF.is_symlink())
        self.assertTrue(RESOLV_CONF.is_file())

    def test_empty_folder_becomes_a_file(self):
        RESOLV_CONF.unlink()
        RESOLV_CONF.mkdir()

        script("setup_resolved")

        self.assertTrue(RESOLV_CONF.is_file())

    def test_filled_folder_is_left_alone(self):
        RESOLV_CONF.unlink()
        (RESOLV_CONF / "kept").mkdir(parents=True)

        script("setup_resolved", expect=1)

        self.assertEqual([entry.name for entry in RESOLV_CONF.iterdir()], ["kept"])
        self.assertEqual(list(Path("/etc").glob("resolv.conf.new.*")), [])

    def test_readable_file_stays(self):
        RESOLV_CONF.write_text("nameserver 192.0.2.1\n")

        script("setup_resolved")

        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.1\n")


class Warnings(ScriptTest):
    def test_reaches_the_system_log(self):
        fake("logger", "")

        script("warning", "2", "Wrong password", "Check it -- now")

        self.assertEqual(calls(), ["logger -t warning -p user.warning -- Wrong password: Check it -- now"])

    def test_without_a_system_log_it_is_printed(self):
        fake("logger", "exit 1")

        result = subprocess.run([SCRIPTS / "warning", "2", "Wrong password", "Check it"], capture_output=True, text=True,
                                env={"PATH": f"{FAKES}:/usr/bin"}, check=True)

        self.assertEqual(result.stderr, "warning: Wrong password: Check it\n")

    def test_association_hook_leaves_a_note_and_succeeds(self):
        fake("logger", "exit 1")

        script("on_wifi_assoc")

        self.assertEqual(calls(), ["logger -t on_wifi_assoc Wi-Fi associated"])


if __name__ == "__main__":
    main()
