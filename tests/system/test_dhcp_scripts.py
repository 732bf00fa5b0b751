# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""The platform's own commands around addresses and routes: ending DHCP clients, the modem's tool."""

import os
import shutil
import subprocess
import sys
import time
from pathlib import Path

from harness import (RESOLV_CONF, FarEnd, addresses, default_routes, last_pid, main, read, run, slowness,
                     wait_for)
from scripts import FAKES, ScriptTest, calls, fake, script


# As the service's unit leaves few to the daemon, who is root all the same.
FEW_RIGHTS = ["setpriv", "--bounding-set=-all", "--inh-caps=-all"]


def routes():
    """The default routes in the order in which they count, as (interface, metric)."""
    return [(route["dev"], route.get("metric", 0)) for route in default_routes()]


class StopDhclient(ScriptTest):
    LISTENS = "import time; print(flush=True); time.sleep(60)"
    LISTENS_NOT = "import signal, time; signal.signal(signal.SIGTERM, signal.SIG_IGN); print(flush=True); time.sleep(60)"

    def start_client(self, *arguments, body=LISTENS, name="dhclient", before=()):
        """A process that is called dhclient."""
        program = FAKES / name
        if not program.exists():
            shutil.copy(os.path.realpath(sys.executable), program)
        process = subprocess.Popen([*before, program, "-c", body, *arguments], stdout=subprocess.PIPE)
        process.stdout.readline()
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def test_nothing_to_end(self):
        script("stop_dhclient.sh")

    def test_nothing_to_end_starts_nothing(self):
        before = last_pid()

        script("stop_dhclient.sh")

        self.assertEqual(last_pid() - before, 1)

    def test_ends_every_client_before_it_returns(self):
        clients = [self.start_client(), self.start_client("-v", "eth0"), self.start_client("-6", "eth0")]

        script("stop_dhclient.sh")

        for client in clients:
            self.assertEqual(client.wait(0.5), -15)

    def test_insists_with_a_client_that_does_not_listen(self):
        client = self.start_client(body=self.LISTENS_NOT)
        start = time.monotonic()

        script("stop_dhclient.sh")

        self.assertEqual(client.wait(0.5), -9)
        self.assertLess(time.monotonic() - start, 5 * slowness())

    def test_lets_the_clients_script_finish(self):
        self.start_client()
        body = "import time; print(flush=True); time.sleep(0.5)"
        hook = self.start_client(body=body, name="dhclient-script")

        script("stop_dhclient.sh")

        self.assertEqual(hook.wait(0.1), 0)

    def test_ends_a_script_that_hangs(self):
        hook = self.start_client(name="dhclient-script")

        script("stop_dhclient.sh")

        self.assertEqual(hook.wait(0.1), -9)

    def test_client_that_nobody_waits_for_costs_no_time(self):
        client = self.start_client()
        client.kill()
        wait_for("a process that has ended", lambda: " Z " in read(f"/proc/{client.pid}/stat"))
        start = time.monotonic()

        script("stop_dhclient.sh")

        self.assertLess(time.monotonic() - start, 2 * slowness())

    def test_waits_for_a_client_that_is_about_to_end(self):
        # The kernel takes a process out of its namespace some time before it is gone.
        client = self.start_client(body="""
import ctypes, signal, sys, time
CLONE_NEWNET = 0x40000000
def leave(*_):
    signal.signal(signal.SIGTERM, signal.SIG_IGN)
    ctypes.CDLL(None).unshare(CLONE_NEWNET)
    time.sleep(0.5)
    sys.exit(7)
signal.signal(signal.SIGTERM, leave)
print(flush=True)
time.sleep(60)""")

        script("stop_dhclient.sh")

        self.assertEqual(client.wait(0.1), 7)

    def test_ends_a_client_that_may_do_more_than_we(self):
        client = self.start_client()

        script("stop_dhclient.sh", before=FEW_RIGHTS)

        self.assertEqual(client.wait(0.5), -15)

    def test_client_of_a_container_lives(self):
        FarEnd("container", "none0")
        client = self.start_client(before=["ip", "netns", "exec", "container"])
        self.assertEqual(read(f"/proc/{client.pid}/comm"), "dhclient\n")

        script("stop_dhclient.sh")
        script("stop_dhclient.sh", before=FEW_RIGHTS)

        self.assertIsNone(client.poll())

    def test_process_of_another_user_is_no_client(self):
        client = self.start_client(before=["setpriv", "--reuid=nobody", "--clear-groups"])

        script("stop_dhclient.sh")

        self.assertIsNone(client.poll())

    def test_program_with_a_similar_name_is_no_client(self):
        client = self.start_client(name="dhclient2")

        script("stop_dhclient.sh")

        self.assertIsNone(client.poll())


