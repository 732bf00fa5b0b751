# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""A cable, a modem and a radio as cables of the sandbox: what lets each come and go, and the stand-ins for the
modem's manager and for the supplicant, which need hardware of their own."""

import os
from pathlib import Path

from harness import Cable, DhcpServer, FarEnd, addresses, default_routes, network, read, run, wired

STANDIN_FOLDER = Path("/tmp/carriers")

# A bearer of ModemManager, once /tmp/carriers/bearer says what the network gives.
MMCLI = """#!/bin/sh
cd /tmp/carriers || exit 1
[ -e bearer ] || exit 1
case "$*" in
    *--simple-connect=*) : >connected ;;
    *--simple-disconnect) rm -f connected ;;
    "-m any -K")
        if [ -e connected ]; then state=connected; else state=registered; fi
        printf 'modem.generic.state : %s\\nmodem.generic.bearers.value[1] : /bearer/1\\n' $state
        ;;
    "-b /bearer/1 -K")
        if [ -e connected ]; then echo 'bearer.status.connected : yes'; else echo 'bearer.status.connected : no'; fi
        cat bearer
        ;;
esac
"""

# A supplicant that is associated for as long as its interface carries. As with a radio that takes some time: at
# once, it could be so between two messages of the daemon's first conversation, which says it only once.
SUPPLICANT = """#!/usr/bin/python3 -B
import os, select, socket, sys, time
interface = next(word[2:] for word in sys.argv if word.startswith("-i"))
path = "/var/run/wpa_supplicant/" + interface
if os.fork():
    os._exit(0)
os.setsid()
for number in range(3):
    os.dup2(os.open("/dev/null", os.O_RDWR), number)
if os.path.lexists(path):
    os.unlink(path)
server = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
server.bind(path)
client, associated, since = None, False, None

def tell(event):
    if client:
        try:
            server.sendto(event, client)
        except OSError:
            pass

def carries():
    try:
        with open(f"/sys/class/net/{interface}/carrier") as carrier:
            return carrier.read() == "1\\n"
    except OSError:
        return False

while True:
    if not client or carries() == associated:
        since = None
    elif associated or since and time.monotonic() > since + 0.5:
        associated = not associated
        tell(b"<3>CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:00:01 completed [id=0 id_str=]" if associated
             else b"<3>CTRL-EVENT-DISCONNECTED bssid=02:00:00:00:00:01 reason=3")
    else:
        since = since or time.monotonic()
    if not select.select([server], [], [], 0.1)[0]:
        continue
    command, sender = server.recvfrom(4096)
    reply = b"OK\\n"
    if command == b"ATTACH":
        client = sender
    elif command == b"DETACH":
        client = None
    elif command == b"STATUS":
        reply = b"wpa_state=COMPLETED\\nssid=Office\\n" if associated else b"wpa_state=SCANNING\\n"
    elif command == b"PING":
        reply = b"PONG\\n"
    try:
        server.sendto(reply, sender)
    except OSError:
        pass
    if command == b"TERMINATE":
        tell(b"<3>CTRL-EVENT-TERMINATING")
        os.unlink(path)
        sys.exit(0)
"""


def install_standins():
    """From now on the daemon that is started finds the stand-ins before the real programs."""
    STANDIN_FOLDER.mkdir(exist_ok=True)
    for name, text in (("mmcli", MMCLI), ("wpa_supplicant", SUPPLICANT)):
        (STANDIN_FOLDER / name).write_text(text)
        (STANDIN_FOLDER / name).chmod(0o755)
    folder = f"{STANDIN_FOLDER}:"
    os.environ["PATH"] = folder + os.environ["PATH"].replace(folder, "")
    # The control folder of the supplicant, which a supplicant that runs would make.
    Path("/var/run/wpa_supplicant").mkdir(exist_ok=True)


def end_standins():
    """Ends the supplicants, and forgets the modem."""
    for process in Path("/proc").glob("[0-9]*"):
        if read(process / "comm") == "wpa_supplicant\n":
            try:
                os.kill(int(process.name), 9)
            except ProcessLookupError:
                pass
    for name in ("bearer", "connected"):
        (STANDIN_FOLDER / name).unlink(missing_ok=True)


