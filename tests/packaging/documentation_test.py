"""Manual pages and completions: of all switches that the programs know, and as their readers take them."""

import json
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

from built import AGENT, BUILD, SOURCE, STATUS, need

GENERATED = BUILD / "packaging" / "documentation"
PROGRAMS = {
    program["name"]: program
    for program in json.loads((SOURCE / "packaging" / "programs.json").read_text(encoding="utf-8"))
}


def switches(program):
    return [switch["name"] for switch in PROGRAMS[program]["switches"]]


def output_of(command, **how):
    return subprocess.run(command, capture_output=True, text=True, check=True, **how).stdout


class Documentation(unittest.TestCase):
    def test_description_has_the_switches_of_the_status_program(self):
        usage = output_of([BUILD / STATUS, "--help"])
        named = {word.strip("[],") for word in usage.split() if word.strip("[],").startswith("--")}
        self.assertEqual(named, set(switches(STATUS)))

    def test_description_has_the_switches_of_the_agent(self):
        source = (SOURCE / "app" / "command_line.cpp").read_text(encoding="utf-8")
        named = {word for word in source.split('"') if word.startswith("--")}
        self.assertEqual(named, set(switches(AGENT)))

    def test_version_is_the_packages(self):
        version = output_of([BUILD / STATUS, "--version"]).split()[1]
        self.assertIn(f"{STATUS} {version}", (GENERATED / f"{STATUS}.1").read_text())

    def test_manual_pages_are_formatted_without_a_warning(self):
        for program in PROGRAMS:
            page = GENERATED / f"{program}.1"
            result = subprocess.run(
                ["groff", "-man", "-Tutf8", "-ww", "-z", page], capture_output=True, text=True
            )
            self.assertEqual(result.stderr, "")
            text = re.sub(".\b", "", output_of(["mandoc", "-Tascii", page]))  # bold is overstruck
            for section in ("NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS"):
                self.assertIn(section, text)

    def test_bash_completes_switches_and_files(self):
        with tempfile.TemporaryDirectory() as folder:
            (pathlib.Path(folder) / "config-of-mine").touch()

            def completed(program, previous, word):
                script = (
                    f"source '{GENERATED}/{program}.bash'\n"
                    f"_{program.replace('-', '_')} {program} '{word}' '{previous}'\n"
                    'printf "%s\\n" "${COMPREPLY[@]}"\n'
                )
                return output_of(["bash", "-c", script], cwd=folder).split()

            for program in PROGRAMS:
                self.assertEqual(completed(program, program, "--"), switches(program))
            self.assertEqual(completed(STATUS, STATUS, "--js"), ["--json"])
            self.assertEqual(completed(STATUS, "--config", "config"), ["config-of-mine"])
            self.assertEqual(completed(AGENT, "--poll", ""), [])

    def test_fish_completes_switches_and_files(self):
        with tempfile.TemporaryDirectory() as folder:
            (pathlib.Path(folder) / "config-of-mine").touch()

            def completed(program, line):
                script = f"source '{GENERATED}/{program}.fish'; complete -C '{program} {line}'"
                lines = output_of(["fish", "-c", script], cwd=folder, env={**os.environ, "HOME": folder})
                return {found.split("\t")[0] for found in lines.splitlines()}

            for program in PROGRAMS:
                self.assertEqual(completed(program, "--"), set(switches(program)))
            self.assertEqual(completed(STATUS, "--config conf"), {"config-of-mine"})

    def test_zsh_completes_switches(self):
        with tempfile.TemporaryDirectory() as folder:
            for program in PROGRAMS:
                # Completions are for an interactive shell; _arguments is replaced to see what it is told.
                script = (
                    f"fpath=('{GENERATED}' $fpath); autoload -U compinit; compinit -u -d '{folder}/dump'\n"
                    f"print -r -- $_comps[{program}]\n"
                    "_arguments() { print -rl -- \"${@%%\\[*}\" }\n"
                    f"autoload +X _{program}; _{program}\n"
                )
                lines = output_of(["zsh", "-f", "-c", script], env={**os.environ, "HOME": folder}).split()
                self.assertEqual(lines, [f"_{program}", *switches(program)])


if __name__ == "__main__":
    need("groff", "mandoc", "bash", "fish", "zsh")
    unittest.main()
