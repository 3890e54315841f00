"""The systemd unit, as systemd itself reads it."""

import configparser
import pathlib
import subprocess
import tempfile
import unittest

from built import BUILD, need

UNIT = "pelmar-cowork-watcher.service"


class SystemdUnit(unittest.TestCase):
    def setUp(self):
        self.text = (BUILD / "packaging" / UNIT).read_text()

    def test_systemd_has_nothing_to_say_against_it(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / UNIT
            # The program stands there after the installation only, nor does its manual page.
            text = self.text.replace('"/usr/bin/PelmarCoworkWatcher"', "/bin/true")
            self.assertNotEqual(text, self.text)
            path.write_text(text)
            result = subprocess.run(
                ["systemd-analyze", "verify", "--user", "--man=no", path], capture_output=True, text=True
            )
        # A machine whose own manager is another has no units to order it behind.
        messages = [line for line in result.stderr.splitlines() if UNIT in line]
        self.assertEqual(messages, [])

    def test_it_is_started_again_for_ever_and_in_the_background(self):
        unit = configparser.ConfigParser(interpolation=None)
        unit.optionxform = str
        unit.read_string(self.text)
        self.assertEqual(unit["Unit"]["StartLimitIntervalSec"], "0")
        service = unit["Service"]
        self.assertEqual(service["ExecStart"], '"/usr/bin/PelmarCoworkWatcher"')
        self.assertEqual((service["Restart"], service["RestartSec"]), ("always", "10"))
        self.assertEqual((service["CPUWeight"], service["IOWeight"]), ("20", "20"))
        self.assertEqual(unit["Install"]["WantedBy"], "default.target")


if __name__ == "__main__":
    need("systemd-analyze")
    unittest.main()
