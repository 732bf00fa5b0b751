# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""The platform's own commands, as the daemon runs them."""

import os
import shutil
import subprocess
import sys
import time
from pathlib import Path

from harness import HOSTS, RESOLV_CONF, SystemTest, addresses, default_routes, main, read, run

SCRIPTS = Path(__file__).resolve().parents[2] / "platform/scripts"
HOST_LIST = Path("/tmp/.hostlist")
DHCLIENT_CONF = Path("/etc/dhcp/dhclient.conf")
FAKES = Path("/tmp/fakes")


def script(name, *arguments, expect=0, timeout=30):
    """Runs one of the scripts, with fakes (see fake()) before the real programs; its standard output."""
    result = subprocess.run([SCRIPTS / name, *arguments], capture_output=True, text=True, timeout=timeout, check=False,
                            env={**os.environ, "PATH": f"{FAKES}:{os.environ['PATH']}"})
    assert result.returncode == expect, f"{name}: status {result.returncode}, {result.stdout}{result.stderr}"
    return result.stdout


def update(listed="10.0.0.9\tprinter\n127.0.0.1\tlocalhost\n"):
    HOST_LIST.write_text(listed)
    script("update_hosts")


def fake(name, body):
    """A program of this name that notes its arguments in /tmp/fakes/calls and then runs the shell lines."""
    path = FAKES / name
    path.write_text(f'#!/bin/sh\necho "{name} $*" >>{FAKES}/calls\n{body}\n')
    path.chmod(0o755)


def calls():
    return read(FAKES / "calls").splitlines()


class ScriptTest(SystemTest):
    def setUp(self):
        super().setUp()
        shutil.rmtree(FAKES, ignore_errors=True)
        FAKES.mkdir()


class StopDhclient(ScriptTest):
    def start_client(self, *arguments, body="import time; print(flush=True); time.sleep(60)"):
        """A process that is called dhclient and, unlike a shell script, shows as such."""
        program = FAKES / "dhclient"
        if not program.exists():
            shutil.copy(os.path.realpath(sys.executable), program)
        process = subprocess.Popen([program, "-c", body, *arguments], stdout=subprocess.PIPE)
        process.stdout.readline()
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def given_default_route(self, name, metric):
        self.cable(name)
        run("ip", "addr", "add", f"10.{metric}.0.2/24", "dev", name)
        run("ip", "link", "set", "dev", name, "up")
        run("ip", "route", "add", "default", "via", f"10.{metric}.0.1", "dev", name, "metric", metric)

    def test_nothing_to_end(self):
        script("stop_dhclient.sh")

    def test_ends_every_client_before_it_returns(self):
        clients = [self.start_client(), self.start_client()]

        script("stop_dhclient.sh")

        for client in clients:
            self.assertEqual(client.wait(0.5), -15)

    def test_insists_with_a_client_that_does_not_listen(self):
        client = self.start_client(body="import signal, time; signal.signal(signal.SIGTERM, signal.SIG_IGN);"
                                        "print(flush=True); time.sleep(60)")
        start = time.monotonic()

        script("stop_dhclient.sh")

        self.assertEqual(client.wait(0.5), -9)
        self.assertLess(time.monotonic() - start, 5)

    def test_takes_away_the_way_out_that_the_client_set(self):
        self.given_default_route("wlan0", metric=0)
        self.given_default_route("eth0", metric=1)
        self.start_client("-v", "wlan0")

        script("stop_dhclient.sh")

        self.assertEqual([route["dev"] for route in default_routes()], ["eth0"])

    def test_leaves_a_cable_that_carries_its_way_out(self):
        for metric, name in enumerate(("eth0", "wlan0")):
            self.given_default_route(name, metric)
            self.start_client("-v", name)

        script("stop_dhclient.sh")

        self.assertEqual([route["dev"] for route in default_routes()], ["eth0"])


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
        self.assertIn("\ntimeout 10;\nretry 20;\n", read(DHCLIENT_CONF))
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


