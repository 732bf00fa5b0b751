# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""The status segment while programs that show it come and go, and the daemon does.

  test_segment.py              as a test: 40 daemons
  test_segment.py --daemons N  the long form
"""

import subprocess
import sys
import time

from harness import (BUILD_DIR, LOG, STATIC, STATUS_TOOL, Daemon, SystemTest, addresses, main, random_source, read, run,
                     status, wait_for, wired, write_store)

POLLER = BUILD_DIR / "tests/system/statuspoller"
daemons = 40


def published():
    """The record; nothing where no daemon's segment is found or nothing is in it yet."""
    try:
        record = status()
    except AssertionError:
        return None  # The program tells of a missing segment by its status.
    return record if record["published"] else None


def is_found():
    answer = subprocess.run([STATUS_TOOL], capture_output=True, text=True, timeout=60, check=False)
    return "No daemon is running" not in answer.stderr


def remove_segments():
    """As a program that lets go of the segment last does it, and a sweep of old files in /tmp."""
    run("sh", "-c", "ipcrm --all=shm; rm -f /tmp/qipc_sharedmemory_*")


# Takes the lock as a reader does, and is stopped before it gives it back.
KEEPER = """
import ctypes, os, signal, sys
take = (ctypes.c_short * 3)(0, -1, 0x1000)  # struct sembuf, SEM_UNDO
if ctypes.CDLL(None).semop(int(sys.argv[1]), take, 1) != 0:
    sys.exit("no lock")
os.kill(os.getpid(), signal.SIGSTOP)
"""
# One of another make, that leaves the kernel nothing to give back.
KEEPER_THAT_ENDS = """
import ctypes, sys
take = (ctypes.c_short * 3)(0, -1, 0)
sys.exit(ctypes.CDLL(None).semop(int(sys.argv[1]), take, 1))
"""


def lock():
    """The identifier of the segment's lock, the only one there is."""
    _, only = read("/proc/sysvipc/sem").splitlines()
    return only.split()[1]


class Segment(SystemTest):
    def setUp(self):
        super().setUp()
        # A daemon that is killed leaves its own behind, which the next test may take for that of its daemon.
        run("sh", "-c", "ipcrm --all; rm -f /tmp/qipc_*")
        self.lan = self.cable("eth0")
        write_store(wired(**STATIC))

    def poll(self, pause_ms):
        process = subprocess.Popen([POLLER, str(pause_ms)])
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)

    def test_segment_that_is_lost_comes_back_with_its_record(self):
        daemon = self.start_daemon()
        wait_for("record", lambda: (published() or {}).get("ipAddress") == "10.77.0.5")

        remove_segments()

        daemon.wait_logged("the status segment was lost and is made anew")
        wait_for("record again", lambda: (published() or {}).get("ipAddress") == "10.77.0.5", timeout=10)

    def keep_lock(self):
        keeper = subprocess.Popen([sys.executable, "-c", KEEPER, lock()])
        self.addCleanup(keeper.wait)
        self.addCleanup(keeper.kill)
        wait_for("the keeper of the lock stopped", lambda: ") T" in read(f"/proc/{keeper.pid}/stat"))
        return keeper

    def test_reader_that_is_stopped_with_the_lock_holds_nothing_up(self):
        daemon = self.start_daemon()
        wait_for("record", lambda: (published() or {}).get("ipAddress") == "10.77.0.5")
        keeper = self.keep_lock()

        self.lan.pull()

        daemon.wait_logged(f"process {keeper.pid} keeps the lock of the status segment", timeout=20)
        wait_for("the address taken away", lambda: not addresses("eth0"))
        self.lan.plug()
        self.wait_address("eth0")
        answer = subprocess.run([STATUS_TOOL], capture_output=True, text=True, timeout=60, check=False)
        self.assertIn(f"process {keeper.pid} keeps its lock", answer.stderr)
        self.lan.pull()
        wait_for("the address taken away", lambda: not addresses("eth0"))
        keeper.kill()
        wait_for("a record that is true", lambda: (published() or {}).get("connected") is False)

    def test_start_beside_a_reader_that_is_stopped_with_the_lock(self):
        earlier = self.start_daemon()
        wait_for("record", lambda: (published() or {}).get("ipAddress") == "10.77.0.5")
        keeper = self.keep_lock()
        earlier.process.kill()
        earlier.wait_end()
        LOG.unlink()
        self.lan.pull()

        self.start_daemon()

        self.assertIn(f"process {keeper.pid} keeps the lock", read(LOG))
        wait_for("a record that is true", lambda: (published() or {}).get("connected") is False)

    def test_reader_that_ended_with_the_lock_is_not_waited_for(self):
        daemon = self.start_daemon()
        wait_for("record", lambda: (published() or {}).get("ipAddress") == "10.77.0.5")
        run("python3", "-c", KEEPER_THAT_ENDS, lock())

        self.lan.pull()

        daemon.wait_logged("Wired Device Connected 0")
        wait_for("the address taken away", lambda: not addresses("eth0"))
        wait_for("a record that is true", lambda: (published() or {}).get("connected") is False)
        self.assertFalse(daemon.logged("keeps the lock"))

    def test_killed_daemons_leave_a_readable_segment(self):
        chance = random_source()
        # Displays in a hurry, so that one of them meets a daemon's start soon: they let go of the segment between
        # two looks, and the last to let go removes it.
        for pause_ms in (0, 0, 1, 1):
            self.poll(pause_ms)
        worst = 0.0
        for turn in range(daemons):
            LOG.unlink(missing_ok=True)
            daemon = Daemon()
            try:
                daemon.wait_ready()
                if turn % 10 == 0:
                    remove_segments()  # Seldom do the displays meet a start so that they do.
                begun = time.monotonic()
                wait_for("a segment that others find", is_found, timeout=3)
                worst = max(worst, time.monotonic() - begun)
                if turn % 10 == 0:
                    wait_for("a record", published, timeout=10)
                # At any point of the displays' turn.
                time.sleep(chance.uniform(0, 0.1))
                daemon.assert_runs()
            finally:
                daemon.process.kill()
                daemon.wait_end()
        print(f"{daemons} daemons, the slowest segment found {worst:.2f} s after the daemon's start", flush=True)


if __name__ == "__main__":
    if "--daemons" in sys.argv:
        at = sys.argv.index("--daemons")
        daemons = int(sys.argv[at + 1])
        del sys.argv[at:at + 2]
    main()
