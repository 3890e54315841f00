"""What the packaging tests share: where things are, and how a test says that it cannot run here."""

import os
import pathlib
import shutil
import sys

BUILD = pathlib.Path(os.environ["PELMAR_BUILD"])
SOURCE = pathlib.Path(os.environ["PELMAR_SOURCE"])
AGENT = "PelmarCoworkWatcher"
STATUS = "pelmar-cowork-status"
SKIPPED = 77


def skip(reason):
    print(f"not run here: {reason}")
    sys.exit(SKIPPED)


def need(*programs):
    for program in programs:
        if shutil.which(program) is None:
            skip(f"{program} is not installed")


def files_below(folder):
    """The paths of everything but folders, relative to `folder`."""
    root = pathlib.Path(folder)
    return sorted(str(path.relative_to(root)) for path in root.rglob("*") if not path.is_dir())


def copy_programs(folder, twins=False):
    """Copies the built programs, or the twins that keep to PELMAR_ROOT under the same names."""
    folder.mkdir(parents=True, exist_ok=True)
    for program in (AGENT, STATUS):
        shutil.copy(BUILD / (program + ("-rooted" if twins else "")), folder / program)
