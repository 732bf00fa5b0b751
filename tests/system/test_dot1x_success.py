# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Wired authentication that succeeds at a port that lets nothing through before, and DHCP after it."""

from dot1x import AUTHENTICATED, Dot1xTest, peap, socket_files, supplicants, tls
from harness import ADDRESS_PRESENT, LINK_UP, LOG, addresses, holds_for, main, read, status, write_store


class Success(Dot1xTest):
    def authenticates(self, definition):
        self.switch_port(is_open=False)
        self.authenticator(controls_port=True)
        write_store(definition)
        daemon = self.start_daemon()

        self.wait_authenticated(daemon)
        self.wait_address("eth0", self.server.serves)

        self.wait_events(self.listener, LINK_UP, ADDRESS_PRESENT)
        self.assertTrue(status()["connected"])
        holds_for("one supplicant, one connection, one address",
                  lambda: len(supplicants()) == len(socket_files(daemon)) == len(addresses("eth0")) == 1, 3)
        # One attempt was enough.
        self.assertEqual(read(LOG).count(AUTHENTICATED), 1)

        # The supplicant outlives the daemon; the daemon's end of their connection does not.
        daemon.stop()
        self.assertEqual(len(supplicants()), 1)
        self.assertEqual(socket_files(daemon), [])

    def test_peap(self):
        self.authenticates(peap())

    def test_tls(self):
        self.authenticates(tls())


if __name__ == "__main__":
    main()