class MakingWay(ScriptTest):
    """stop_dhclient.sh makes way for the route of the next client."""

    def given_default_route(self, name, *options, number=0):
        cable = self.cable(name)
        run("ip", "addr", "add", f"10.{number}.0.2/24", "dev", name)
        run("ip", "link", "set", "dev", name, "up")
        wait_for("a carrier", lambda: read(f"/sys/class/net/{name}/carrier") == "1\n")
        run("ip", "route", "append", "default", "via", f"10.{number}.0.1", "dev", name, *options)
        return cable

    def test_radio_is_put_behind_cables_and_modem(self):
        self.given_default_route("wlan0")

        script("stop_dhclient.sh")

        self.assertEqual(routes(), [("wlan0", 600)])
        self.assertEqual(default_routes()[0]["gateway"], "10.0.0.1")

    def test_cable_that_carries_stays_first(self):
        self.given_default_route("mlan0", number=0)
        self.given_default_route("eth0", number=1)
        self.given_default_route("wwan0", number=2)

        script("stop_dhclient.sh")

        self.assertEqual(routes(), [("eth0", 0), ("mlan0", 600), ("wwan0", 600)])

    def test_routes_that_are_behind_already_stay(self):
        self.given_default_route("wwan0", "metric", "500", number=0)
        self.given_default_route("wlan0", "metric", "600", number=1)
        before = last_pid()

        script("stop_dhclient.sh")

        self.assertEqual(last_pid() - before, 1, "nothing is to do, so nothing is started")
        self.assertEqual(routes(), [("wwan0", 500), ("wlan0", 600)])

    def test_of_several_routes_the_one_in_use_stays(self):
        self.given_default_route("wlan0", "onlink")
        run("ip", "route", "append", "default", "via", "10.0.0.7", "dev", "wlan0")

        script("stop_dhclient.sh")

        self.assertEqual([(route["gateway"], route["metric"]) for route in default_routes()], [("10.0.0.1", 600)])
        self.assertIn("onlink", default_routes()[0]["flags"])

    def test_new_route_takes_the_place_of_one_put_behind_earlier(self):
        self.given_default_route("wlan0", "metric", "600")
        run("ip", "route", "append", "default", "via", "10.0.0.7", "dev", "wlan0")

        script("stop_dhclient.sh")

        self.assertEqual([(route["gateway"], route["metric"]) for route in default_routes()], [("10.0.0.7", 600)])

    def test_route_stays_that_cannot_be_put_behind(self):
        # The kernel accepts no new route by a gateway that it cannot reach any more.
        self.given_default_route("wlan0")
        run("ip", "route", "add", "192.0.2.1", "dev", "wlan0")
        run("ip", "route", "replace", "default", "via", "192.0.2.1", "dev", "wlan0")
        run("ip", "route", "del", "192.0.2.1", "dev", "wlan0")

        script("stop_dhclient.sh")

        self.assertEqual([(route["gateway"], route.get("metric", 0)) for route in default_routes()],
                         [("192.0.2.1", 0)])

    def test_route_that_is_there_and_behind_is_so_once(self):
        self.given_default_route("wlan0", "metric", "600")
        run("ip", "route", "append", "default", "via", "10.0.0.1", "dev", "wlan0")

        script("stop_dhclient.sh")

        self.assertEqual([(route["gateway"], route["metric"]) for route in default_routes()], [("10.0.0.1", 600)])

    def test_interface_that_does_not_carry_loses_its_route(self):
        for number, name in enumerate(("eth0", "wlan0")):
            self.given_default_route(name, number=number).pull()
            wait_for("no carrier", lambda name=name: read(f"/sys/class/net/{name}/carrier") == "0\n")

        script("stop_dhclient.sh")

        self.assertEqual(routes(), [])

    def test_names_with_odd_letters(self):
        (FAKES / "wlan-is-a-file").touch()
        names = ["wlan*", "wlan?0", "wlan[a]", "wlan$x'\""]
        for number, name in enumerate(names):
            self.given_default_route(name, number=number)

        script("stop_dhclient.sh")

        self.assertCountEqual(routes(), [(name, 600) for name in names])


