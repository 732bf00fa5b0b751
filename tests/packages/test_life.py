# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""What happens to a machine from the packages' installation to their removal."""

import subprocess
import time
import unittest

from harness import STATIC, holds_for, run, store_text, wait_for, wired
from machine import STORE, USED_STORE, PackageTest, packages

DHCP_STORE = store_text(wired())
STATIC_STORE = store_text(wired(**STATIC))

# A service of a device that needs the network at its start.
NEEDY_UNIT = """[Unit]
Wants=network-online.target
After=network-online.target
[Service]
Type=oneshot
ExecStart=/bin/sh -c 'ip -br -4 address show dev eth0 >/run/found'
"""


class Outage:
    """The longest time without an answer to a ping from the far end, in seconds. As a context manager."""

    PERIOD = 0.2

    def __init__(self, machine, address):
        self.command = ["ip", "netns", "exec", machine.cable.netns, "ping", "-n", "-O", "-D", "-i", str(self.PERIOD),
                        address]
        self.longest = None

    def __enter__(self):
        self.process = subprocess.Popen(self.command, stdout=subprocess.PIPE, text=True)
        return self

    def __exit__(self, *exception):
        self.process.terminate()
        output, _ = self.process.communicate()
        answers = [int(word[9:]) for line in output.splitlines() if "time=" in line
                   for word in line.split() if word.startswith("icmp_seq=")]
        gaps = [after - before for before, after in zip(answers, answers[1:])]
        self.longest = (max(gaps) - 1) * self.PERIOD if gaps else float("inf")


