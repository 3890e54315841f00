"""Stands between one agent and the service, fails as planned and remembers every request of an event.

The agent's address of the service ends in /lifeN, so that a request tells which life it is of, however late
it is read. Faults do not hand a request to the store, but for those of faults.STORED.
"""

import asyncio
import collections
import json
import re
import socket

import faults
from comparer import Arrival
from reading import event_of_step

HEAD_END = b"\r\n\r\n"


class Broken(Exception):
    """The run itself does not work."""


class Upstream:
    """One kept connection to the service."""

    def __init__(self, port):
        self.port = port
        self.lock = asyncio.Lock()  # requests are stored in the order in which the proxy remembers them
        self.streams = None

    async def post(self, path, key, body):
        """(status, body)"""
        async with self.lock:
            if self.streams is None:
                self.streams = await asyncio.open_connection("127.0.0.1", self.port)
            reader, writer = self.streams
            writer.write(f"POST {path} HTTP/1.1\r\nHost: 127.0.0.1:{self.port}\r\nX-Pel-Key: {key}\r\n"
                         "Content-Type: application/json\r\n"
                         f"Content-Length: {len(body)}\r\n\r\n".encode() + body)
            head = (await reader.readuntil(HEAD_END)).decode()
            length = int(re.search(r"(?i)content-length: (\d+)", head)[1])
            return int(head.split()[1]), await reader.readexactly(length)


class Request:
    def __init__(self, head):
        lines = head.decode("latin-1").split("\r\n")
        life, self.path = re.fullmatch(r"POST /life(\d+)(/\S*) HTTP/1.1", lines[0]).groups()
        self.life = int(life)
        headers = dict(line.lower().split(": ", 1) for line in lines[1:] if line)
        self.length = int(headers["content-length"])
        self.key = headers["x-pel-key"]
        self.body = b""
        what = {"steps": "step", "llm-calls": "call", "complete": "completion"}
        self.what = what.get(self.path.rstrip("/").rsplit("/", 1)[-1])
        self.run = self.path.split("/")[-3] if self.what else ""


