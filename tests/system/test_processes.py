# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""How many processes a change costs: each is a few milliseconds of a slow device's processor."""

from harness import (ADDRESS_PRESENT, LINK_DOWN, RELOAD_FLAG, SystemTest, last_pid, main, touch, wait_for, wired,
                     write_store)


class Started(SystemTest):
    """Counts what the daemon starts, and all that this starts in turn, the DHCP client's scripts included."""

    # The pulled cable and the one put in are a program of ours each.
    CABLE = 2

    def setUp(self):
        super().setUp()
        self.listener = self.listen()
        self.lan = self.cable("eth0")
        self.dhcp_server(self.lan)
        write_store(wired())
        self.start_daemon()
        self.wait_events(self.listener, ADDRESS_PRESENT)
        self.wait_quiet()
        self.listener.clear()
        self.before = last_pid()

    def wait_quiet(self):
        """Waits until nothing was started for longer than one supervision tick."""
        seen = []

        def quiet():
            seen.append(last_pid())
            return len(seen) > 30 and seen[-1] == seen[-30]
        wait_for("nothing is started any more", quiet, timeout=60)

    def started(self):
        self.wait_quiet()
        return last_pid() - self.before

    def test_pulled_cable_put_back(self):
        self.lan.pull()
        self.wait_events(self.listener, LINK_DOWN)
        self.lan.plug()
        self.wait_events(self.listener, ADDRESS_PRESENT)

        self.assertLessEqual(self.started() - self.CABLE, 30)

    def test_reload(self):
        touch(RELOAD_FLAG)
        self.wait_events(self.listener, ADDRESS_PRESENT)

        self.assertLessEqual(self.started(), 32)


if __name__ == "__main__":
    main()
