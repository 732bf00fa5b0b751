# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""What the tests of wired authentication share: a switch port with a real authenticator (hostapd) behind it,
certificates, and a view of the supplicants that run."""

import os
import re
import signal
from pathlib import Path

from harness import (DEBUG_FLAG, LOG, Cable, SystemTest, addresses, end_process, holds_for, link, logged_at, network,
                     read, run, slowness, wait_for, write_store)

CERTIFICATES = Path("/tmp/dot1x")
CONTROL_FOLDER = Path("/run/wpa_supplicant")
SUPPLICANT_LOG = Path("/var/log/wpa_supplicant.log")

PASSWORD = "secret of the terminal"

STAMP = re.compile(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} : ")

# Lines of the daemon's log.
# Also where the supplicant was let in before the daemon's first word with it, and its event came too early.
AUTHENTICATED = "Corvi::onAssociatedChanged(bool state) 1"
ATTACHED = "WpaSupplicantControl -- Attached to control interface at /var/run/wpa_supplicant/eth0"
LAUNCHED = " WpaSuppThread::Start execute"
GAVE_UP = " failed to connect, Stopping wpa_supplicant"
IN_FALLBACK = "Corvi::WiredNetworkSetup:: Set in fallback mode"
FORCED_FALLBACK = "Corvi::WiredNetworkSetup:: Wired 802.1x Fallback"
GONE = "WpaSupplicantControl -- Nobody answers any more at"
TERMINATING = "WpaSuppThread::MessageReceived -- Terminating"
LEFT_OVER = "WpaSuppThread -- Ending a supplicant that was left over"


def make_authority(name):
    """A certificate authority: NAME.pem and NAME.key."""
    run("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2",
        "-subj", f"/CN={name}", "-keyout", CERTIFICATES / f"{name}.key", "-out", CERTIFICATES / f"{name}.pem")


def make_certificate(name, authority="authority", begin="20200101000000Z", end="20491231000000Z"):
    """A certificate of the authority: NAME.pem and NAME.key."""
    run("openssl", "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj", f"/CN={name}",
        "-keyout", CERTIFICATES / f"{name}.key", "-out", CERTIFICATES / f"{name}.csr")
    settings = CERTIFICATES / "ca.conf"
    settings.write_text(f"""
[ca]
default_ca = own
[own]
new_certs_dir = {CERTIFICATES}
database = {CERTIFICATES}/index.txt
rand_serial = yes
unique_subject = no
default_md = sha256
policy = any
[any]
commonName = supplied
""")
    (CERTIFICATES / "index.txt").touch()
    run("openssl", "ca", "-batch", "-notext", "-config", settings, "-startdate", begin, "-enddate", end,
        "-cert", CERTIFICATES / f"{authority}.pem", "-keyfile", CERTIFICATES / f"{authority}.key",
        "-in", CERTIFICATES / f"{name}.csr", "-out", CERTIFICATES / f"{name}.pem")


def make_certificates():
    CERTIFICATES.mkdir(exist_ok=True)
    make_authority("authority")
    make_authority("stranger")
    make_certificate("server")
    make_certificate("foreign", authority="stranger")
    make_certificate("expired", end="20200102000000Z")
    make_certificate("terminal")


class SwitchPort(Cable):
    """A cable to a switch port. What is behind the port (a bridge with an address, for a DHCP server) is reached
    when the port is open."""

    def __init__(self, interface="eth0", is_open=True):
        self.port = "port0"
        self.interface = interface
        super().__init__(interface, address="10.1.1.1/32")
        self.far_end = "switch0"
        self.add_switch(self.far_end, "10.77.0.1")
        if is_open:
            self.open()

    def plug(self):
        self.run("ip", "link", "set", "dev", self.port, "up")

    def pull(self):
        self.run("ip", "link", "set", "dev", self.port, "down")

    def close(self):
        # Otherwise this end answers for the switch's address on every interface of its own.
        self.run("sysctl", "-q", "-w", "net.ipv4.conf.all.arp_ignore=1")
        self.run("ip", "link", "set", "dev", self.port, "nomaster")

    def open(self):
        self.run("ip", "link", "set", "dev", self.port, "master", self.far_end)


class Authenticator:
    """hostapd with its own EAP server on a switch port. With controls_port it opens the port for an
    authenticated station and closes it again, as a switch does."""

    def __init__(self, port, server="server", password=PASSWORD, controls_port=False, name="hostapd"):
        self.port = port
        self.log = Path(f"/tmp/{name}.log")
        self.users = Path(f"/tmp/{name}.users")
        self.write_users(password)
        settings = Path(f"/tmp/{name}.conf")
        settings.write_text(f"""
