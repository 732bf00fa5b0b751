# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Wired authentication with a wrong password."""

from dot1x import FORCED_FALLBACK, IN_FALLBACK, LAUNCHED, Dot1xTest, peap
from harness import LOG, logged_at, main, read, slowness, write_store


class WrongPassword(Dot1xTest):
    def test_falls_back_until_the_server_is_mended(self):
        self.falls_back_until_mended("CTRL-EVENT-EAP-FAILURE", password="another")

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
