"""The preloaded library sees every call of the agent on its files and over its connection.

    coverage_test.py BUILD-FOLDER      exits 77 (skipped) without strace

strace sees them all: a call that the library does not count could not be made to fail.
"""

import collections
import pathlib
import re
import shutil
import sys
import tempfile

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(REPOSITORY / "tests" / "support"))

from agent_stage import Home, Service  # noqa: E402
from one_at_a_time import ERRORS  # noqa: E402
from scenario import FIRST, Stage, play, switches_of  # noqa: E402

SKIPPED = 77
# The library's name of what strace calls otherwise.
NAMES = {"sendto": "send", "recvfrom": "recv", "newfstatat": "stat"}
# Not to be failed: they look at, or set, what is open already, and their failure has no effect; fstat
# has no name of its own in a trace.
LEFT_OUT = {"execve", "close", "fcntl", "fadvise64", "link", "fstat", "getdents64", "lstat"}
TRACE = "trace=%file,%desc,%network"


def traced_name(line, root):
    """The library's name of the call in a line of the trace, or none when it does not concern it."""
    match = re.match(r"\d+ +(\w+)\((.*)", line)
    if match is None:
        return None
    name, rest = match.groups()
    if name in ("sendto", "recvfrom", "connect"):
        return None if "AF_UNIX" in rest else NAMES.get(name, name)
    if root not in rest or "agent.log" in rest or name in LEFT_OUT:
        return None
    if name == "newfstatat" and '""' in rest:  # fstat
        return None
    if name == "openat":
        if "O_DIRECTORY" in rest:
            return "opendir"
        return "open_read" if "O_RDONLY" in rest else "open_write"
    return NAMES.get(name, name)


def traced_and_counted(build, folder):
    service = Service(build, folder)
    try:
        stage = Stage(build, Home(folder / "root"), service)
        stage.prepare(FIRST)
        with stage.agent(switches=switches_of(FIRST), trace=(folder / "trace", TRACE)) as agent:
            play(stage, agent)
            counted = agent.counts()
        root = str(folder / "root")
        lines = (folder / "trace").read_text().splitlines()
        return collections.Counter(filter(None, (traced_name(line, root) for line in lines))), counted
    finally:
        service.stop()


def main():
    if shutil.which("strace") is None:
        print("Skipped: strace is not installed.")
        return SKIPPED
    with tempfile.TemporaryDirectory(prefix="pelmar-faults-") as name:
        traced, counted = traced_and_counted(pathlib.Path(sys.argv[1]), pathlib.Path(name).resolve())
    counted["recv"] += counted.pop("recv_look", 0)
    differing = {call: (traced[call], counted[call]) for call in traced | counted
                 if traced[call] != counted[call] and call in traced}
    unswept = set(traced) - set(ERRORS)
    print("traced and counted:", differing or sum(traced.values()))
    if unswept:
        print("no sweep fails:", unswept)
    return 1 if differing or unswept or not traced else 0


sys.exit(main())
