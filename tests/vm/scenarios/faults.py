# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""What goes wrong in the air, and the way back."""

import os
import signal
import time
from pathlib import Path

import accesspoint
from accesspoint import PASSPHRASE
from harness import ADDRESS_PRESENT, DEBUG_FLAG, LINK_DOWN, LINK_UP, addresses, holds_for, run, touch, write_store
from waiting import wait_for
from wifi import JOIN_TIME, WifiTest, definition, say

CONNECTED = "WpaSuppThread::MessageReceived -- connected"


def office(**properties):
    return definition("office", "WPA Personal 1/2", **{"passphrase": PASSPHRASE, **properties})


class Passphrase(WifiTest):
    def test_wrong_passphrase(self):
        """At most one warning for each failed try, no address; joined once the definition is mended."""
        touch(DEBUG_FLAG)  # All warnings are to be seen, not the first alone.
        access_point = self.access_point("office", accesspoint.WPA2)
        write_store(office(passphrase="not the one"))
        daemon = self.start_daemon()
        daemon.wait_logged("BAD PASSWORD -- warning", JOIN_TIME)
        self.assertEqual(self.count_logged("BAD PASSWORD -- warning"), 1)
        wait_for("a second warning", lambda: self.count_logged("BAD PASSWORD -- warning") > 1, JOIN_TIME)
        # A try ends with a disconnection, and with it what was told of the one before.
        warnings = self.count_logged("BAD PASSWORD -- warning")
        tries = self.count_logged("WpaSuppThread::MessageReceived -- disconnected")
        self.assertLessEqual(warnings, tries)
        self.assertEqual(addresses("wlan0"), [])
        self.assertEqual(access_point.stations(), [])
        say(f"{warnings} warnings for {tries} tries, no address")

        write_store(office())
        daemon.rescan()

        self.wait_joined(access_point)
        say("the definition was mended: joined")


class AccessPointGone(WifiTest):
    def test_access_point_off_for_a_minute(self):
        """The access point loses its power for 60 s."""
        access_point = self.access_point("office", accesspoint.WPA2)
        listener = self.listen()
        write_store(office())
        self.start_daemon()
        self.wait_joined(access_point)
        listener.clear()

        access_point.stop()
        stopped = time.monotonic()
        self.wait_events(listener, LINK_DOWN, timeout=60)
        say(f"the loss was noticed after {time.monotonic() - stopped:.0f} s")
        time.sleep(max(0.0, 60 - (time.monotonic() - stopped)))
        listener.clear()
        access_point.start()

        self.wait_events(listener, LINK_UP, ADDRESS_PRESENT, timeout=JOIN_TIME)
        self.wait_joined(access_point)
        say(f"back after {time.monotonic() - stopped - 60:.0f} s of power")

    def test_access_point_changes_channel(self):
        """The access point announces a move to another channel and goes there: nothing is lost."""
        access_point = self.access_point("office", accesspoint.WPA2)
        listener = self.listen()
        write_store(office(), useNewDriver=True)
        self.start_daemon()
        address = self.wait_joined(access_point)
        losses = self.count_logged("MessageReceived -- disconnected")
        listener.clear()

        self.assertEqual(access_point.control("CHAN_SWITCH 5 2437"), "OK\n")

        wait_for("the new channel", lambda: access_point.frequency() == 2437, 30)
        wait_for("still in", lambda: self.supplicant_status().get("freq") == "2437", 30)
        if self.count_logged("MessageReceived -- disconnected") > losses:
            # The kernel was too slow to follow it, as on a starved machine.
            self.assertEqual(self.wait_joined(access_point), address)
            say("lost the access point on its way from 2412 to 2437 MHz, joined it there")
            return
        access_point.run("ping", "-c", "3", "-W", "5", address)
        self.assertEqual(addresses("wlan0"), [address])
        self.assertNotIn(LINK_DOWN, listener.events())
        say("moved from 2412 to 2437 MHz with the access point, the address stayed")