interface={port.port}
driver=wired
ctrl_interface=/run/hostapd
ieee8021x=1
use_pae_group_addr=1
eap_server=1
eap_user_file={self.users}
ca_cert={CERTIFICATES}/authority.pem
server_cert={CERTIFICATES}/{server}.pem
private_key={CERTIFICATES}/{server}.key
""")
        self.process = port.spawn("hostapd", "-dd", settings, output=self.log)
        wait_for("authenticator ready", lambda: "AP-ENABLED" in read(self.log))
        self.controller = None
        if controls_port:
            self.control_port()

    def control_port(self):
        action = Path("/tmp/hostapd-action")
        action.write_text(f"""#!/bin/sh
case $2 in
    AP-STA-CONNECTED) ip link set dev {self.port.port} master {self.port.far_end} ;;
    AP-STA-DISCONNECTED) ip link set dev {self.port.port} nomaster ;;
esac
""")
        action.chmod(0o755)
        self.controller = self.port.spawn("hostapd_cli", "-p", "/run/hostapd", "-a", action,
                                          output="/tmp/hostapd-cli.log")

    def write_users(self, password):
        self.users.write_text(f'"terminal-17" PEAP\n"terminal-17" MSCHAPV2 "{password}" [2]\n"terminal-tls" TLS\n')

    def change_password(self, password):
        """From the next authentication on. The station is not asked for one."""
        reloads = read(self.log).count("reloading configuration")
        self.write_users(password)
        self.process.send_signal(signal.SIGHUP)
        wait_for("authenticator read its users", lambda: read(self.log).count("reloading configuration") > reloads)

    def ask_again(self):
        """Asks the station who it is, as a switch does every hour."""
        self.port.run("hostapd_cli", "-p", "/run/hostapd", "new_sta", link(self.port.interface)["address"])

    def attempts(self):
        """How often it asked a station who it is."""
        return read(self.log).count("CTRL-EVENT-EAP-STARTED")

    def accepted(self):
        """How often it let a station in."""
        return read(self.log).count("authorizing port") - read(self.log).count("unauthorizing port")

    def stop(self):
        if self.controller:
            end_process(self.controller)
        end_process(self.process)


def peap(name="lan", **properties):
    return network(name, **{"securityMode": "802.1X (PEAP/MSCHAPv2)", "identity": "terminal-17", "password": PASSWORD,
                            "caCert": f"{CERTIFICATES}/authority.pem", **properties})


def tls(name="lan", **properties):
    return network(name, **{"securityMode": "802.1X (TLS/EAP)", "identity": "terminal-tls",
                            "caCert": f"{CERTIFICATES}/authority.pem", "clientCert": f"{CERTIFICATES}/terminal.pem",
                            "privateKey": f"{CERTIFICATES}/terminal.key", **properties})


def supplicants():
    """The process ids of the supplicants that run."""
    pids = run("pidof", "wpa_supplicant", check=False).split()
    return [int(pid) for pid in pids]


def zombies():
    """Processes that have ended and that nobody waited for."""
    return [line for line in run("ps", "-e", "-o", "stat=,comm=").splitlines() if line.startswith("Z")]


def socket_files(daemon):
    """The daemon's own ends of control connections."""
    return list(Path("/tmp").glob(f"wpa_ctrl_{daemon.pid}-*"))


