# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Wired authentication with a wrong password."""

from dot1x import AUTHENTICATED, FORCED_FALLBACK, IN_FALLBACK, LAUNCHED, PASSWORD, Dot1xTest, peap, supplicants
from harness import LOG, addresses, holds_for, logged_at, main, read, slowness, wait_for, write_store


class WrongPassword(Dot1xTest):
    def test_falls_back_until_the_server_is_mended(self):
        self.falls_back_until_mended("CTRL-EVENT-EAP-FAILURE", password="another")

    def falls_back(self):
        """At a port that is open; once the supplicant is gone."""
        self.switch_port()
        authenticator = self.authenticator(password="another", controls_port=True)
        write_store(peap(dot1xFallback="fallback"))
        daemon = self.start_daemon()
        # The gateway of the lease, without which nothing is known of the port.
        self.wait_address("eth0", self.server.serves)
        daemon.wait_logged(IN_FALLBACK, timeout=60)
        wait_for("supplicant stopped", lambda: not supplicants())
        return daemon, authenticator

    def test_fallback_ends_at_a_closed_port_where_somebody_asks(self):
        daemon, authenticator = self.falls_back()
        self.port.close()
        authenticator.change_password(PASSWORD)

        def is_let_in():
            # As a switch does every half minute.
            authenticator.ask_again()
            return daemon.logged(AUTHENTICATED)
        wait_for("let in", is_let_in, timeout=90, interval=3)

        self.wait_authenticated(daemon)
        self.wait_address("eth0", self.server.serves)

    def test_fallback_stays_at_an_open_port_where_somebody_asks(self):
        daemon, authenticator = self.falls_back()
        address = addresses("eth0")

        for _ in range(30):
            authenticator.ask_again()
            holds_for("the fallback", lambda: not supplicants() and addresses("eth0") == address, 1)
        self.assertFalse(daemon.logged("asked to authenticate"))

    def test_tries_unsecured_after_a_minute_and_then_again(self):
        self.switch_port()
        authenticator = self.authenticator(password="another")
        write_store(peap())
        daemon = self.start_daemon()

        daemon.wait_logged(FORCED_FALLBACK, timeout=100)
        waited = logged_at(FORCED_FALLBACK) - logged_at(LAUNCHED)
        # 61 ticks, the first one as soon as the supplicant has been started.
        self.assertTrue(59 < waited < 64 * slowness(), waited)
        self.assertFalse(daemon.logged(IN_FALLBACK))
        self.assertGreater(authenticator.attempts(), 0)
        # A wired failure is for the log; the user is not asked for another password.
        self.assertTrue(daemon.logged("INVALID PASSWORD FOR NETWORK eth0"))
        self.assertFalse(daemon.logged("BAD PASSWORD"))

        daemon.wait_logged(LAUNCHED, count=2, timeout=30)
        # The address of the attempt without authentication. A second attempt follows when the service's tick
        # comes before that of the supervisor, which is to carry out the stop.
        self.assertIn(read(LOG).count("NetworkDevice::ConfigureNetwork - dhcp status succeeded"), (2, 3))


if __name__ == "__main__":
    main()
