# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""A supplicant that is alive and yet stopped for a while, or out of sight."""

import shutil
import signal
import time

from dot1x import CONTROL_FOLDER, GONE, SupervisedTest, supplicants
from harness import KILL_FLAG, LOG, holds_for, main, read, touch


class Alive(SupervisedTest):
    def test_stopped_for_a_while(self):
        self.signal_supplicant(signal.SIGSTOP)
        self.daemon.wait_logged("The supplicant is stopped and answers nobody on eth0",
                                timeout=4)
        before = read(LOG)
        time.sleep(20)
        # Told once; nothing was asked of it, so nobody waited.
        self.assertEqual(read(LOG), before)
        self.signal_supplicant(signal.SIGCONT)
        self.daemon.wait_logged("The supplicant goes on, on eth0", timeout=4)

        self.port.pull()
        self.daemon.wait_logged("Wired Device Connected 0")
        self.port.plug()
        self.is_authenticated_again()
        self.assertFalse(self.daemon.logged(GONE))

        # Stopped again, it does not hold the daemon up.
        self.signal_supplicant(signal.SIGSTOP)
        touch(KILL_FLAG)
        self.assertEqual(self.daemon.wait_end(4), 0)

    def test_control_folder_removed(self):
        shutil.rmtree(CONTROL_FOLDER)

        self.daemon.wait_logged("The name is gone, the connection goes on at /var/run/wpa_supplicant/eth0", timeout=4)
        holds_for("the supplicant", lambda: len(supplicants()) == 1, 3)
        # It can still be stopped, and the next one makes the folder again.
        self.port.pull()
        self.daemon.wait_logged("Wired Device Connected 0")
        self.port.plug()
        self.is_authenticated_again()
        self.assertTrue((CONTROL_FOLDER / "eth0").is_socket())

    def test_folder_in_the_place_of_the_socket(self):
        socket = CONTROL_FOLDER / "eth0"
        socket.unlink()
        (socket / "full").mkdir(parents=True)

        # The connection goes on, and the next supplicant would end at the folder.
        holds_for("the supplicant", lambda: len(supplicants()) == 1, 3)
        self.signal_supplicant(signal.SIGKILL)

        self.is_authenticated_again()
        self.assertTrue(self.daemon.logged(f"is removed: /var{socket}"))
        self.assertTrue(socket.is_socket())


if __name__ == "__main__":
    main()
