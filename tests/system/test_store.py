# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""What is in force where the store is missing, bad or somebody else's."""

import os
import shutil

from harness import (RELOAD_FLAG, STATIC, SystemTest, addresses, holds_for, main, run, touch, wait_for, wired,
                     write_store, write_store_bytes)

LAST_GOOD = "/var/lib/corvi/last-good.xml"
OTHER_USER = 1000


def give_config_to(user):
    os.chown("/tmp/config", user, user)


class Store(SystemTest):
    def setUp(self):
        super().setUp()
        self.cable("eth0")

    def restart_without_address(self, daemon):
        daemon.stop()
        run("ip", "address", "flush", "dev", "eth0")
        return self.start_daemon()

    def wait_static_address(self, address=STATIC["ipAddress"]):
        self.wait_address("eth0", lambda found: found == address)

    def test_last_good_store_outlives_a_restart_without_one(self):
        write_store(wired(**STATIC))
        daemon = self.start_daemon()
        self.wait_static_address()

        shutil.rmtree("/tmp/config")
        daemon = self.restart_without_address(daemon)

        self.wait_static_address()
        daemon.wait_logged(f"the last good version is in force, kept in {LAST_GOOD}")

    def test_bad_edit_outlives_a_restart_without_its_harm(self):
        write_store(wired(**STATIC))
        daemon = self.start_daemon()
        self.wait_static_address()

        write_store(wired(**{**STATIC, "netmask": "255.0.255.0"}))
        daemon = self.restart_without_address(daemon)

        self.wait_static_address()
        daemon.wait_logged("network's last good definition stays in force")

    def test_store_of_another_user_is_not_obeyed(self):
        write_store(wired(**STATIC))
        give_config_to(OTHER_USER)

        daemon = self.start_daemon()

        daemon.wait_logged(f"is not obeyed: /tmp/config belongs to user {OTHER_USER}; nothing is configured")
        holds_for("no address", lambda: not addresses("eth0"), 3)
        give_config_to(0)
        touch(RELOAD_FLAG)
        self.wait_static_address()

    def test_store_cannot_be_kept_on_a_read_only_disk(self):
        run("mount", "-t", "tmpfs", "-o", "ro", "full", "/var/lib")
        self.addCleanup(run, "umount", "/var/lib")
        write_store(wired(**STATIC))

        daemon = self.start_daemon()

        self.wait_static_address()
        daemon.wait_logged(f"{LAST_GOOD}: Read-only file system; what is in force does not outlive a restart")
        write_store_bytes(b"<cut")
        touch(RELOAD_FLAG)
        daemon.wait_logged("what was read before stays in force")
        self.wait_static_address()


if __name__ == "__main__":
    main()
