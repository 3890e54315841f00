"""The power fails between any two operations on the agent's files.

What a process does to its files is recorded and replayed into a model of a disk that promises no
more than POSIX: the content of a file is kept by a flush of the file, a name by a flush of the
folder. What was not flushed may be there, in part, as zeros, or not at all; of several names each
by itself. Every state that a cut can leave is put into the home, and the agent started on it:

- the cursor file is the one of the last completed save, or a later one, whole;
- the agent loads it, and reports nothing that lies before its offsets;
- with what was answered before the cut, every event has arrived, in order.

The activity log is left out: nobody believes it.
"""

import hashlib
import itertools
import json
import os
import pathlib
import shutil

from agent_stage import Failure
from scenario import (GROWN, LATER, NEW, TAIL, check_arrival, events_of, switches_of, text_of)


class File:
    def __init__(self, content=b""):
        self.durable = content
        self.content = content
        self.ends = [len(content)]  # of every write
        self.kept = None  # a second name of the file as it was recorded

    def write(self, piece):
        self.content += piece
        self.ends.append(len(self.content))

    def cut(self, length):
        self.content = self.content[:length]

    def flush(self):
        self.durable = self.content

    def after_cut(self):
        """Every content that this file may have when the power was cut now."""
        if not self.content.startswith(self.durable):
            return {self.durable, self.content, b""}
        kept, whole = len(self.durable), len(self.content)
        ends = {kept, kept + 1, (kept + whole) // 2, whole - 1, whole, *self.ends}
        contents = {self.content[:end] for end in ends if kept <= end <= whole}
        return contents | {self.durable + bytes(whole - kept)}


def contents_of(files, is_thorough):
    """Every choice of a content for each of the files."""
    if is_thorough:
        yield from itertools.product(*(sorted(file.after_cut()) for file in files))
        return
    for others in ([file.content for file in files], [file.durable for file in files]):
        yield others
        for index, file in enumerate(files):
            for content in sorted(file.after_cut()):
                yield [*others[:index], content, *others[index + 1:]]


class Disk:
    """Files by path. The names that no flush of their folder has kept stand in `loose`, in order."""

    def __init__(self, files):
        self.names = dict(files)
        self.durable = dict(self.names)
        self.loose = []
        self.open = {}

    def name(self, changes):
        self.names.update(changes)
        self.loose.append(changes)

    def apply(self, words):
        operation, rest = words[0], words[1:]
        if operation in ("write", "cut", "flush") and rest[0] not in self.open:
            return  # of a file that was left out
        if operation == "rename":
            self.rename(*rest)
        elif operation == "unlink":
            self.name({rest[0]: None})
        elif operation in ("new", "open", "emptied"):
            self.open_file(operation, *rest)
        elif operation == "write":
            self.open[rest[0]].write(bytes.fromhex(rest[1]))
        elif operation == "cut":
            self.open[rest[0]].cut(int(rest[1]))
        elif operation == "flush":
            self.flush(self.open[rest[0]])
        elif operation == "close":
            self.open.pop(rest[0], None)
        elif operation not in ("mkdir", "sent", "answered"):
            raise Failure(f"an operation that the model does not know: {operation}")

    def open_file(self, how, descriptor, path):
        file = self.names.get(path)
        if file is None and not os.path.isdir(path):
            file = File()
            self.name({path: file})
        elif how == "emptied":
            file.cut(0)
        self.open[descriptor] = path if file is None else file

    def rename(self, old, new, kept):
        file = self.names[old]
        file.kept = kept
        self.name({old: None, new: file})

    def flush(self, what):
        if isinstance(what, File):
            what.flush()
            return
        still_loose = []
        for changes in self.loose:
            here = {path: file for path, file in changes.items() if os.path.dirname(path) == what}
            self.durable.update(here)
            rest = {path: file for path, file in changes.items() if path not in here}
            if rest:
                still_loose.append(rest)
        self.loose = still_loose

    def after_cut(self, is_thorough):
        """Every content of the folder that a power cut now may leave, as {path: (content, File)};
        unless it is to be thorough, with one file at a time that is neither whole nor as flushed."""
        for kept in itertools.product((False, True), repeat=len(self.loose)):
            names = dict(self.durable)
            for changes in itertools.compress(self.loose, kept):
                names.update(changes)
            files = {path: file for path, file in names.items() if file is not None}
            for choice in contents_of(list(files.values()), is_thorough):
                yield {path: (content, file)
                       for (path, file), content in zip(files.items(), choice, strict=True)}


def whole(cursor):
    """The content of a cursor file, as long as it is one."""
    try:
        json.loads(cursor)
    except ValueError as error:
        raise Failure(f"half a cursor file was moved into place: {cursor}") from error
    return cursor


class Replay:
    """One recorded process, cut everywhere."""

    def __init__(self, stage, start, is_thorough):
        self.stage, self.home, self.start = stage, stage.home, start
        self.is_thorough = is_thorough
        self.lines = stage.prepare(start)
        self.kept = self.home.root / "kept"
        self.kept.mkdir()
        self.disk = Disk(self.files_at_start())
        self.saves = [whole(file.content) for path, file in self.disk.names.items()
                      if path == str(self.home.cursor)]
        self.completed = len(self.saves) - 1  # the last save that the agent went on from
        self.record = self.play()
        self.tried = set()

    def files_at_start(self):
        for path in (self.home.pelmar / "config", self.home.cursor):
            if path.exists():
                file = File(path.read_bytes())
                file.kept = str(self.kept / path.name)
                os.link(path, file.kept)
                yield str(path), file

    def play(self):
        path = self.home.root / "record"
        with path.open("wb") as record, self.stage.agent(
                switches=switches_of(self.start), record=record) as agent:
            agent.wait_for_pause()
            for lines in (GROWN, NEW, TAIL):
                self.home.grow(lines)
                agent.go_on()
        return path.read_text().splitlines()

    def run(self):
        """How many different states the cuts left."""
        sent = answered = 0
        self.steps = self.stage.service.steps(self.stage.first_run)
        operations = [line.split("\t") for line in self.record if self.matters(line)]
        for number, words in enumerate(operations):
            self.note_saves(words)
            self.disk.apply(words)
            if words[0] == "sent":
                sent += words[1].endswith("/steps/")
            if words[0] == "answered":
                answered = sent
            for state in self.disk.after_cut(self.is_thorough):
                try:
                    self.check(state, answered)
                except Failure as failure:
                    told = {path: content for path, (content, _) in state.items()}
                    raise Failure(f"{self.start} start, cut behind operation {number}, {words}: "
                                  f"{failure}\n{told}") from failure
        if len(self.saves) < 4:
            raise Failure(f"only {len(self.saves)} saves in the record")
        return len(self.tried)

    def matters(self, line):
        return "\tPOST" in line or line == "answered" or (
            str(self.home.pelmar / "logs") not in line and str(self.home.root / "home" / ".claude")
            not in line and str(self.home.records) not in line)

    def note_saves(self, words):
        if words[0] == "rename" and words[2] == str(self.home.cursor):
            self.saves.append(whole(self.disk.names[words[1]].content))
        if words[0] in ("sent", "new", "unlink"):  # the agent went on to something else
            self.completed = len(self.saves) - 1

    def check(self, state, answered):
        cursor = state.get(str(self.home.cursor), (None, None))[0]
        if cursor not in self.allowed():
            raise Failure(f"the cursor is no completed save: {cursor}")
        # The first time that a state is met least was answered, so that is the one to try.
        mark = hashlib.sha256(repr(sorted(
            (path, content, file.kept) for path, (content, file) in state.items())).encode())
        if mark.digest() in self.tried:
            return
        self.tried.add(mark.digest())
        self.put(state)
        self.start_agent(answered, json.loads(cursor) if cursor else {})

    def allowed(self):
        return self.saves[self.completed:] if self.completed >= 0 else [None, *self.saves]

    def put(self, state):
        """The state into the home: the very file where it is whole."""
        shutil.rmtree(self.home.pelmar)
        self.home.pelmar.mkdir()
        for path, (content, file) in state.items():
            if file.kept and pathlib.Path(file.kept).read_bytes() == content:
                os.link(file.kept, path)
            else:
                pathlib.Path(path).write_bytes(content)

    def start_agent(self, answered, cursor):
        before = self.stage.service.steps(self.stage.first_run)
        with self.stage.agent(switches=["--from-start"]) as agent:
            agent.wait_for_pause()
        again = self.stage.service.steps(self.stage.first_run)[len(before):]
        self.check_offsets(again, cursor)
        arrived = {}
        for step in self.steps[:answered] + again:
            arrived.setdefault(step["session_id"], []).append(text_of(step))
        lines = self.lines + LATER
        everything = {text for texts in events_of(lines).values() for text in texts}
        check_arrival(events_of(lines), arrived, may_repeat=everything)

    def check_offsets(self, steps, cursor):
        """What was reported lay behind the offsets of the cursor."""
        for step in steps:
            path = self.home.transcript(step["session_id"])
            entry = cursor.get(str(path), {"offset": 0})
            if text_of(step).removesuffix("-tool").encode() not in \
                    path.read_bytes()[entry["offset"]:]:
                raise Failure(f"{text_of(step)} came again, although it lies before the cursor")
