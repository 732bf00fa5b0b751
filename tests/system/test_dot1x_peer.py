# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""An authenticator that restarts, and a link that goes away while it authenticates."""

import signal

from dot1x import ATTACHED, AUTHENTICATED, IN_FALLBACK, PASSWORD, Dot1xTest, peap, socket_files, supplicants
from harness import LOG, addresses, holds_for, main, read, wait_for, write_store


class Peer(Dot1xTest):
    def setUp(self):
        super().setUp()
        self.switch_port()
        self.first = self.authenticator()
        write_store(peap())

    def test_switch_restarts(self):
        daemon = self.start_daemon()
        self.wait_authenticated(daemon)

        self.port.pull()
        self.first.stop()
        daemon.wait_logged("Wired Device Connected 0")
        self.authenticator()
        self.port.plug()

        self.wait_authenticated(daemon, count=2)
        self.wait_address("eth0", self.server.serves)
        self.assertEqual(len(supplicants()), 1)

    def test_authenticator_restarts_behind_the_link(self):
        daemon = self.start_daemon()
        self.wait_authenticated(daemon)

        self.first.stop()
        second = self.authenticator()
        # The station that it forgot sends something.
        second.ask_again()

        wait_for("let in again", second.accepted)
        holds_for("one supplicant", lambda: len(supplicants()) == 1, 3)
        self.assertEqual(len(socket_files(daemon)), 1)

    def test_authentication_that_fails_for_a_while(self):
        write_store(peap(dot1xFallback="fallback"))
        daemon = self.start_daemon()
        self.wait_authenticated(daemon)
        pid = self.only_supplicant()

        self.first.change_password("another")
        self.first.ask_again()
        daemon.wait_logged("EAP Authentication Error", timeout=30)
        self.first.change_password(PASSWORD)
        self.first.ask_again()

        # The supplicant does not say anew that it is connected.
        wait_for("the success counts", lambda: read(LOG).count(AUTHENTICATED) >= 2)
        holds_for("the supplicant goes on", lambda: supplicants() == [pid] and not daemon.logged(IN_FALLBACK), 14)
        self.wait_address("eth0", self.server.serves)

    def test_link_pulled_during_authentication(self):
        # An authenticator that has stopped answers nothing: the authentication hangs.
        self.first.process.send_signal(signal.SIGSTOP)
        daemon = self.start_daemon()
        daemon.wait_logged(ATTACHED, timeout=40)

        self.port.pull()
        daemon.wait_logged("Wired Device Connected 0")
        wait_for("no address", lambda: not addresses("eth0"))
        self.first.process.send_signal(signal.SIGCONT)
        self.port.plug()

        self.wait_authenticated(daemon)
        self.wait_address("eth0", self.server.serves)
        wait_for("one supplicant", lambda: len(supplicants()) == 1)


if __name__ == "__main__":
    main()