class Dot1xTest(SystemTest):
    """One interface in a port with an authenticator."""

    def setUp(self):
        super().setUp()
        make_certificates()
        DEBUG_FLAG.touch()
        SUPPLICANT_LOG.unlink(missing_ok=True)
        self.listener = self.listen()
        self.addCleanup(self.every_line_is_stamped)

    def every_line_is_stamped(self):
        """Whatever was logged in the whole run: discovery, DHCP, the supplicant's words and replies."""
        self.assertEqual([line for line in read(LOG).split("\n") if line and not STAMP.match(line)], [])

    def switch_port(self, **options):
        self.port = SwitchPort(**options)
        self.server = self.dhcp_server(self.port)

    def authenticator(self, **options):
        authenticator = Authenticator(self.port, **options)
        self.addCleanup(authenticator.stop)
        return authenticator

    def wait_authenticated(self, daemon, count=1, timeout=60):
        """Waits until the port is authenticated and the DHCP client that runs then is done."""
        daemon.wait_logged(AUTHENTICATED, count=count, timeout=timeout)
        wait_for("configuration after the authentication",
                 lambda: read(LOG).rfind("NetworkDevice::ConfigureNetwork -- end") > read(LOG).rfind(AUTHENTICATED))

    def falls_back_until_mended(self, told_by_supplicant, **broken):
        """The port gives a guest some access, and the authenticator is broken at first."""
        self.switch_port()
        authenticator = self.authenticator(**broken)
        write_store(peap(dot1xFallback="fallback"))
        daemon = self.start_daemon()

        daemon.wait_logged(IN_FALLBACK, timeout=60)

        # Eleven ticks of waiting, counted from the start of the supplicant.
        waited = logged_at(IN_FALLBACK) - logged_at(LAUNCHED)
        self.assertTrue(10 < waited < 15 * slowness(), waited)
        self.assertEqual(read(LOG).count(AUTHENTICATED), 0)
        self.assertIn(told_by_supplicant, read(SUPPLICANT_LOG))
        wait_for("supplicant stopped", lambda: not supplicants())
        self.assertTrue(self.server.serves(addresses("eth0")[0]))
        holds_for("the fallback", lambda: not supplicants(), 4)

        authenticator.stop()
        self.authenticator()
        self.port.pull()
        daemon.wait_logged("Wired Device Connected 0")
        self.port.plug()

        self.wait_authenticated(daemon)
        self.wait_address("eth0", self.server.serves)

    def only_supplicant(self):
        """The process id of the one supplicant that runs."""
        pids = supplicants()
        self.assertEqual(len(pids), 1, "exactly one supplicant runs")
        return pids[0]

    def signal_supplicant(self, number):
        pid = self.only_supplicant()
        os.kill(pid, number)
        return pid

    def explain_failure(self, failures_before):
        super().explain_failure(failures_before)
        if self.failures() > failures_before:
            print("--- the supplicant's log ---", read(SUPPLICANT_LOG)[-4000:], "--- the authenticator's ---",
                  read("/tmp/hostapd.log")[-4000:], sep="\n", flush=True)


class SupervisedTest(Dot1xTest):
    """From a port that is authenticated."""

    def setUp(self):
        super().setUp()
        self.switch_port()
        self.authenticator()
        write_store(peap())
        self.daemon = self.start_daemon()
        self.wait_authenticated(self.daemon)

    def is_authenticated_again(self, timeout=60):
        self.wait_authenticated(self.daemon, count=2, timeout=timeout)
        self.is_alone()

    def is_alone(self):
        holds_for("one supplicant and one connection",
                  lambda: len(supplicants()) == 1 and len(socket_files(self.daemon)) == 1, 3)