class ModemTool(ScriptTest):
    MODEM = """
        case "$*" in
            *--simple-*|*-e) ;;
            "-m any -K") printf 'modem.generic.state-failed-reason : connected\\nmodem.generic.state : %s\\n' STATE
                printf 'modem.generic.bearers.value[%s] : /bearer/%s\\n' 1 3 2 7 ;;
            "-b /bearer/3 -K") printf 'bearer.status.connected : no\\nbearer.status.interface : wwan7\\n' ;;
            "-b /bearer/7 -K") cat /tmp/fakes/bearer ;;
            *) exit 1 ;;
        esac"""
    BEARER = """bearer.status.connected            : yes
bearer.status.interface            : wwan0
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

    def test_status_of_a_modem_that_somebody_has_to_look_at(self):
        for state, key, reason, expected in (
                ("locked", "unlock-required", "sim-pin", "the SIM is locked: sim-pin"),
                ("locked", "unlock-required", "--", "the SIM is locked"),
                ("failed", "state-failed-reason", "sim-missing", "the modem has failed: sim-missing")):
            with self.subTest(state=state, reason=reason):
                fake("mmcli", f"echo 'modem.generic.state : {state}'; echo 'modem.generic.{key} : {reason}'")
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

        self.assertLess(time.monotonic() - start, 20 * slowness())

    def test_connect_ends_although_the_manager_hangs(self):
        fake("mmcli", "exec sleep 60")
        start = time.monotonic()

        script("modem-tool.sh", "connect", expect=124, timeout=50)

        self.assertLess(time.monotonic() - start, 50 * slowness())

    def test_manager_that_does_not_even_end_when_asked_is_killed(self):
        fake("mmcli", "trap '' TERM; while :; do sleep 1; done")
        start = time.monotonic()

        self.assertEqual(script("modem-tool.sh", "status"), "cannot find modem\n")

        self.assertLess(time.monotonic() - start, 20 * slowness())

    def test_connect_enables_and_connects(self):
        self.given_modem("registered")

        script("modem-tool.sh", "connect")

        self.assertEqual(calls(), ["mmcli -m any -e", "mmcli -m any --simple-connect="])

    def given_access_point_name(self, text="web.example\n"):
        name = Path("/tmp/config/files/network/apn")
        name.parent.mkdir(parents=True)
        name.write_text(text)
        return name

    def test_connect_with_an_access_point_name(self):
        self.given_modem("registered")
        self.given_access_point_name("web.example,pin=0000\n")

        script("modem-tool.sh", "connect")

        self.assertIn("mmcli -m any --simple-connect=apn=web.examplepin0000", calls())

    def test_connect_takes_no_access_point_name_from_elsewhere(self):
        for kind, put in (("a pipe", lambda name: (name.unlink(), os.mkfifo(name))),
                          ("a link", lambda name: name.rename(FAKES / "other") and name.symlink_to(FAKES / "other")),
                          ("another user's", lambda name: os.chown(name, 65534, 65534))):
            with self.subTest(kind):
                self.clean()
                self.given_modem("registered")
                put(self.given_access_point_name())

                script("modem-tool.sh", "connect")

                self.assertEqual(calls()[-1], "mmcli -m any --simple-connect=")

    def test_disconnect(self):
        self.given_modem("connected")

        script("modem-tool.sh", "disconnect")

        self.assertEqual(calls(), ["mmcli -m any --simple-disconnect"])

    def test_ip_config_applies_what_the_network_gave(self):
        self.given_modem("connected")
        self.cable("wwan0")

        script("modem-tool.sh", "ip_config")

        self.assertEqual(addresses("wwan0"), ["10.64.1.2"])
        self.assertEqual([(route["gateway"], route["dev"], route["metric"]) for route in default_routes()],
                         [("10.64.1.1", "wwan0", 500)])
        self.assertEqual(read("/sys/class/net/wwan0/mtu"), "1400\n")
        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.53\nnameserver 192.0.2.54\n")

    def test_ip_config_by_dhcp(self):
        self.given_modem("connected", self.BEARER.replace("static", "dhcp"))
        fake("dhclient", "")
        self.cable("wwan0")

        script("modem-tool.sh", "ip_config")

        self.assertIn("dhclient -1 -e IF_METRIC=500 -cf /etc/dhcp/dhclient.conf wwan0", calls())

    def test_ip_config_of_a_link_without_a_gateway(self):
        self.given_modem("connected", self.BEARER.replace(": 10.64.1.1\n", ": --\n"))
        self.cable("wwan0")

        script("modem-tool.sh", "ip_config")

        self.assertEqual([(route.get("gateway"), route["dev"], route["metric"]) for route in default_routes()],
                         [(None, "wwan0", 500)])

    def test_ip_config_replaces_what_was_there(self):
        self.given_modem("connected")
        self.cable("wwan0")
        script("modem-tool.sh", "ip_config")
        self.given_modem("connected", self.BEARER.replace("10.64.1.", "10.65.1."))

        script("modem-tool.sh", "ip_config")

        self.assertEqual(addresses("wwan0"), ["10.65.1.2"])
        self.assertEqual([route["gateway"] for route in default_routes()], ["10.65.1.1"])

    def test_ip_config_puts_a_radio_behind(self):
        self.given_modem("connected")
        self.cable("wwan0")
        self.cable("wlan0")
        run("ip", "addr", "add", "10.1.0.2/24", "dev", "wlan0")
        run("ip", "link", "set", "dev", "wlan0", "up")
        wait_for("a carrier", lambda: read("/sys/class/net/wlan0/carrier") == "1\n")
        run("ip", "route", "add", "default", "via", "10.1.0.1")

        script("modem-tool.sh", "ip_config")

        self.assertEqual(routes(), [("wwan0", 500), ("wlan0", 600)])

    def test_ip_config_without_a_connection_takes_the_address_away(self):
        self.given_modem("connected")
        self.cable("wwan0")
        script("modem-tool.sh", "ip_config")

        for gone in ("echo 'modem.generic.bearers.value[1] : --'", "echo 'modem.generic.state : registered'"):
            with self.subTest(gone):
                run("ip", "addr", "replace", "10.64.1.2/30", "dev", "wwan0")
                fake("mmcli", gone)
                script("modem-tool.sh", "ip_config", expect=1)
                self.assertEqual(addresses("wwan0"), [])
                self.assertEqual(default_routes(), [])

    def test_ip_config_changes_nothing_when_the_manager_does_not_answer(self):
        self.given_modem("connected")
        self.cable("wwan0")
        script("modem-tool.sh", "ip_config")
        fake("mmcli", "exit 1")

        script("modem-tool.sh", "ip_config", expect=1)

        self.assertEqual(addresses("wwan0"), ["10.64.1.2"])
        self.assertEqual(routes(), [("wwan0", 500)])

    def test_resolver_that_is_a_mount_point_is_written_in_place(self):
        Path("/tmp/fakes/resolver").write_text("nameserver 192.0.2.1\n")
        run("mount", "--bind", "/tmp/fakes/resolver", RESOLV_CONF)
        self.addCleanup(run, "umount", RESOLV_CONF)
        self.given_modem("connected")
        self.cable("wwan0")

        script("modem-tool.sh", "ip_config")

        self.assertEqual(read("/tmp/fakes/resolver"), "nameserver 192.0.2.53\nnameserver 192.0.2.54\n")
        self.assertEqual(list(Path("/etc").glob("resolv.conf.new.*")), [])

    def test_resolver_link_into_a_folder_that_is_gone_becomes_a_file(self):
        RESOLV_CONF.unlink()
        RESOLV_CONF.symlink_to("/run/gone/resolv.conf")
        self.given_modem("connected")
        self.cable("wwan0")

        script("modem-tool.sh", "ip_config")

        self.assertFalse(RESOLV_CONF.is_symlink())
        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.53\nnameserver 192.0.2.54\n")

    def test_resolver_stays_when_the_network_names_no_server(self):
        RESOLV_CONF.write_text("nameserver 192.0.2.1\n")
        self.given_modem("connected", "\n".join(line for line in self.BEARER.splitlines() if "dns" not in line) + "\n")
        self.cable("wwan0")

        script("modem-tool.sh", "ip_config")

        self.assertEqual(addresses("wwan0"), ["10.64.1.2"])
        self.assertEqual(read(RESOLV_CONF), "nameserver 192.0.2.1\n")

    def test_unknown_command_is_refused(self):
        script("modem-tool.sh", "dance", expect=2)


if __name__ == "__main__":
    main()