class Proxy:
    def __init__(self, home, service_port, waiting, strike):
        self.home = home
        self.waiting = waiting  # times of lines of which nothing was stored yet
        self.upstream = Upstream(service_port)
        self.strike = strike  # called with (life, moment, request number) wherever a kill may fall
        self.plan = faults.Plan()
        self.life = 0
        self.requests = 0  # of this life
        self.arrivals = []
        self.of_tokens = {}  # the event of a call or completion, by the number that marks it
        self.firsts = {}  # the first event seen, by session
        self.kinds = {}  # of runs, by id
        self.latest = None  # step of this life, whose call and completion follow it
        self.connections = set()
        self.tasks = set()
        self.met = collections.Counter()  # faults, by kind
        self.server = None
        self.is_down = False
        self.problems = []
        # Keeps the port while nothing listens on it.
        self.holder = self.bound(0)
        self.port = self.holder.getsockname()[1]

    @staticmethod
    def bound(port):
        bound = socket.socket(socket.AF_INET, socket.SOCK_STREAM, socket.IPPROTO_TCP)  # named: asyncio asks
        bound.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        bound.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEPORT, 1)
        bound.bind(("127.0.0.1", port))
        return bound

    async def up(self):
        self.is_down = False
        if self.server is None:
            self.server = await asyncio.start_server(self.accept, sock=self.bound(self.port), backlog=20)

    def down(self):
        self.is_down = True
        self.server.close()
        self.server = None
        self.note_unseen()
        for writer, is_idle in list(self.connections):
            if is_idle():
                writer.close()

    async def down_for(self, seconds):
        self.down()
        await asyncio.sleep(seconds)
        await self.up()

    def note_unseen(self):
        """While the port is closed, attempts for the event at hand may fail without being seen."""
        if self.latest is not None and self.latest.is_stored:
            for what in ("call", "completion"):
                self.arrivals.append(Arrival(self.home, self.life, what, self.latest.event, False, "unseen"))

    def begin_life(self, life, plan):
        self.life, self.plan, self.requests, self.latest = life, plan, 0, None

    def accept(self, reader, writer):
        task = asyncio.get_running_loop().create_task(self.serve(reader, writer))
        self.tasks.add(task)
        task.add_done_callback(self.tasks.discard)

    async def serve(self, reader, writer):
        state = {"idle": True}
        entry = (writer, lambda: state["idle"])
        self.connections.add(entry)
        try:
            while not self.is_down:
                state["idle"] = True
                head = await reader.readuntil(HEAD_END)
                state["idle"] = False
                if not await self.exchange(Request(head), reader, writer):
                    break
        except (ConnectionError, asyncio.IncompleteReadError):
            pass  # the agent was killed
        except Exception as error:  # pylint: disable=broad-except
            self.problems.append(f"the proxy of {self.home} failed: {error!r}")
        finally:
            self.connections.discard(entry)
            writer.close()

    async def exchange(self, request, reader, writer):
        """Whether the connection is kept."""
        number, fault = -1, None
        if request.life == self.life:
            number, self.requests = self.requests, self.requests + 1
            fault = self.plan.faults.get(number)
            self.met[fault.kind if fault else "none"] += 1
        if fault and fault.kind == "drop_before_reading":
            self.remember(request, None)
            return False
        request.body = await reader.readexactly(request.length)
        known = len(self.firsts)
        arrival = self.remember(request, self.event_of(request))
        self.strike(request.life, "read", number)
        if len(self.firsts) > known:
            self.strike(request.life, "first", number)
        if self.is_down:
            return False
        if fault and fault.kind not in faults.STORED:
            return await self.fail(fault, arrival, reader, writer)
        return await self.store(request, arrival, fault, number, writer)

    def first_event_of(self, session):
        return self.firsts.get(session)

    def event_of(self, request):
        if request.what is None:
            return None
        body = json.loads(request.body)
        if request.what == "step":
            output = body["steps"][0]["output"]
            event = event_of_step(output)
            self.firsts.setdefault(output["session_id"], event)
            for mark in self.marks(event, output):
                self.of_tokens[mark] = event
            return event
        mark = body["calls"][0]["tokens_in"] if request.what == "call" else body["result"]["num_turns"]
        return self.of_tokens.get(mark, ("?", str(mark), ""))

    @staticmethod
    def marks(event, output):
        if event[1] == "assistant":
            yield output["usage"].get("input_tokens")
        if event[1].startswith("result:"):
            yield output["num_turns"]

    def remember(self, request, event):
        if request.what is None:
            return None
        if event is None and request.what != "step" and self.latest is not None:
            event = self.latest.event
        arrival = Arrival(self.home, request.life, request.what, event, False, "failed")
        self.arrivals.append(arrival)
        if request.what == "step" and request.life == self.life:
            self.latest = arrival
        return arrival

    async def fail(self, fault, arrival, reader, writer):
        if arrival and fault.kind == "refused":
            arrival.outcome = "refused"
        if fault.kind == "never":
            self.strike(self.life, "never", fault.seconds)
            await self.gone(reader)
        elif fault.kind == "down":
            asyncio.get_running_loop().create_task(self.down_for(fault.seconds))
        elif fault.bytes:
            writer.write(fault.bytes)
            await writer.drain()
        return not fault.closes

    @staticmethod
    async def gone(reader):
        """The kill ends it, mostly."""
        try:
            await asyncio.wait_for(reader.read(1), 6)
        except asyncio.TimeoutError:
            pass

    async def store(self, request, arrival, fault, number, writer):
        if fault and fault.kind == "slow":
            await asyncio.sleep(fault.seconds)
        status, body = await self.upstream.post(request.path, request.key, request.body)
        if status != 200:
            raise Broken(f"the service answered {status} to {request.path}: {body[:200]!r}")
        if request.path.endswith(("/runs/start/", "/runs/daily/")):
            kind = "daily" if request.path.endswith("/daily/") else "session"
            self.kinds[json.loads(body)["run_id"]] = kind
        if arrival:
            arrival.is_stored, arrival.outcome, arrival.run = True, "answered", self.kinds[request.run]
            self.waiting.discard(arrival.event[0])
        self.strike(request.life, "stored", number)
        if fault and fault.kind == "stored_but_lost":
            if arrival:
                arrival.outcome = "lost"
            writer.write(fault.bytes)
            await writer.drain()
            return False
        answer = fault.bytes if fault and fault.bytes else faults.answer("200 OK", body)
        half = len(answer) // 2
        writer.write(answer[:half])
        if self.strike(request.life, "half answered", number) or (fault and fault.kind == "slow"):
            await asyncio.sleep(0.002)
        writer.write(answer[half:])
        await writer.drain()
        self.strike(request.life, "answered", number)
        return not (fault and fault.closes)
