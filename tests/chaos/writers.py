"""Writes transcripts as sessions do, in pieces of any size, and does to them what users and systems do."""

import asyncio
import json
import os
import pathlib
import random
import uuid

from lines import LineMaker

OPEN_SESSIONS = 6
MOST_WAITING = 250  # lines that a writer may be ahead of the agent
TROUBLES = (None, None, None, "away", "locked", "unrecorded", "folder locked", "truncated", "replaced")
REWRITTEN = ("truncated", "replaced")


class Transcript:
    """A session's transcript and its record. `trouble` is what happens to it now and then."""

    def __init__(self, rng, home, place, trouble, agent_is_other, is_from_start):
        self.rng = rng
        self.session = str(uuid.UUID(int=rng.getrandbits(128), version=4))
        folder = home / ".claude" / "projects" / rng.choice(("", "garden", "a/deep/er")) / self.session[:8]
        self.path = folder / f"{self.session}.jsonl"
        self.record = (home / "Library" / "Application Support" / "Claude" / "claude-code-sessions" /
                       folder.name / f"local_{place}.json")
        self.trouble = trouble
        self.mode = 0o644 if agent_is_other else 0o600
        # A reading that begins inside a character counts the offsets behind it too high, as documented.
        is_ascii = self.is_rewritten or not is_from_start
        self.maker = LineMaker(rng, self.session, place, is_ascii, repeats=is_from_start)
        self.pending = b""  # made and not written yet
        self.file = None
        self.is_in_trouble = False
        self.most = 0  # bytes that it ever had
        self.needed_from = 0  # offset behind which all has to arrive, once settled
        self.history = []  # of a rewritten one: every line made, since the file does not keep them

    @property
    def is_rewritten(self):
        return self.trouble in REWRITTEN

    def appear(self):
        """The transcript, still empty."""
        self.path.parent.mkdir(parents=True, exist_ok=True)
        self.open()

    def open(self):
        self.file = os.open(self.path, os.O_WRONLY | os.O_APPEND | os.O_CREAT, self.mode)
        os.fchmod(self.file, self.mode)

    def write_record(self, piece=1.0):
        self.record.parent.mkdir(parents=True, exist_ok=True)
        text = json.dumps({"sessionId": "local", "cliSessionId": self.session, "title": "garden"})
        self.record.write_text(text[:int(len(text) * piece)])

    def make(self, line):
        self.pending += line
        if self.is_rewritten:
            self.history.append(line)

    def write(self, count=None):
        count = len(self.pending) if count is None else count
        piece, self.pending = self.pending[:count], self.pending[count:]
        while piece:
            piece = piece[os.write(self.file, piece):]
        self.most = max(self.most, os.fstat(self.file).st_size)

    def write_some(self):
        """Up to a place that is the writer's whim: inside a character, a line, or wherever."""
        inside = [place for place, byte in enumerate(self.pending[:4000]) if byte & 0xC0 == 0x80]
        if inside and self.rng.random() < 0.3:
            return self.write(self.rng.choice(inside))
        return self.write(None if self.rng.random() < 0.4 else self.rng.randint(1, len(self.pending)))

    def toggle_trouble(self):
        if self.trouble == "truncated":
            os.ftruncate(self.file, int(os.fstat(self.file).st_size * self.rng.random()))
            self.pending = b""  # the rest of a line could make another line of what was left
        elif self.trouble == "replaced":
            self.replace()
        elif self.trouble is not None:
            self.is_in_trouble = not self.is_in_trouble
            self.move_or_lock()

    def replace(self):
        size = os.fstat(self.file).st_size
        other = self.path.with_suffix(".new")
        os.close(self.file)
        self.pending = b""
        kept, self.path = self.path, other
        self.open()
        while len(self.pending) < size * self.rng.random() * 0.7:
            self.make(self.maker.next())
        self.pending = self.pending[:max(size - 1, 0)]
        self.write()
        self.path = kept
        os.rename(other, kept)

    def move_or_lock(self):
        folder = self.path.parent
        if self.trouble in ("away", "unrecorded"):
            there = self.path if self.trouble == "away" else self.record
            away = there.with_suffix(".away")
            os.rename(*((there, away) if self.is_in_trouble else (away, there)))
        elif self.trouble == "locked":
            os.chmod(self.path, 0 if self.is_in_trouble else self.mode)
        else:
            os.chmod(folder, 0 if self.is_in_trouble else 0o755)

    def settle(self):
        """Leaves it whole, with lines at its end that have to arrive."""
        if self.is_in_trouble:
            self.toggle_trouble()
        self.write()
        if self.is_rewritten:  # what is not read from a stale offset begins behind all it ever had
            self.pending = b"\n"
            while os.fstat(self.file).st_size <= self.most - len(self.pending):
                self.pending += b" " * 99 + b"\n"
                self.write() if len(self.pending) > 10_000 else None
            self.write()
            self.needed_from = os.fstat(self.file).st_size
        for _ in range(3):
            self.make(self.maker.user_line())
        self.write()

    def end_with(self, line, tail):
        self.make(line)
        self.write()
        self.pending = tail
        self.write()
        os.close(self.file)


