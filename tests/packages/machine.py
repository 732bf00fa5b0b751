# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""A machine with a real systemd: a container that boots the small Debian of scripts/debian-root.sh, one end of a
cable in it and the other in a network of its own. Runs in the sandbox (tests/sandbox/run) as root."""

import atexit
import contextlib
import os
import subprocess
import unittest
from pathlib import Path

from harness import Cable, DhcpServer, end_process, read, run, wait_for

ROOT = os.environ["CORVI_DEVICE_ROOT"]
PACKAGES = Path(os.environ["CORVI_PACKAGES"])

STORE = "/etc/corvi/networkconfig"
USED_STORE = "/tmp/config/xmlconfig/user/hardware/networkconfig"
LOG = "/var/log/corvi-mon.log"
CONTROL_GROUPS = Path("/sys/fs/cgroup")


def prepare():
    """What systemd-nspawn needs in the sandbox. A control group of our own, which the containers' groups go with."""
    if os.path.ismount(CONTROL_GROUPS):
        return
    run("mount", "-t", "cgroup2", "cgroup2", CONTROL_GROUPS)
    # Where /sys can be written, it waits for a udev to make the interface ready.
    run("mount", "-o", "remount,bind,ro", "/sys")
    before = next(line[3:] for line in read("/proc/self/cgroup").splitlines() if line.startswith("0::"))
    group = CONTROL_GROUPS / "corvi-packages"
    group.mkdir(exist_ok=True)
    join(group)
    # The groups are the build machine's: they do not go with the sandbox.
    atexit.register(leave, group, CONTROL_GROUPS / before[1:])


def join(group):
    (group / "cgroup.procs").write_text(str(os.getpid()))


def leave(group, before):
    join(before)
    with contextlib.suppress(OSError):  # one that a container is still in
        for folder, _, _ in os.walk(group, topdown=False):
            os.rmdir(folder)


