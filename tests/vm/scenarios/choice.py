# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Which network is found and taken: hidden and odd names, bands, priorities."""

from pathlib import Path

import accesspoint
import control
from accesspoint import CHANNEL_1, CHANNEL_6, CHANNEL_36, CHANNEL_6GHZ, PASSPHRASE
from harness import SOURCE_DIR, holds_for, read, write_store
from waiting import wait_for
from wifi import JOIN_TIME, WifiTest, definition, say


class Names(WifiTest):
    def test_hidden(self):
        """A network that does not tell its name."""
        # Its answer must come within the 30 ms that a scan stays on the channel.
        self.join(self.access_point("hidden", accesspoint.WPA2, hidden=True),
                  definition("hidden", "WPA Personal 1/2", passphrase=PASSPHRASE, scanSsid=True), timeout=180)

    def test_utf8(self):
        """A name beyond ASCII, protected by WPA2, so that the key is made from the same bytes. With the driver order
        that is the default."""
        self.join(self.access_point("Café Ωmega 電波", accesspoint.WPA2),
                  definition("Café Ωmega 電波", "WPA Personal 1/2", passphrase=PASSPHRASE))


class Bands(WifiTest):
    """The same name on two bands; the one of the definition's band comes on the air last."""

    def take_band(self, band, wanted_channel, other_channel, security, mode):
        other = self.access_point("office", security, channel=other_channel)
        write_store(definition("office", mode, passphrase=PASSPHRASE, band=band), useNewDriver=True)
        self.start_daemon()
        wait_for("the supplicant scans", lambda: self.supplicant_status().get("wpa_state") == "SCANNING", JOIN_TIME)
        # Two scans' time: the name is in the air, only on the wrong band.
        holds_for("not joined on the wrong band", lambda: not other.stations(), 12)

        wanted = self.access_point("office", security, channel=wanted_channel)

        self.wait_joined(wanted)
        self.assertEqual(other.stations(), [])
        say(f"band {band}: joined at {wanted.frequency()} MHz, not at {other.frequency()} MHz")

    def test_band_2_4(self):
        """2.4 GHz only."""
        self.take_band("2.4 GHz", CHANNEL_6, CHANNEL_36, accesspoint.WPA2, "WPA Personal 1/2")

    def test_band_5(self):
        """5 GHz only."""
        self.take_band("5.0 GHz", CHANNEL_36, CHANNEL_1, accesspoint.WPA2, "WPA Personal 1/2")

    def test_band_6(self):
        """6 GHz only, which there is with WPA3 alone."""
        self.take_band("6.0 GHz", CHANNEL_6GHZ, CHANNEL_1, accesspoint.WPA3, "WPA Personal 3")


class Priorities(WifiTest):
    def test_priority(self):
        """Two definitions with both networks in the air: the higher priority is taken, and the other one
        when that network goes away."""
        low = self.access_point("low", accesspoint.WPA2)
        high = self.access_point("high", accesspoint.WPA2, channel=CHANNEL_6)
        definitions = (definition("low", "WPA Personal 1/2", "Annex", passphrase=PASSPHRASE, priority=1),
                       definition("high", "WPA Personal 1/2", "Office", passphrase=PASSPHRASE, priority=9))

        self.join(high, *definitions)
        self.assertEqual(low.stations(), [])

        high.stop()
        self.wait_joined(low)
        say("the preferred network went off the air, the other one was taken")

    def test_network_without_addresses(self):
        """The preferred network lets us in and gives no address: the other one is taken, and when that goes away the
        preferred one again, which gives one by then."""
        other = self.access_point("other", accesspoint.WPA2)
        silent = self.access_point("silent", accesspoint.WPA2, channel=CHANNEL_6, dhcp=False)
        write_store(definition("other", "WPA Personal 1/2", "Annex", passphrase=PASSPHRASE, priority=1),
                    definition("silent", "WPA Personal 1/2", "Office", passphrase=PASSPHRASE, priority=9))
        # Ours gives an attempt up after 10 s.
        Path("/etc/dhcp/dhclient.conf").write_text(read(SOURCE_DIR / "platform/scripts/dhclient.conf"))
        self.start_daemon()

        wait_for("let in by the silent network", silent.stations, JOIN_TIME)
        self.wait_joined(other, 3 * JOIN_TIME)
        self.assertEqual(self.count_logged("No address is to be had from the network silent on wlan0"), 1)
        self.assertEqual(silent.stations(), [])
        self.assertIn("[DISABLED]", control.ask("/var/run/wpa_supplicant/wlan0", "LIST_NETWORKS"))
        say("the preferred network gave no address, the other one was taken")

        silent.serve_addresses()
        other.stop()
        self.wait_joined(silent, 2 * JOIN_TIME)
        say("the other network went off the air, the preferred one gave an address")