class Writer:
    """The sessions of one home. All its choices come from `rng`. Where the agent does not read from the
    start, no transcript is rewritten nor repeats itself: what has to arrive would be a guess."""

    def __init__(self, rng, home, places, waiting, agent_is_other, is_from_start):
        self.rng = rng
        self.home = pathlib.Path(home)
        self.places = places  # an iterator: numbers that no other transcript has
        self.waiting = waiting
        self.agent_is_other = agent_is_other
        self.is_from_start = is_from_start
        self.transcripts = []
        self.open = []
        self.debuts = []  # sessions of which the record, or the transcript, is still to come
        self.is_stopped = False

    async def run(self):
        actions = {self.append: 60, self.burst: 3, self.trouble: 6, self.debut: 6, self.begin: 3,
                   self.leave: 1}
        while not self.is_stopped:
            self.rng.choices(tuple(actions), tuple(actions.values()))[0]()
            await asyncio.sleep(self.rng.expovariate(1 / 0.02))
            await self.let_the_agent_catch_up()

    async def let_the_agent_catch_up(self):
        for _ in range(40):
            if len(self.waiting) <= MOST_WAITING or self.is_stopped:
                return
            await asyncio.sleep(0.05)
        self.waiting.clear()  # what is away, or passed over, never comes

    def begin(self):
        if len(self.open) >= OPEN_SESSIONS or self.debuts:
            return
        rng = random.Random(self.rng.getrandbits(64))
        troubles = TROUBLES if self.is_from_start else TROUBLES[:-len(REWRITTEN)]
        transcript = Transcript(rng, self.home, next(self.places), self.rng.choice(troubles),
                                self.agent_is_other, self.is_from_start)
        self.transcripts.append(transcript)
        steps = [transcript.appear, lambda: self.open.append(transcript)]
        record = [lambda: transcript.write_record(0.6), transcript.write_record][self.rng.randint(0, 1):]
        self.debuts = record + steps if self.rng.random() < 0.5 else steps + record
        self.debut()

    def debut(self):
        if self.debuts:
            self.debuts.pop(0)()

    def leave(self):
        """A session ends; its transcript stays as it is."""
        if len(self.open) > 2:
            self.open.pop(0)

    def make_line(self, transcript):
        line = transcript.maker.big() if self.rng.random() < 0.006 else transcript.maker.next()
        transcript.make(line)
        if not transcript.is_rewritten and transcript.maker.latest_is_step:
            self.waiting.add(transcript.maker.latest)

    def append(self):
        if not self.open:
            return self.begin()
        transcript = self.rng.choice(self.open)
        if not transcript.pending:
            for _ in range(self.rng.randint(1, 3)):
                self.make_line(transcript)
        return transcript.write_some()

    def burst(self):
        if self.open:
            transcript = self.rng.choice(self.open)
            for _ in range(self.rng.randint(10, 50)):
                self.make_line(transcript)
            transcript.write()

    def trouble(self):
        troubled = [transcript for transcript in self.open if transcript.trouble]
        if troubled and not self.debuts:
            self.rng.choice(troubled).toggle_trouble()

    def settle(self):
        self.is_stopped = True
        while self.debuts:
            self.debut()
        for transcript in self.transcripts:
            transcript.settle()

    def end(self):
        """One line more for each, and behind some of them a line that never ends."""
        for transcript in self.transcripts:
            whole = transcript.maker.user_line() if self.rng.random() < 0.3 else b""
            tail = whole[:self.rng.randint(0, max(0, len(whole) - 3))]
            transcript.end_with(transcript.maker.user_line(), tail)
