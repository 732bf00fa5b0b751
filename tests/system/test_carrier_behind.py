# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""What stays up behind a better carrier: a radio that is kept up, and one in the cable's own network."""

import time
from pathlib import Path

from carriers import Carrier, ModemCarrier, RadioCarrier, WiredCarrier, end_standins, install_standins
from harness import Cable, SystemTest, main, touch, wait_for, write_store

KEEP_WIRELESS_UP = Path("/tmp/keepwirelessup")
TWO_TICKS = 2.2


class BehindTest(SystemTest):
    def setUp(self):
        super().setUp()
        install_standins()
        self.addCleanup(end_standins)
        touch(KEEP_WIRELESS_UP)
        self.addCleanup(KEEP_WIRELESS_UP.unlink)

    def given(self, *carriers):
        for carrier in carriers:
            self.addCleanup(carrier.end)
        write_store(*(carrier.stored() for carrier in carriers))
        self.daemon = self.start_daemon()
        return carriers

    def wait_used(self, carrier):
        """Waits until it is used for two ticks on end: another one that comes may have the resolver for a moment."""
        since = time.monotonic()

        def stays_used():
            nonlocal since
            if not carrier.is_used():
                since = time.monotonic()
            return time.monotonic() - since > TWO_TICKS

        wait_for(f"{carrier.interface} used", stays_used, timeout=180)


class KeptRadio(BehindTest):
    def test_takes_over_when_the_cable_goes(self):
        radio, cable = self.given(RadioCarrier(True), WiredCarrier(True))
        radio.come()
        self.wait_used(radio)
        cable.come()
        self.wait_used(cable)

        cable.go()

        self.wait_used(radio)

    def test_gives_back_what_it_took_when_it_associates_again(self):
        radio, cable = self.given(RadioCarrier(False), WiredCarrier(True))
        radio.come()
        self.wait_used(radio)
        cable.come()
        self.wait_used(cable)

        radio.go()
        radio.come()

        self.wait_used(cable)

    def test_comes_after_a_modem(self):
        radio, modem = self.given(RadioCarrier(True), ModemCarrier(False))
        radio.come()
        self.wait_used(radio)
        modem.come()
        self.wait_used(modem)

        radio.go()
        self.daemon.wait_logged("MessageReceived -- disconnected")
        radio.come()
        self.daemon.wait_logged("MessageReceived -- connected", count=2)

        self.wait_used(modem)


class OneNetwork(BehindTest):
    """A radio and a cable in one network, with one gateway, as in most offices."""

    class InTheOffice(Carrier):
        def __init__(self, interface, host):
            super().__init__(interface, 84, by_dhcp=False)
            self.host = host
            self.cable = Cable(interface, address=self.gateway + "/24")
            self.cable.pull()

        def definition(self):
            return {**super().definition(), "ipAddress": f"{self.network}.{self.host}"}

        come = RadioCarrier.come
        go = RadioCarrier.go

    class Radio(InTheOffice):
        stored = RadioCarrier.stored

    class Wired(InTheOffice):
        stored = WiredCarrier.stored

    def test_the_cable_is_used(self):
        radio, cable = self.given(self.Radio("wlan0", 6), self.Wired("eth0", 5))
        radio.come()
        self.wait_used(radio)

        cable.come()

        self.wait_used(cable)
        cable.go()
        self.wait_used(radio)


if __name__ == "__main__":
    main()
