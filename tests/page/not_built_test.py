"""Where npm is missing: the service goes without its page, and everybody says why."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest
import urllib.request

BUILD = pathlib.Path(os.environ["PELMAR_BUILD"])
SOURCE = pathlib.Path(os.environ["PELMAR_SOURCE"])
WHY = "npm is missing."


class NotBuilt(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.page = self.folder / "page"

    def build_without_npm(self):
        tools = self.folder / "tools"
        tools.mkdir()
        for tool in ("dirname", "mkdir", "rm"):
            (tools / tool).symlink_to(shutil.which(tool))
        return subprocess.run(["/bin/sh", SOURCE / "scripts" / "build-page", self.page],
                              env={"PATH": str(tools)}, capture_output=True, text=True, check=True)

    def test_the_build_goes_on_and_says_why(self):
        self.page.mkdir()
        (self.page / "index.html").write_text("of an earlier build")
        built = self.build_without_npm()
        self.assertEqual(built.stderr, f"build-page: the page was not built: {WHY}\n")
        self.assertEqual([path.name for path in self.page.iterdir()], ["not-built.txt"])
        self.assertEqual((self.page / "not-built.txt").read_text(), f"{WHY}\n")

    def test_the_service_says_why_where_its_page_would_be(self):
        self.build_without_npm()
        key = self.folder / "key"
        key.write_text("k")
        service = subprocess.Popen(
            [BUILD / "pelmar-local-service", "--database", self.folder / "s.db", "--key-file", key,
             "--page", self.page], stdout=subprocess.PIPE, text=True)
        try:
            url = service.stdout.readline().split()[-1]
            with urllib.request.urlopen(url, timeout=30) as answer:
                self.assertIn(f"its page was not built: {WHY}\n", answer.read().decode())
        finally:
            service.terminate()
            service.communicate()

    def test_the_show_says_why_in_a_line(self):
        self.build_without_npm()
        for program in ("pelmar-local-service", "PelmarCoworkWatcher-rooted"):
            (self.folder / program).symlink_to(BUILD / program)
        shown = subprocess.run(
            [sys.executable, "-B", SOURCE / "scripts" / "show_agent.py", "--once", "--build", self.folder],
            capture_output=True, text=True, check=True)
        self.assertIn(f"\nTo see every byte of it in a browser: its page was not built: {WHY}\n",
                      shown.stdout)


if __name__ == "__main__":
    unittest.main()
