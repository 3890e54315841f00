"""The Debian package: built, installed, upgraded over an older version and removed, by the real dpkg in
a copy of this machine that is thrown away (an overlay, in a mount namespace)."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

from built import AGENT, BUILD, STATUS, files_below, need, skip

PACKAGE = "pelmar-cowork-watcher"
UNIT = f"{PACKAGE}.service"
INSIDE = "PELMAR_TEST_INSIDE"
INSTALLED = [
    "usr/bin/PelmarCoworkWatcher",
    "usr/bin/pelmar-cowork-status",
    "usr/lib/systemd/user/pelmar-cowork-watcher.service",
    "usr/share/bash-completion/completions/PelmarCoworkWatcher",
    "usr/share/bash-completion/completions/pelmar-cowork-status",
    "usr/share/fish/vendor_completions.d/PelmarCoworkWatcher.fish",
    "usr/share/fish/vendor_completions.d/pelmar-cowork-status.fish",
    "usr/share/man/man1/PelmarCoworkWatcher.1",
    "usr/share/man/man1/pelmar-cowork-status.1",
    "usr/share/zsh/vendor-completions/_PelmarCoworkWatcher",
    "usr/share/zsh/vendor-completions/_pelmar-cowork-status",
]
# What dpkg and its triggers keep for themselves, whatever the package.
BOOKKEEPING = ("var/lib/dpkg/", "var/log/", "var/cache/", "tmp/", "etc/ld.so.cache")


# Stands before the real one: one user is logged in, and what is asked of that user's manager is noted.
SYSTEMCTL = """#!/bin/sh
case "$1" in
  list-units) echo "user@1234.service loaded active running User Manager for UID 1234" ;;
  --user) echo "$*" >>/tmp/asked ;;
  *) exec /usr/bin/systemctl.real "$@" ;;
esac
"""


def run(*command, **how):
    return subprocess.run(command, check=True, capture_output=True, text=True, **how).stdout


def enter_namespace():
    if os.environ.get(INSIDE):
        return
    can = subprocess.run(
        ["unshare", "--mount", "sh", "-c",
         "mount -t tmpfs tmpfs /mnt && mkdir /mnt/u /mnt/w /mnt/r && "
         "mount -t overlay overlay -o lowerdir=/,upperdir=/mnt/u,workdir=/mnt/w /mnt/r"],
        capture_output=True,
    )
    if os.getuid() != 0 or can.returncode != 0:
        skip("an overlay over this machine needs root and overlayfs")
    result = subprocess.run(
        ["unshare", "--mount", sys.executable, "-B", *sys.argv], env={**os.environ, INSIDE: "1"}
    )
    sys.exit(result.returncode)


def build(folder, version):
    """The package of the built tree as `version`."""
    run("cpack", "--config", BUILD / "CPackConfig.cmake", "-B", folder, "-R", version)
    (package,) = folder.glob(f"{PACKAGE}_{version}_*.deb")
    return package


class DebianPackage(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.packages = pathlib.Path(folder.name)
        self.overlay = pathlib.Path("/mnt")
        run("mount", "-t", "tmpfs", "tmpfs", self.overlay)
        self.addCleanup(run, "umount", "-R", self.overlay)
        for name in ("changes", "work", "root"):
            (self.overlay / name).mkdir()
        self.root = self.overlay / "root"
        run("mount", "-t", "overlay", "overlay", "-o",
            f"lowerdir=/,upperdir={self.overlay}/changes,workdir={self.overlay}/work", self.root)
        run("mount", "-t", "proc", "proc", self.root / "proc")
        run("mount", "--bind", "/dev", self.root / "dev")

    def in_root(self, *command):
        return run("chroot", self.root, *command)

    def install(self, package):
        shutil.copy(package, self.root / "tmp" / package.name)
        self.in_root("dpkg", "-i", f"/tmp/{package.name}")

    def changes(self):
        """The files that differ from the machine's, a removed one included."""
        return [
            path for path in files_below(self.overlay / "changes")
            if not path.startswith(BOOKKEEPING) and "/doc/" not in path
        ]

    def asked(self):
        """What the user's manager was asked since the last call."""
        asked = self.root / "tmp" / "asked"
        lines = asked.read_text().splitlines() if asked.exists() else []
        asked.unlink(missing_ok=True)
        return lines

    def version(self):
        return self.in_root("dpkg-query", "-W", "-f=${Version} ${db:Status-Status}", PACKAGE)

    def test_it_is_installed_upgraded_and_removed_without_a_trace(self):
        old, new = build(self.packages, "0.0.9"), build(self.packages, "0.1.0")
        home = self.root / "root"
        (home / ".pelmar").mkdir(exist_ok=True)
        (home / ".pelmar" / "cowork-cursor.json").write_text("{}")
        systemctl = self.root / "usr" / "bin" / "systemctl"
        systemctl.rename(systemctl.with_suffix(".real"))
        systemctl.write_text(SYSTEMCTL)
        systemctl.chmod(0o755)
        users_own = self.changes()
        manager = "--user --machine 1234@"

        self.install(old)
        self.assertEqual(self.asked(), [])
        self.assertEqual(self.version(), "0.0.9 installed")
        self.assertEqual([path for path in self.changes() if path not in users_own], INSTALLED)
        self.in_root("systemctl", "--global", "enable", UNIT)

        self.install(new)
        self.assertEqual(self.version(), "0.1.0 installed")
        self.assertEqual(self.asked(), [f"{manager} daemon-reload", f"{manager} try-restart {UNIT}"])
        self.assertTrue(self.in_root(STATUS, "--version").startswith(STATUS))
        missing = self.in_root("sh", "-c", f"ldd /usr/bin/{AGENT} | grep 'not found' || true")
        self.assertEqual(missing, "")
        link = f"etc/systemd/user/default.target.wants/{UNIT}"
        self.assertTrue((self.root / link).is_symlink())  # an upgrade keeps the administrator's choice

        self.in_root("dpkg", "-r", PACKAGE)
        self.assertEqual(self.asked(), [f"{manager} stop {UNIT}"])
        self.assertEqual(self.changes(), users_own)
        self.in_root("dpkg", "--purge", PACKAGE)
        self.assertEqual(self.changes(), users_own)

    def test_dependencies_of_the_package_are_complete(self):
        package = build(self.packages, "0.1.0")
        depends = run("dpkg-deb", "-f", package, "Depends")
        for library in ("libcurl4", "libicu72", "libc6", "libstdc++6", "procps", "ca-certificates"):
            self.assertIn(library, depends)


if __name__ == "__main__":
    need("cpack", "dpkg", "dpkg-shlibdeps", "unshare")
    enter_namespace()
    unittest.main()