def dhcp_clients():
    """The interfaces that DHCP clients serve, one entry a client."""
    served = []
    for process in Path("/proc").glob("[0-9]*"):
        if read(process / "comm") == "dhclient\n" and (words := read(process / "cmdline").split("\0")[:-1]):
            served.append(words[-1])
    return served


class Carrier:
    """One way to the outside, with a network 10.NUMBER.0.0/24 of its own, that comes and goes."""

    def __init__(self, interface, number, by_dhcp):
        self.interface = interface
        self.network = f"10.{number}.0"
        self.gateway = f"{self.network}.1"
        self.by_dhcp = by_dhcp
        self.server = None

    def serve(self, far_end):
        if self.by_dhcp:
            self.server = DhcpServer(far_end, network=self.network)

    def end(self):
        if self.server:
            self.server.stop()

    def definition(self):
        """What makes a network in the store use this carrier as it is."""
        if self.by_dhcp:
            return {}
        return {"staticIp": True, "ipAddress": f"{self.network}.5", "netmask": "255.255.255.0", "gateway": self.gateway,
                "staticDns": True, "dns1": self.gateway}

    def is_used(self):
        """Whether the traffic goes this way, the name servers are those of this way, and a lease is looked after."""
        route = next(iter(default_routes()), {})
        return (route.get("dev") == self.interface and route.get("gateway") == self.gateway
                and any(address.startswith(self.network + ".") for address in addresses(self.interface))
                and read("/etc/resolv.conf").startswith(f"nameserver {self.gateway}\n")
                and (self.interface in dhcp_clients()) == self.by_dhcp)


class CableCarrier(Carrier):
    """An interface that is always there, and a cable that is out at first: a wired port, or a radio whose access point
    is out of range."""

    def __init__(self, interface, number, by_dhcp):
        super().__init__(interface, number, by_dhcp)
        self.cable = Cable(interface, address=self.gateway + "/24")
        self.serve(self.cable)
        self.cable.pull()

    def come(self):
        self.cable.plug()

    def go(self):
        self.cable.pull()


class WiredCarrier(CableCarrier):
    def __init__(self, by_dhcp):
        super().__init__("eth0", 81, by_dhcp)

    def stored(self):
        return wired(**self.definition())


class RadioCarrier(CableCarrier):
    def __init__(self, by_dhcp):
        super().__init__("wlan0", 83, by_dhcp)

    def stored(self):
        return network("Office", ssid="Office", securityMode="Unsecured", **self.definition())


class ModemCarrier(Carrier):
    """A modem that is put in and pulled out as a whole."""

    def __init__(self, by_dhcp):
        super().__init__("wwan0", 82, by_dhcp)
        self.far_end = FarEnd("lan-wwan0", "port0")
        # Stays when the adapter is pulled, with the server that works on it.
        self.far_end.add_switch("port0", self.gateway)
        self.serve(self.far_end)

    def stored(self):
        return ""

    def come(self):
        run("ip", "link", "add", "name", self.interface, "type", "veth", "peer", "name", "mast", "netns",
            self.far_end.netns)
        run("ethtool", "-K", self.interface, "tx", "off")
        self.far_end.run("ethtool", "-K", "mast", "tx", "off")
        self.far_end.run("ip", "link", "set", "dev", "mast", "master", "port0", "up")
        method = "dhcp" if self.by_dhcp else "static"
        (STANDIN_FOLDER / "bearer").write_text("\n".join(
            f"bearer.{key} : {value}" for key, value in (
                ("status.interface", self.interface), ("ipv4-config.method", method),
                ("ipv4-config.address", f"{self.network}.5"), ("ipv4-config.prefix", "24"),
                ("ipv4-config.gateway", self.gateway), ("ipv4-config.dns.value[1]", self.gateway))) + "\n")

    def go(self):
        for name in ("bearer", "connected"):
            (STANDIN_FOLDER / name).unlink(missing_ok=True)
        run("ip", "link", "delete", "dev", self.interface)
