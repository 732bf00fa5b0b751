# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""The daemon with a device's own library, whose classes have other layouts (library/)."""

from harness import SystemTest, addresses, default_gateway, main, wait_for


class Device(SystemTest):
    def test_its_definition_is_in_force(self):
        self.cable("eth0")

        daemon = self.start_daemon()

        wait_for("the address of the library's one network", lambda: addresses("eth0") == ["10.77.0.9"])
        wait_for("its gateway", lambda: default_gateway() == "10.77.0.1")
        daemon.assert_runs()


if __name__ == "__main__":
    main()
