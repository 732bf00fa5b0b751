# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""What demo.sh shows of Ethernet, from nothing to a static address. Runs in the sandbox."""

import subprocess
import sys
import threading
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "tests/system"))

from harness import (HOSTS, KILL_FLAG, LOG, RELOAD_FLAG, RESOLV_CONF, STATUS_TOOL, STORE, Cable, Daemon,  # noqa: E402
                     DhcpServer, addresses, read, run, store_text, touch, wait_for, wired, write_store_bytes)

START = time.monotonic()


def say(who, text):
    for line in text.rstrip("\n").splitlines():
        print(f"{time.monotonic() - START:5.1f} s  {who:<9}| {line}", flush=True)


def narrate(text):
    print(flush=True)
    say("", text)


def show(*command):
    say("$", " ".join(map(str, command)))
    say("", run(*command))


def follow(who, stream):
    def relay():
        for line in stream:
            say(who, line)
    threading.Thread(target=relay, daemon=True).start()


def follow_log():
    LOG.touch()
    tail = subprocess.Popen(["tail", "-n", "0", "-F", str(LOG)], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                            text=True)
    follow("log", (line.split(" :  ", 1)[-1] for line in tail.stdout))


def follow_events():
    watcher = subprocess.Popen([str(STATUS_TOOL), "--watch"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    follow("listener", watcher.stdout)
    wait_for("listener ready", lambda: Path("/tmp/corvin").exists())


def store(*networks):
    text = store_text(*networks)
    say("store", text.split("\n", 1)[1])
    write_store_bytes(text.encode())


def first_address():
    return next(iter(addresses("eth0")), None)


def main():
    narrate("A private machine with one interface, eth0. The other end of its cable is a network with a DHCP server.")
    lan = Cable("eth0")
    server = DhcpServer(lan)

    narrate(f"The definition of the wired network, in {STORE}:")
    store(wired("lan", hosts=["10.77.0.9 printer"]))

    narrate("A listener waits for events, and the daemon starts.")
    follow_events()
    follow_log()
    daemon = Daemon()
    address = wait_for("an address", first_address, timeout=30)
    wait_for("hosts", lambda: "printer" in read(HOSTS))
    time.sleep(1)

    narrate(f"It found eth0 and got {address} from the server. What the machine has now:")
    show("ip", "-brief", "-4", "address", "show", "dev", "eth0")
    show("ip", "route", "show", "default")
    show("cat", RESOLV_CONF)
    show("cat", HOSTS)
    narrate("What any other program can read:")
    show(STATUS_TOOL)

    narrate("The cable is pulled.")
    lan.pull()
    wait_for("no address", lambda: not addresses("eth0"))
    time.sleep(1)
    show("ip", "-brief", "address", "show", "dev", "eth0")

    narrate("The cable is put back.")
    lan.plug()
    wait_for("an address again", first_address, timeout=30)
    time.sleep(2)

    narrate("The definition changes to a static address with static DNS, and the reload file is dropped.")
    store(wired("lan", staticIp=True, ipAddress="10.77.0.5", netmask="255.255.255.0", gateway="10.77.0.1",
                staticDns=True, dns1="10.77.0.1", dns2="192.0.2.53", domain="corp.example"))
    touch(RELOAD_FLAG)
    wait_for("the static address", lambda: addresses("eth0") == ["10.77.0.5"], timeout=20)
    wait_for("the static DNS", lambda: "corp.example" in read(RESOLV_CONF))
    time.sleep(1)
    show("ip", "-brief", "-4", "address", "show", "dev", "eth0")
    show("cat", RESOLV_CONF)

    narrate("The kill file is dropped.")
    say("$", f"touch {KILL_FLAG}")
    KILL_FLAG.touch()
    status = daemon.wait_end()
    say("", f"The daemon ended with status {status}. The private machine and all in it are gone now.")
    server.stop()
    return status


if __name__ == "__main__":
    sys.exit(main())
