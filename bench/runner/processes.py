"""The processes that are measured: started, counted by their passes, read from /proc, ended."""

import contextlib
import os
import pathlib
import select
import signal
import subprocess
import time

PATIENCE = 120  # seconds without a pass before a process counts as stuck
MARK = b"found"  # in each line that the agent (--verbose) and the floors write once a pass


class Failure(Exception):
    """Why a figure cannot be had; never counted as one."""


class Watched:
    """A process that writes a line with MARK to its stderr at every pass."""

    def __init__(self, command, environment=None, cores=None):
        self.name = pathlib.Path(command[0]).name
        self.started = time.monotonic()
        self.process = subprocess.Popen(
            [str(word) for word in command], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.PIPE, env=environment or minimal_environment())
        self.pid = self.process.pid
        if cores:
            os.sched_setaffinity(self.pid, cores)
        self.errors = self.process.stderr.fileno()
        os.set_blocking(self.errors, False)
        self.passes = 0
        self.said = []  # the last lines
        self.tail = b""  # of the line that is not whole yet

    def wait_for(self, passes, patience=PATIENCE):
        """Returns when the process has begun `passes` passes since its start, with the time of it."""
        deadline = time.monotonic() + patience
        while self.passes < passes:
            if not select.select([self.errors], [], [], max(0, deadline - time.monotonic()))[0]:
                raise Failure(f"{self.name} is stuck: {self.last_words()}")
            self.take()
        return time.monotonic()

    def take(self):
        """Counts what it has written by now."""
        try:
            text = os.read(self.errors, 1 << 16)
        except BlockingIOError:
            return
        if not text:
            raise Failure(f"{self.name} ended: {self.last_words()}")
        lines = (self.tail + text).split(b"\n")
        self.passes += sum(MARK in line for line in lines[:-1])
        self.said = (self.said + lines[:-1])[-3:]
        self.tail = lines[-1]

    def last_words(self):
        return b" ".join(self.said + [self.tail]).decode(errors="replace")

    def cpu(self):
        """Seconds of all its threads, user and system, to the nanosecond: its CPU-time clock, whose
        number the kernel makes of the pid as clock_getcpuclockid(3) does."""
        return time.clock_gettime((~self.pid << 3) | 2)

    def proc(self, name):
        return pathlib.Path(f"/proc/{self.pid}/{name}").read_text(encoding="ascii", errors="replace")

    def field(self, name, key):
        """The number at `key` of a /proc file of "Key:  number" lines."""
        for line in self.proc(name).splitlines():
            if line.startswith(key + ":"):
                return int(line.split()[1])
        raise Failure(f"{name} has no {key}")

    def stop(self):
        end(self.process)


def minimal_environment(**more):
    return {"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8", "no_proxy": "127.0.0.1", **more}


def end(process):
    if process.poll() is None:
        process.send_signal(signal.SIGTERM)
        try:
            process.wait(5)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
    for stream in (process.stdin, process.stdout, process.stderr):
        if stream:
            stream.close()


@contextlib.contextmanager
def watched(command, environment=None, cores=None):
    process = Watched(command, environment, cores)
    try:
        yield process
    finally:
        process.stop()


def cpu_a_pass(process, warm, passes, seconds=0.0):
    """CPU seconds of a pass, over at least `passes` passes and `seconds` seconds, `warm` passes
    after the start."""
    begin = process.wait_for(warm)
    first, cpu = process.passes, process.cpu()
    while process.passes < first + passes or time.monotonic() < begin + seconds:
        process.wait_for(process.passes + 1)
    return (process.cpu() - cpu) / (process.passes - first)
