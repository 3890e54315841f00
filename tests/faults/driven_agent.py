"""The built agent, driven pass by pass while its system calls fail as planned."""

import collections
import dataclasses
import os
import select
import shutil
import subprocess

from agent_stage import PATIENCE, Failure


class Ended(Failure):
    """The agent ended by itself."""

    def __init__(self, status, log):
        super().__init__(f"the agent ended with status {status}:\n{log}")
        self.status = status
        self.log = log


@dataclasses.dataclass(frozen=True)
class Fault:
    call: str
    number: int
    where: str


class Agent:
    """The built agent with the preloaded library: stands still at the pause after every pass."""

    def __init__(self, build, home, plan="", switches=(), record=None, trace=None):
        status, for_agent = os.pipe()
        from_us, commands = os.pipe()
        self.status, self.commands = os.fdopen(status, "rb", 0), os.fdopen(commands, "wb", 0)
        self.is_traced = trace is not None
        self.faults = []
        self.calls = 0  # of the last pass
        self.unread = b""
        self.log_file = home.root / "agent.log"
        environment = {
            "PELMAR_ROOT": str(home.root), "PELMAR_FAULTS": plan, "no_proxy": "127.0.0.1",
            "PELMAR_LOCKSTEP": f"{for_agent},{from_us}",
            "LD_PRELOAD": str(build / "tests" / "faults" / "libpreloaded_faults.so")}
        descriptors = [for_agent, from_us]
        if record is not None:
            environment["PELMAR_RECORD"] = str(record.fileno())
            environment["PELMAR_KEPT"] = str(home.root / "kept")
            descriptors.append(record.fileno())
        command = [build / "PelmarCoworkWatcher-rooted", "--poll", "0.015625", *switches]
        if trace is not None:
            path, calls = trace
            library = environment.pop("LD_PRELOAD")
            command = [shutil.which("strace"), "-f", "-y", "-o", path, "-e", calls, "-E",
                       f"LD_PRELOAD={library}", *command]
        with self.log_file.open("ab") as log:
            self.process = subprocess.Popen(command, env=environment, stderr=log,
                                            pass_fds=descriptors)
        os.close(for_agent)
        os.close(from_us)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if not self.is_traced:
            self.process.kill()
        self.commands.close()  # which ends an agent that stands still
        self.process.wait()
        self.status.close()

    def log(self):
        return self.log_file.read_text(errors="replace")

    def wait_for_pause(self):
        for word, _, rest in iter(lambda: self.line().partition(" "), None):
            if word == "pass":
                self.calls = int(rest)
                return
            if word == "spins":
                raise Failure(f"the agent spins on {rest}")
            call, number, where = rest.split(" ", 2)
            self.faults.append(Fault(call, int(number), where))

    def go_on(self):
        """One more pass, to its end."""
        self.commands.write(b"go\n")
        self.wait_for_pause()

    def plan(self, text):
        """Replaces the plan; behind a pause only."""
        self.commands.write(f"faults {text}\n".encode())

    def counts(self):
        """How often each call was made so far; behind a pause only."""
        self.commands.write(b"counts\n")
        pairs = (word.split("=") for word in self.line().split()[1:])
        return collections.Counter({call: int(count) for call, count in pairs})

    def line(self):
        while b"\n" not in self.unread:
            if not select.select([self.status], [], [], PATIENCE)[0]:
                raise Failure(f"the agent hangs:\n{self.log()}")
            piece = os.read(self.status.fileno(), 65536)
            if not piece:
                raise Ended(self.process.wait(), self.log())
            self.unread += piece
        line, _, self.unread = self.unread.partition(b"\n")
        return line.decode()