class ModemTool(ScriptTest):
    MODEM = """
        case "$*" in
            *--simple-*|*-e) ;;
            "-m any -K") printf 'modem.generic.state : %s\\nmodem.generic.bearers.value[1] : /bearer/3\\n' STATE ;;
            "-b /bearer/3 -K") cat /tmp/fakes/bearer ;;
            *) exit 1 ;;
        esac"""
    BEARER = """bearer.status.interface            : wwan0
bearer.ipv4-config.method          : static
bearer.ipv4-config.address         : 10.64.1.2
bearer.ipv4-config.prefix          : 30
bearer.ipv4-config.gateway         : 10.64.1.1
bearer.ipv4-config.dns.length      : 2
bearer.ipv4-config.dns.value[1]    : 192.0.2.53
bearer.ipv4-config.dns.value[2]    : 192.0.2.54
bearer.ipv4-config.mtu             : 1400
"""

    def given_modem(self, state, bearer=BEARER):
        fake("mmcli", self.MODEM.replace("STATE", state))
        (FAKES / "bearer").write_text(bearer)

    def test_status(self):
        for state, expected in (("connected", "connected"), ("registered", "disconnected"),
                                ("connecting", "disconnected"), ("disabled", "disconnected")):
            with self.subTest(state):
                self.given_modem(state)
                self.assertEqual(script("modem-tool.sh", "status"), expected + "\n")

    def test_status_without_a_modem(self):
        fake("mmcli", "echo \"error: couldn't find modem\" >&2; exit 1")

        self.assertEqual(script("modem-tool.sh", "status"), "cannot find modem\n")

    def test_status_without_modem_manager(self):
        self.assertEqual(script("modem-tool.sh", "status"), "cannot find modem\n")

    def test_status_does_not_wait_for_a_manager_that_hangs(self):
        fake("mmcli", "exec sleep 60")
        start = time.monotonic()

        self.assertEqual(script("modem-tool.sh", "status"), "cannot find modem\n")

        self.assertLess(time.monotonic() - start, 8)

    def test_connect_enables_and_connects(self):
        self.given_modem("registered")

        script("modem-tool.sh", "connect")

        self.assertEqual(calls(), ["mmcli -m any -e", "mmcli -m any --simple-connect="])

    def test_connect_with_an_access_point_name(self):
        self.given_modem("registered")
        Path("/tmp/config/files/network").mkdir(parents=True)
        Path("/tmp/config/files/network/apn").write_text("web.example,pin=0000\n")

        script("modem-tool.sh", "connect")

        self.assertIn("mmcli -m any --simple-connect=apn=web.examplepin0000", calls())

    def test_disconnect(self):
        self.given_modem("connected")

        script("modem-tool.sh", "disconnect")

        self.assertEqual(calls(), ["mmcli -m any --simple-disconnect"])

    def test_ip_config_applies_what_the_network_gave(self):
        self.given_modem("connected")
        self.cable("wwan0")

        script("modem-tool.sh", "ip_config")

        self.assertEqual(addresses("wwan0"), ["10.64.1.2"])
        self.assertEqual([(route["gateway"], route["dev"]) for route in default_routes()], [("10.64.1.1", "wwan0")])
        self.assertEqual(read("/sys/class/net/wwan0/mtu"), "1400\n")
        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.53\nnameserver 192.0.2.54\n")

    def test_ip_config_by_dhcp(self):
        self.given_modem("connected", self.BEARER.replace("static", "dhcp"))
        fake("dhclient", "")
        self.cable("wwan0")

        script("modem-tool.sh", "ip_config")

        self.assertIn("dhclient -1 -cf /etc/dhcp/dhclient.conf wwan0", calls())

    def test_ip_config_without_a_bearer_changes_nothing(self):
        fake("mmcli", "echo 'modem.generic.bearers.value[1] : --'")
        self.cable("wwan0")

        script("modem-tool.sh", "ip_config", expect=1)

        self.assertEqual(addresses("wwan0"), [])

    def test_unknown_command_is_refused(self):
        script("modem-tool.sh", "dance", expect=2)


if __name__ == "__main__":
    main()
