"""The service of the benchmarks (sink.c), as a process."""

import contextlib
import http.client
import json
import os
import select
import subprocess
import time

from processes import Failure, end


class Sink:
    def __init__(self, program, *switches, cores=None):
        self.process = subprocess.Popen([str(program), *map(str, switches)], stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE)
        if cores:
            os.sched_setaffinity(self.process.pid, cores)
        self.output = self.process.stdout.fileno()
        self.unread = b""
        self.port = self.number(10)
        self.url = f"http://127.0.0.1:{self.port}"
        self.asked = http.client.HTTPConnection("127.0.0.1", self.port, timeout=10)

    def number(self, patience):
        """The next number that it prints."""
        deadline = time.monotonic() + patience
        while b"\n" not in self.unread:
            if not select.select([self.output], [], [], max(0, deadline - time.monotonic()))[0]:
                raise Failure("nothing arrived at the sink")
            text = os.read(self.output, 1 << 16)
            if not text:
                raise Failure("the sink ended")
            self.unread += text
        line, _, self.unread = self.unread.partition(b"\n")
        return int(line)

    def stats(self):
        """Requests and their bytes, heads included; heartbeats are counted apart."""
        self.asked.request("GET", "/stats")
        return json.loads(self.asked.getresponse().read())

    def since(self, before):
        now = self.stats()
        return now["requests"] - before["requests"], now["bytes"] - before["bytes"]


@contextlib.contextmanager
def sink(program, *switches, cores=None):
    service = Sink(program, *switches, cores=cores)
    try:
        yield service
    finally:
        service.asked.close()
        end(service.process)
