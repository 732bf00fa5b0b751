# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Wired authentication with a server whose certificate must not be trusted, and with one of our own that is no use."""

from dot1x import CERTIFICATES, Dot1xTest, tls
from harness import LOG, main, read, write_store


class BadCertificate(Dot1xTest):
    def test_unknown_authority(self):
        self.falls_back_until_mended("certificate verify failed", server="foreign")
        self.assertIn("the server's certificate is refused: unable to get local issuer certificate", read(LOG))

    def test_expired(self):
        self.falls_back_until_mended("certificate has expired", server="expired")
        self.assertIn("the server's certificate is refused: certificate has expired", read(LOG))


class OwnCertificate(Dot1xTest):
    def test_key_of_another_certificate(self):
        self.switch_port()
        self.authenticator()
        write_store(tls(privateKey=f"{CERTIFICATES}/server.key"))

        daemon = self.start_daemon()

        daemon.wait_logged("The authentication fails on eth0 - a certificate or key of the definition cannot be used: TLS",
                           timeout=60)


if __name__ == "__main__":
    main()