class Signal(WifiTest):
    def test_signal_events(self):
        """A signal that crosses the threshold of the background scan makes the daemon ask for the status."""
        touch(DEBUG_FLAG)
        access_point = self.access_point("office", accesspoint.WPA2)
        write_store(office(useBgScan=True, bgScanSignal=-60), useNewDriver=True)
        self.start_daemon()
        self.wait_joined(access_point)
        asked = self.count_logged("WpaSuppThread::CheckStatus start")

        for dbm, event in ((-80, "CTRL-EVENT-SIGNAL-CHANGE above=0"), (-30, "CTRL-EVENT-SIGNAL-CHANGE above=1")):
            told = self.supplicant_log().count(event)
            access_point.set_signal(dbm)
            wait_for(event, lambda event=event, told=told: self.supplicant_log().count(event) > told, 60)

        # Both crossings, as the first signal after the association may be asked for just now, too.
        wait_for("the status was asked for twice",
                 lambda: self.count_logged("WpaSuppThread::CheckStatus start") >= asked + 2, 10)
        self.assertEqual(self.supplicant_status()["wpa_state"], "COMPLETED")
        say("a signal that became weak and strong again was noticed, the association stays")


class Radio(WifiTest):
    def test_radio_removed_and_added(self):
        """The supplicant is killed, then the radio's driver goes and comes again, while the network is in use."""
        access_point = self.access_point("office", accesspoint.WPA2)
        write_store(office())
        daemon = self.start_daemon()
        self.wait_joined(access_point)

        joins = self.count_logged(CONNECTED)
        os.kill(int(run("pidof", "wpa_supplicant")), signal.SIGKILL)
        killed = time.monotonic()
        wait_for("a supplicant that is let in", lambda: self.count_logged(CONNECTED) > joins, JOIN_TIME)
        say(f"the supplicant was killed: joined again after {time.monotonic() - killed:.0f} s")
        self.assertFalse(daemon.logged("failed to connect"))
        self.wait_joined(access_point)
        self.assertEqual(len(run("pidof", "wpa_supplicant").split()), 1)

        self.pull_out_radio()
        time.sleep(5)
        daemon.assert_runs()
        say("the interface is gone, the daemon runs")
        self.plug_in_radio()

        self.wait_joined(access_point, 2 * JOIN_TIME)
        say("the interface is back and joined")

    def test_radio_switched_off_and_on(self):
        """Somebody switches the radio off while the network is in use, and later on again."""
        access_point = self.access_point("office", accesspoint.WPA2)
        write_store(office())
        daemon = self.start_daemon()
        self.wait_joined(access_point)

        joins = self.count_logged(CONNECTED)
        switch = next(Path(f"/sys/class/ieee80211/{self.radio}").glob("rfkill*/soft"))
        switch.write_text("1")
        daemon.wait_logged("the radio is switched off by software wlan0", 30)
        # Until the next attempt at a link that does not come up would be a minute away.
        holds_for("nobody tries", lambda: self.count_logged("bringing it up again") == 0, 45)

        switch.write_text("0")
        switched_on = time.monotonic()
        wait_for("the link is up", lambda: "UP" in run("ip", "-br", "link", "show", "dev", "wlan0"), 20)
        wait_for("let in", lambda: self.count_logged(CONNECTED) > joins, JOIN_TIME)
        say(f"joined again {time.monotonic() - switched_on:.0f} s after the radio was switched on")
        self.wait_joined(access_point)

    def test_carrier_file_late(self):
        """No wired and no wireless interface at the start; the radio shows up later."""
        self.pull_out_radio()
        access_point = self.access_point("office", accesspoint.WPA2)
        write_store(office())
        touch(DEBUG_FLAG)  # Each rescan is to be seen, also one that follows another at once.
        daemon = self.start_daemon()
        daemon.wait_logged("Corvi::Init() Complete", 60)
        self.assertEqual(self.count_logged("Corvi::Loop Force Rescan"), 1)

        self.plug_in_radio()

        daemon.wait_logged("Corvi::Loop Force Rescan", 20, count=2)
        self.wait_joined(access_point)
        say("a radio that showed up late was found and used")
        self.assertEqual(self.count_logged("Corvi::Loop Force Rescan"), 2)
