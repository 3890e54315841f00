"""A real `systemd --user` of the test's own: in namespaces for processes, mounts and control groups,
as an ordinary user. Nothing of it outlives the test, and it sees nothing of the machine's own."""

import contextlib
import os
import pathlib
import shutil
import subprocess
import sys

from built import skip

USER = 65534  # nobody
AS_USER = {"user": USER, "group": USER, "extra_groups": []}  # arguments of subprocess
INSIDE = "PELMAR_TEST_INSIDE"
CONTROL_GROUPS = [pathlib.Path("/sys/fs/cgroup/systemd"), pathlib.Path("/sys/fs/cgroup/unified")]
RUNTIME = pathlib.Path("/run/user-of-the-test")
MANAGER = "/usr/lib/systemd/systemd"


def mounted_control_groups():
    """The hierarchies that systemd uses here: its own two, or the unified one alone."""
    if (CONTROL_GROUPS[0] / "cgroup.procs").exists():
        return [group for group in CONTROL_GROUPS if (group / "cgroup.procs").exists()]
    unified = pathlib.Path("/sys/fs/cgroup")
    return [unified] if (unified / "cgroup.procs").exists() else []


def delegate(group):
    os.chown(group, USER, USER)
    for name in ("cgroup.procs", "cgroup.threads", "cgroup.subtree_control", "tasks"):
        if (group / name).exists():
            os.chown(group / name, USER, USER)


def remove_group(group):
    for folder, _, _ in os.walk(group, topdown=False):
        with contextlib.suppress(OSError):
            os.rmdir(folder)


def enter():
    """Runs this program again inside the namespaces and ends with its status; returns inside."""
    if os.environ.get(INSIDE):
        return
    if os.getuid() != 0 or not pathlib.Path(MANAGER).exists() or not shutil.which("unshare"):
        skip("a systemd --user of the test's own needs root, systemd and unshare")
    groups = [root / f"pelmar-test-{os.getpid()}" for root in mounted_control_groups()]
    try:
        for group in groups:
            group.mkdir()
    except OSError as error:
        skip(f"control groups cannot be made: {error}")
    try:
        for group in groups:
            delegate(group)

        def join():
            for group in groups:
                (group / "cgroup.procs").write_text("0")

        result = subprocess.run(
            ["unshare", "--cgroup", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc",
             sys.executable, "-B", *sys.argv],
            env={**os.environ, INSIDE: "1"}, preexec_fn=join, check=False,
        )
    finally:
        for group in groups:
            remove_group(group)
    sys.exit(result.returncode)


def run(*command):
    subprocess.run(command, check=True)


def mount_own_places():
    """Fresh /run and control groups, on mounts that nobody else sees."""
    has_own_hierarchy = (CONTROL_GROUPS[0] / "cgroup.procs").exists()
    run("mount", "--make-rprivate", "/")
    run("umount", "-R", "/sys/fs/cgroup")
    if has_own_hierarchy:
        run("mount", "-t", "tmpfs", "tmpfs", "/sys/fs/cgroup")
        for group in CONTROL_GROUPS:
            group.mkdir()
        run("mount", "-t", "cgroup", "-o", "none,name=systemd", "cgroup", CONTROL_GROUPS[0])
        run("mount", "-t", "cgroup2", "cgroup2", CONTROL_GROUPS[1])
    else:
        run("mount", "-t", "cgroup2", "cgroup2", "/sys/fs/cgroup")
    run("mount", "-t", "tmpfs", "tmpfs", "/run")
    # What a machine that was started by systemd is known by.
    pathlib.Path("/run/systemd/system").mkdir(parents=True)
    RUNTIME.mkdir(mode=0o700)
    os.chown(RUNTIME, USER, USER)


def give(folder):
    """Makes the ordinary user the owner of `folder` and all below it."""
    run("chown", "-R", f"{USER}:{USER}", folder)


def start(environment):
    """Starts the manager with `environment`, in which RUNTIME is its runtime folder."""
    return subprocess.Popen([MANAGER, "--user", "--log-target=null"], env=environment, **AS_USER)
