"""The launchd agent: its property list, and the scripts, with a stand-in for launchctl."""

import os
import pathlib
import plistlib
import subprocess
import tempfile
import unittest

from built import AGENT, SOURCE, STATUS, files_below

LABEL = "dev.pelmar.cowork-watcher"
MACOS = SOURCE / "packaging" / "macos"

# Knows what is loaded, and says at which step a program or the property list was there.
LAUNCHCTL = """#!/bin/sh
state=$TEST_ROOT/loaded
case $1 in
  print) test -e "$state" ;;
  bootout)
    echo "bootout $2, new program in place: $(cat "$HOME/.local/bin/PelmarCoworkWatcher")" >>"$TEST_ROOT/calls"
    rm "$state"
    ;;
  bootstrap)
    echo "bootstrap $2 $(basename "$3"), program: $(cat "$HOME/.local/bin/PelmarCoworkWatcher")" >>"$TEST_ROOT/calls"
    test ! -e "$state" && touch "$state"
    ;;
esac
"""


class LaunchdAgent(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        self.home = self.root / "a home & <more>"
        self.home.mkdir()
        tools = self.root / "tools"
        tools.mkdir()
        (tools / "launchctl").write_text(LAUNCHCTL)
        (tools / "launchctl").chmod(0o755)
        self.environment = {
            "PATH": f"{tools}:{os.environ['PATH']}",
            "HOME": str(self.home),
            "TEST_ROOT": str(self.root),
        }

    def build(self, content):
        folder = self.root / "build"
        folder.mkdir(exist_ok=True)
        for program in (AGENT, STATUS):
            (folder / program).write_text(content)
        return folder

    def run_script(self, name, *arguments, check=True):
        return subprocess.run(
            [MACOS / name, *arguments], env=self.environment, check=check, capture_output=True, text=True
        )

    def calls(self):
        return (self.root / "calls").read_text().splitlines()

    def plist(self):
        path = self.home / "Library" / "LaunchAgents" / f"{LABEL}.plist"
        return plistlib.loads(path.read_bytes())

    def test_property_list_says_how_the_agent_is_kept(self):
        self.run_script("install", self.build("one"))
        self.assertEqual(
            self.plist(),
            {
                "Label": LABEL,
                "ProgramArguments": [f"{self.home}/.local/bin/{AGENT}"],
                "RunAtLoad": True,
                "KeepAlive": True,
                "ThrottleInterval": 10,
                "ProcessType": "Background",
                "LowPriorityIO": True,
                "LowPriorityBackgroundIO": True,
                "Umask": 0o077,
            },
        )

    def test_first_installation_starts_the_agent(self):
        self.run_script("install", self.build("one"))
        self.assertEqual(self.calls(), [f"bootstrap gui/{os.getuid()} {LABEL}.plist, program: one"])
        self.assertEqual(
            files_below(self.home),
            [f".local/bin/{AGENT}", f".local/bin/{STATUS}", f"Library/LaunchAgents/{LABEL}.plist"],
        )
        self.assertEqual((self.home / ".local/bin" / AGENT).stat().st_mode & 0o777, 0o755)

    def test_upgrade_stops_the_old_agent_before_the_new_program_is_in_place(self):
        self.run_script("install", self.build("one"))
        self.run_script("install", self.build("two"))
        domain = f"gui/{os.getuid()}"
        self.assertEqual(
            self.calls()[1:],
            [
                f"bootout {domain}/{LABEL}, new program in place: one",
                f"bootstrap {domain} {LABEL}.plist, program: two",
            ],
        )

    def test_installation_that_cannot_copy_leaves_the_running_agent_alone(self):
        self.run_script("install", self.build("one"))
        before = files_below(self.home)
        (self.build("two") / STATUS).unlink()
        self.assertNotEqual(self.run_script("install", self.root / "build", check=False).returncode, 0)
        self.assertEqual(len(self.calls()), 1)
        self.assertEqual(files_below(self.home), before)
        self.assertEqual((self.home / ".local/bin" / AGENT).read_text(), "one")

    def test_removal_leaves_the_users_files_only(self):
        self.run_script("install", self.build("one"))
        (self.home / ".pelmar").mkdir()
        (self.home / ".pelmar" / "config").write_text("mine")
        self.run_script("uninstall")
        self.assertEqual(files_below(self.home), [".pelmar/config"])
        self.assertFalse((self.root / "loaded").exists())

    def test_removal_of_what_is_not_installed_succeeds(self):
        self.run_script("uninstall")
        self.assertEqual(files_below(self.home), [])


if __name__ == "__main__":
    unittest.main()