class Life(PackageTest):
    def given_running(self, store=DHCP_STORE):
        """A machine that was set up and rebooted, and its address."""
        machine = self.given_machine(self.installed)
        path = machine.root / STORE[1:]
        path.write_text(store)
        path.chmod(0o600)
        machine.boot()
        return machine, machine.wait_address()

    def test_from_installation_to_the_first_address(self):
        machine = self.given_machine()
        machine.boot()

        machine.install(*packages("corvi", "libzeb3-3"))

        self.assertFalse(machine.is_active())
        self.assertEqual(machine.run("systemctl", "is-enabled", "corvi").strip(), "enabled")
        self.assertNotIn("LOWER_UP", machine.run("ip", "link", "show", "dev", "eth0"))
        self.assertEqual(machine.run("systemctl", "--failed", "--no-legend"), "")

        machine.run("install", "-m", "600", "/usr/share/doc/corvi/examples/wired.xml", STORE)
        machine.reboot()

        self.assertTrue(machine.server.serves(machine.wait_address()))
        self.assertTrue(machine.is_active())
        self.assertEqual(machine.run("stat", "-c", "%U %a", USED_STORE).strip(), "root 600")

    def test_installation_where_a_store_is_starts_the_daemon(self):
        machine = self.given_machine()
        machine.boot()
        machine.write(STORE, DHCP_STORE)

        machine.install(*packages("corvi", "libzeb3-3"))

        self.assertTrue(machine.is_active())
        machine.wait_address()

    def test_restart_keeps_the_network(self):
        machine, address = self.given_running()

        with Outage(machine, address) as outage:
            machine.run("systemctl", "restart", "corvi")
            time.sleep(10)  # the time in which the daemon configures the interface again

        self.assertLessEqual(outage.longest, 3.0)
        self.assertTrue(machine.is_active())

    def test_upgrade_keeps_the_network(self):
        machine, address = self.given_running()
        before = machine.pid()

        with Outage(machine, address) as outage:
            machine.install(*[newer(file) for file in packages("corvi", "libzeb3-3")])
            time.sleep(10)  # as above

        self.assertLessEqual(outage.longest, 3.0)
        self.assertTrue(machine.is_active())
        self.assertNotEqual(machine.pid(), before)
        self.assertIn("+next", machine.run("dpkg-query", "-W", "corvi"))
        self.assertEqual(machine.read(STORE), DHCP_STORE)

    def test_stop_keeps_the_network(self):
        machine, address = self.given_running()

        with Outage(machine, address) as outage:
            machine.run("systemctl", "stop", "corvi")
            time.sleep(5)  # longer than the pause before a restart

        self.assertFalse(machine.is_active())
        self.assertLessEqual(outage.longest, 1.0)
        self.assertEqual(machine.addresses(), [address])

    def test_daemon_comes_back(self):
        machine, address = self.given_running()
        ends = {
            "kill file": lambda: machine.run_as_user("touch", "/tmp/kill_corvi"),
            "folder at its name": lambda: machine.run_as_user("mkdir", "-p", "/tmp/kill_corvi/of/a/user"),
            "SIGKILL": lambda: machine.run("systemctl", "kill", "--kill-whom=main", "--signal=KILL", "corvi"),
            "SIGTERM": lambda: machine.run("systemctl", "kill", "--kill-whom=main", "corvi"),
        }
        for name, end in ends.items():
            with self.subTest(name):
                before = machine.pid()

                end()

                # The tick's end, the pause of 2 s, the start: 2.6 to 3.3 s, seen beside thirty busy processes, too.
                wait_for("another daemon", lambda: machine.pid() not in (0, before) and machine.is_active(), timeout=5)
                after = machine.pid()
                # Several ticks: nothing of it ends the next one, too.
                holds_for("it stays", lambda: machine.pid() == after, 4)
        machine.wait_address(lambda found: found == address)

    def test_hangup_is_a_reload(self):
        machine, _ = self.given_running()
        before = machine.pid()

        machine.write(USED_STORE, STATIC_STORE)
        machine.run("systemctl", "kill", "--kill-whom=main", "--signal=HUP", "corvi")

        machine.wait_address(lambda address: address == STATIC["ipAddress"])
        self.assertEqual(machine.pid(), before)

    def test_reload_puts_an_edited_store_in_force(self):
        machine, _ = self.given_running()
        before = machine.pid()

        machine.write(STORE, STATIC_STORE)
        machine.run("systemctl", "reload", "corvi")

        machine.wait_address(lambda address: address == STATIC["ipAddress"])
        self.assertEqual(machine.pid(), before)

    def given_needy_service(self, store=None):
        """A machine that was booted with a service that needs the network."""
        machine = self.given_machine(self.installed)
        if store:
            (machine.root / STORE[1:]).write_text(store)
        units = machine.root / "etc/systemd/system"
        (units / "needy.service").write_text(NEEDY_UNIT)
        (units / "multi-user.target.wants/needy.service").symlink_to("../needy.service")
        machine.boot()
        return machine, machine.run("cat", "/run/found").split()

    def test_service_begins_when_the_network_is_online(self):
        machine, found = self.given_needy_service(DHCP_STORE)

        self.assertEqual(len(found), 3, found)
        self.assertTrue(machine.server.serves(found[2].split("/")[0]))

    def test_service_waits_for_no_network_that_nobody_sets_up(self):
        machine, found = self.given_needy_service()

        self.assertEqual(found, [])
        self.assertEqual(machine.show("ExecMainStartTimestampMonotonic", unit="corvi-wait-online.service"), "0")

    def test_store_below_a_users_folder_is_not_obeyed(self):
        machine = self.given_machine(self.installed)
        machine.boot()
        machine.run("rm", "-rf", "/tmp/config")
        machine.run_as_user("mkdir", "-p", "/tmp/config/xmlconfig/user/hardware")
        machine.write(STORE, STATIC_STORE)

        machine.run("systemctl", "start", "corvi")

        machine.wait_address(lambda address: address == STATIC["ipAddress"])
        owners = machine.run("stat", "-c", "%U", "/tmp/config", "/tmp/config/xmlconfig/user/hardware", USED_STORE)
        self.assertEqual(owners.split(), ["root"] * 3)

    def test_names_in_tmp_are_roots_from_the_boot_on(self):
        machine = self.given_machine(self.installed)
        machine.boot()
        listing = ["find", "/tmp", "-maxdepth", "1", "-name", "qipc_*", "-user", "root", "-printf", "%f %i\n"]
        made_at_boot = sorted(machine.run(*listing).splitlines())
        self.assertEqual(len(made_at_boot), 2)
        machine.write(STORE, STATIC_STORE)

        machine.run("systemctl", "start", "corvi")
        machine.wait_address()

        self.assertEqual(sorted(machine.run(*listing).splitlines()), made_at_boot)

    def test_removal_keeps_the_network_and_purge_leaves_nothing(self):
        machine, address = self.given_running()

        with Outage(machine, address) as outage:
            machine.run("apt-get", "remove", "--yes", "corvi", "libzeb3-3")
        self.assertLessEqual(outage.longest, 1.0)
        self.assertEqual(machine.read(STORE), DHCP_STORE)
        machine.run("apt-get", "purge", "--yes", "corvi", "libzeb3-3")

        self.assertEqual(machine.addresses(), [address])
        left = machine.run("find", "/", "-xdev", "(", "-iname", "*corvi*", "-o", "-iname", "*zeb*", "-o", "-path",
                           "/usr/network*", "-o", "-path", "/tmp/*", "-o", "-name", "wpa_supplicant.log", ")",
                           "-not", "-path", "/root/*", "-not", "-path", "/proc/*", "-not", "-path", "/tmp/.*-unix",
                           "-not", "-path", "/tmp/systemd-private-*", "-not", "-path", "/var/log/journal/*")
        self.assertEqual(left, "")
        # There was none before.
        self.assertFalse((machine.root / "etc/hosts").exists(), machine.read("/etc/hosts"))

    def test_unit_is_hardened(self):
        machine = self.given_machine(self.installed)
        machine.boot()

        report = machine.run("systemd-analyze", "security", "corvi.service", check=False)

        exposure = float(report.split("Overall exposure level for corvi.service: ")[1].split()[0])
        self.assertLessEqual(exposure, 3.0)
        self.assertNotIn("corvi", machine.run("systemd-analyze", "verify", "corvi.service", check=False))
        # Before the daemon forbids itself core files, and for what it starts.
        self.assertEqual(machine.show("LimitCORE", "LimitCORESoft").split(), ["0", "0"])


def newer(file):
    """The same package with a later version."""
    folder = f"/tmp/newer/{file.rsplit('/', 1)[1]}"
    run("mkdir", "-p", "/tmp/newer")
    run("dpkg-deb", "-R", file, folder)
    run("sed", "-i", r"s/^Version: .*/&+next/; s/\(libzeb3-3 (= [^)]*\))/\1+next)/", f"{folder}/DEBIAN/control")
    run("dpkg-deb", "--root-owner-group", "-b", folder, f"{folder}.deb")
    return f"{folder}.deb"


if __name__ == "__main__":
    unittest.main(verbosity=2)