class Machine:
    """Layers are folders, the lowest first; what the machine writes goes into one of its own above them."""

    def __init__(self, name, *layers):
        self.folder = Path("/run/machines") / name
        self.root = self.folder / "root"
        self.upper = self.folder / "upper"
        for folder in (self.root, self.upper, self.folder / "work"):
            folder.mkdir(parents=True)
        lower = ":".join(str(layer) for layer in reversed((ROOT, *layers)))
        run("mount", "-t", "overlay", "-o",
            f"lowerdir={lower},upperdir={self.upper},workdir={self.folder / 'work'}", "overlay", self.root)
        # The build machine's own, and with its mode.
        (self.root / "etc/resolv.conf").unlink(missing_ok=True)
        self.console = self.folder / "console"
        self.process = None
        self.leader = None
        self.interface = None
        self.cable = None
        self.server = None

    def boot(self, interface="eth0", cable=Cable, dhcp=True, capability=None):
        """Powers it on with one interface, which is as a new one of its kernel is: down and without an address.
        A container lacks some of root's capabilities unless it is given them."""
        self.interface = interface
        self.cable = cable(interface)
        self.server = DhcpServer(self.cable) if dhcp else None
        with open(self.console, "ab") as console:
            self.process = subprocess.Popen(
                ["systemd-nspawn", "--quiet", "--register=no", "--keep-unit", "--boot", "--console=pipe",
                 "--link-journal=no", f"--network-interface={interface}", f"--directory={self.root}",
                 *([f"--capability={capability}"] if capability else [])],
                stdin=subprocess.DEVNULL, stdout=console, stderr=console)
        self.leader = wait_for("the machine's first process", self._first_process)
        wait_for("the machine is up", lambda: self.run("systemctl", "is-system-running", check=False).strip()
                 in ("running", "degraded"), timeout=120)

    def _first_process(self):
        if self.process.poll() is not None:
            raise AssertionError(f"no machine: {read(self.console)}")
        # The first child only prepares the container.
        children = run("ps", "--ppid", self.process.pid, "--no-headers", "-o", "pid", check=False).split()
        return next((pid for pid in children if read(f"/proc/{pid}/comm") == "systemd\n"), None)

    def shut_down(self):
        if self.process is None:
            return
        self.run("systemctl", "poweroff", check=False)
        try:
            self.process.wait(60)
        finally:
            end_process(self.process)
            self.process = None
            if self.server:
                self.server.stop()
            run("ip", "netns", "delete", self.cable.netns)
            # The container gives it back, unless it went with the other end.
            run("ip", "link", "delete", "dev", self.interface, check=False)

    def reboot(self, **options):
        self.shut_down()
        self.boot(**options)

    def release(self):
        self.shut_down()
        run("umount", self.root)

    def run(self, *command, **options):
        """Runs a program in it, as root."""
        return run("nsenter", "--all", f"--target={self.leader}", "env", "-i", "HOME=/root", "LC_ALL=C.UTF-8",
                   "DEBIAN_FRONTEND=noninteractive", "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                   *command, **options)

    def run_as_user(self, *command, **options):
        """Runs a program in it as a user without rights."""
        return self.run("setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups", *command, **options)

    def run_in_its_ipc_as_user(self, *command):
        """Runs one of our programs, not of its, as a user without rights who sees its shared memory."""
        run("nsenter", "--ipc", f"--target={self.leader}", "setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
            *command)

    def write(self, path, text, mode="600"):
        path = Path(path)
        self.run("sh", "-c", f'mkdir -p "{path.parent}" && printf "%s" "$1" >"{path}" && chmod {mode} "{path}"',
                 "sh", text)

    def read(self, path):
        return self.run("cat", path, check=False)

    def show(self, *properties, unit="corvi.service"):
        """Properties of a unit, as systemctl shows them."""
        lines = self.run("systemctl", "show", "--value", *[f"--property={name}" for name in properties], unit)
        return lines.strip()

    def is_active(self):
        return self.show("ActiveState") == "active"

    def pid(self):
        return int(self.show("MainPID"))

    def addresses(self):
        lines = self.run("ip", "-br", "-4", "address", "show", "dev", self.interface, check=False).split()
        return [word.split("/")[0] for word in lines[2:]]

    def wait_address(self, accept=lambda address: True, timeout=60):
        return wait_for(f"an address on {self.interface}", lambda: next(filter(accept, self.addresses()), None), timeout)

    def install(self, *files):
        """Installs packages with apt. What they depend on is in the machine's cache; there is no network."""
        for file in files:
            run("cp", file, self.root / "root")
        # The cache says where each came from, so apt asks nobody.
        self.run("apt-get", "install", "--quiet", "--yes", "--no-install-recommends", *[f"/root/{Path(file).name}" for file in files], timeout=300)


def packages(*names):
    return [str(next(PACKAGES.glob(f"{name}_*.deb"))) for name in names]


class PackageTest(unittest.TestCase):
    """Each test has a machine of its own. `installed` is the layer of one with the packages on it."""

    installed = None

    @classmethod
    def setUpClass(cls):
        prepare()
        if PackageTest.installed is None:
            machine = Machine("installed")
            machine.boot(dhcp=False)
            machine.install(*packages("corvi", "libzeb3-3"))
            machine.release()
            PackageTest.installed = machine.upper

    def given_machine(self, *layers):
        machine = Machine(self.id().rsplit(".", 1)[1], *layers)
        self.addCleanup(machine.release)
        self.addCleanup(self.explain_failure, machine, self.failures())
        return machine

    def failures(self):
        result = self._outcome.result
        return len(result.failures) + len(result.errors)

    def explain_failure(self, machine, failures_before):
        if self.failures() > failures_before and machine.process:
            print(f"--- {self.id()}: the journal ---",
                  machine.run("journalctl", "--no-pager", "-n", "60", check=False), sep="\n", flush=True)
            print("--- the daemon's log ---", machine.read(LOG)[-4000:], sep="\n", flush=True)
