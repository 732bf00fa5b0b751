# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Wired authentication with a server whose certificate must not be trusted."""

from dot1x import Dot1xTest
from harness import main


class BadCertificate(Dot1xTest):
    def test_unknown_authority(self):
        self.falls_back_until_mended("certificate verify failed", server="foreign")

    def test_expired(self):
        self.falls_back_until_mended("certificate has expired", server="expired")


if __name__ == "__main__":
    main()
