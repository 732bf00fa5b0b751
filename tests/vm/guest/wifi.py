# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""What the Wi-Fi scenarios share: the daemon's radio and the networks around it."""

import control
import radios
from accesspoint import AccessPoint
from harness import (ADDRESS_PRESENT, DHCP_STARTED, LINK_UP, LOG, SystemTest, addresses, network, read, run, status,
                     write_store)
from waiting import address_on, wait_for

# Discovery, two ticks for a cable to show up, the hold-off, the supplicant's 7.1 s, a scan, a lease; and then
# four times as much, as the processor is emulated and the scenarios share it.
JOIN_TIME = 90


def say(text):
    """A line for whoever watches the run."""
    print(f"* {text}", flush=True)


def definition(ssid, mode, name="Office", **properties):
    """A stored wireless network."""
    return network(name, securityMode=mode, ssid=ssid, **properties)


class WifiTest(SystemTest):
    """Starts with one radio, wlan0, and nothing in the air."""

    def setUp(self):
        super().setUp()
        self.access_points = 0
        self.radio = None
        self.plug_in_radio()

    @staticmethod
    def clean():
        """Nothing: the private machine is new, and all that is in it goes with it."""

    def plug_in_radio(self):
        self.radio = radios.unique_name()
        interface = radios.make_radio(self.radio)
        if interface != "wlan0":
            run("ip", "link", "set", "dev", interface, "name", "wlan0")

    def pull_out_radio(self):
        radios.remove_radio(self.radio)

    def access_point(self, ssid, *security, **options):
        self.access_points += 1
        return AccessPoint(self.access_points, ssid, *security, **options)

    def own_mac(self):
        return read("/sys/class/net/wlan0/address").strip()

    def wait_address(self, interface, accept=lambda address: True, timeout=JOIN_TIME):
        return wait_for(f"an address on {interface}", lambda: address_on(interface, accept), timeout)

    def wait_joined(self, access_point, timeout=JOIN_TIME):
        """Waits until the network has let us in, we have its address and are reached there, and say so to the
        other programs. All at once: an address outlives its network until the next one is asked for."""
        record = wait_for(f"joined '{access_point.ssid}'", lambda: self.joined(access_point), timeout, 1)
        self.assertEqual(record["macAddress"].lower(), self.own_mac())
        self.assertTrue(record["wireless"])
        self.assertTrue(record["connected"])
        return record["ipAddress"]

    def joined(self, access_point):
        """What is published once we are in there, or nothing."""
        address = address_on("wlan0", access_point.serves)
        if not address or self.own_mac() not in access_point.stations():
            return None
        record = status()
        return record if record.get("ipAddress") == address and self.answers(access_point, address) else None

    @staticmethod
    def answers(access_point, address):
        return "1 received" in access_point.run("ping", "-c", "1", "-W", "2", address, check=False)

    def join(self, access_point, *definitions, timeout=JOIN_TIME, **settings):
        """From a stored definition to an address, the events in between and the published status."""
        write_store(*definitions, **settings)
        listener = self.listen()
        daemon = self.start_daemon()
        address = self.wait_joined(access_point, timeout)
        self.wait_events(listener, LINK_UP, DHCP_STARTED, ADDRESS_PRESENT)
        say(f"joined '{access_point.ssid}' at {access_point.frequency()} MHz, address {address}")
        return daemon

    def wait_refused(self, access_point, text, timeout=JOIN_TIME):
        """Waits until the supplicant's log says why it gets no further; nobody was let in by then."""
        wait_for(f"the supplicant says: {text}", lambda: text in self.supplicant_log(), timeout)
        self.assertEqual(access_point.stations(), [])
        self.assertEqual(addresses("wlan0"), [])

    @staticmethod
    def supplicant_log():
        return read("/var/log/wpa_supplicant.log")

    @staticmethod
    def supplicant_status():
        lines = control.ask("/var/run/wpa_supplicant/wlan0", "STATUS").splitlines()
        return dict(line.split("=", 1) for line in lines if "=" in line)

    @staticmethod
    def count_logged(text):
        return read(LOG).count(text)
