"""A round: some agents, their writers and a service, so many kills, and the comparison at the end."""

import asyncio
import collections
import itertools
import os
import random
import shutil
import time

import reading
from agents import TAIL_ONLY, Home
from comparer import compare
from show_agent import LocalService, stop
from writers import Writer

HOMES = (("first", "garden-agent"), ("second", "kitchen-agent"), ("third", ""))  # name, agent slug
PATIENCE = 60  # seconds without anything new


class Kills:
    """How many are left, and those that are done."""

    def __init__(self, count, progress):
        self.left = count
        self.done = []
        self.progress = progress

    def take(self):
        if self.left <= 0:
            return False
        self.left -= 1
        return True

    def add(self, kill):
        self.done.append(kill)
        self.progress(len(self.done))


class Round:
    def __init__(self, folder, build, seed, kills, has_journal, progress):
        self.folder = folder
        self.has_journal = has_journal
        self.services = []
        self.problems = []
        folder.mkdir()
        os.chmod(folder, 0o711)
        program = shutil.copy(build / "PelmarCoworkWatcher-rooted", folder)  # where any user may run it
        self.service = LocalService(folder, build, self.services)
        # Without a journal, a kill in the first pass over a session leaves no trace of it.
        homes = HOMES + ((TAIL_ONLY, "shed-agent"),) if has_journal else HOMES
        reserve = min(len(homes), kills // 2)
        self.kills = Kills(kills - reserve, progress)
        self.reserve = reserve
        self.homes = []
        self.writers = []
        places = itertools.count(1)
        for name, slug in homes:
            home = Home(folder / name, seed, slug, program, self.service, self.kills, has_journal)
            self.homes.append(home)
            rng = random.Random(f"{seed}/{name}/writer")
            self.writers.append(Writer(rng, home.home, places, home.waiting, home.user is not None,
                                       home.is_from_start))

    async def run(self):
        """The verdict; its `broken` has everything that is wrong."""
        try:
            await self.kill_and_write()
            await self.settle()
        finally:
            for home in self.homes:
                home.stop()
            stop(self.service.process)
        return self.judge()

    async def kill_and_write(self):
        writing = [asyncio.create_task(writer.run()) for writer in self.writers]
        living = asyncio.gather(*(home.live() for home in self.homes))
        # A writer ends before that only by failing.
        await asyncio.wait([living, *writing], return_when=asyncio.FIRST_COMPLETED)
        for writer in self.writers:
            writer.is_stopped = True
        await asyncio.gather(*writing)
        await living

    async def settle(self):
        """All is well from here on: everything arrives, a last kill and a line more bring nothing back."""
        for writer in self.writers:
            writer.settle()
        for home in self.homes:
            await home.live_quietly()
        await self.all_arrived()
        self.kills.left = self.reserve
        for home in self.homes:
            if self.kills.take():
                await home.die("when all was quiet")
                await home.live_quietly()
        for writer in self.writers:
            writer.end()
        await self.all_arrived()

    async def all_arrived(self):
        """Returns also when nothing more comes, and leaves it to the comparison to say what is missing."""
        seen, since = -1, time.monotonic()
        while time.monotonic() - since < PATIENCE:
            arrivals = self.arrivals()
            if seen != len(arrivals):
                seen, since = len(arrivals), time.monotonic()
                if not compare(self.written(), arrivals, self.kills.done, self.has_journal).lost:
                    return
            if any(home.process.returncode is not None for home in self.homes):
                self.problems.append("an agent ended by itself when all was quiet")
                return
            await asyncio.sleep(0.3)

    def written(self):
        events = []
        for home, writer in zip(self.homes, self.writers):
            for transcript in writer.transcripts:
                name, content = home.name_of(transcript.path), transcript.path.read_bytes()
                if not home.is_from_start:
                    first = home.proxy.first_event_of(transcript.session)
                    events += reading.written_since(name, content, first) if first else []
                elif transcript.is_rewritten:
                    events += reading.written_in_rewritten(name, content, transcript.needed_from,
                                                           transcript.history)
                else:
                    events += reading.written_in(name, content)
        return events

    def arrivals(self):
        """Home by home: a transcript is of one home, and a life too."""
        return [arrival for home in self.homes for arrival in home.proxy.arrivals]

    def faults_met(self):
        return sum((home.proxy.met for home in self.homes), collections.Counter())

    def moments(self):
        return sum((home.moments for home in self.homes), collections.Counter())

    def judge(self):
        written = self.written()
        database = reading.Database(self.service.database)
        arrivals = self.arrivals()
        verdict = compare(written, arrivals, self.kills.done, self.has_journal)
        for home in self.homes:
            home.find_key()
            self.problems += home.problems + home.proxy.problems
        verdict.broken += self.problems
        verdict.broken += differences(database, written, arrivals)
        return verdict


def differing(values, expected):
    return ", ".join(f"{str(value)[:60]!r} instead of {str(other)[:60]!r}"
                     for value, other in zip(values, expected) if value != other)


def differences(database, written, arrivals):
    """Where the database has other events than the proxies handed on, or an event has another content."""
    found = []
    known = {one.event: one for one in written}
    of_number = {one.call[0]: one for one in written if one.call}
    passed = collections.Counter((arrival.what, arrival.event) for arrival in arrivals if arrival.is_stored)
    stored = collections.Counter()
    for event, digest in database.steps():
        stored["step", event] += 1
        if event in known and known[event].step != digest:
            found.append(f"another content: {event}")
    for call in database.calls():
        one = of_number.get(call[0])
        stored["call", one.event if one else call[0]] += 1
        if one and any(expected not in (value, reading.ANY) for expected, value in zip(one.call, call)):
            found.append(f"another call of {one.event}: " + differing(call, one.call))
    of_turns = {one.turns: one for one in written if one.status}
    for turns, status in database.completions():
        one = of_turns.get(turns)
        stored["completion", one.event if one else turns] += 1
        if one and one.status != status:
            found.append(f"another completion: {status} of {one.event}")
    for what in passed.keys() | stored.keys():
        if passed[what] != stored[what]:
            found.append(f"{what}: {passed[what]} handed on, {stored[what]} in the database")
    return found
