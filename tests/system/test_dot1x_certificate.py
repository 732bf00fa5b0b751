# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Wired authentication with a server whose certificate must not be trusted."""

from dot1x import Dot1xTest
from harness import LOG, main, read


class BadCertificate(Dot1xTest):
    def test_unknown_authority(self):
        self.falls_back_until_mended("certificate verify failed", server="foreign")
        self.assertIn("the server's certificate is refused: unable to get local issuer certificate", read(LOG))

    def test_expired(self):
        self.falls_back_until_mended("certificate has expired", server="expired")
        self.assertIn("the server's certificate is refused: certificate has expired", read(LOG))


if __name__ == "__main__":
    main()
