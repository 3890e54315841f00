"""Compares what was written with what arrived, kill by kill. Pure: knows no file, no clock, no agent.

An event is a step, the LLM call of an answer with tokens and the completion of a run of its own. One that
arrives again must be explained: by a kill of which it was in flight, or by an answer that was lost.
"""

import collections
import dataclasses


@dataclasses.dataclass
class Arrival:
    """A request of the agent `home` in its life number `life`."""
    home: str
    life: int
    what: str  # "step", "call" or "completion"
    event: tuple
    is_stored: bool = True
    outcome: str = "answered"  # or "lost" (stored all the same), "refused" (4xx), "failed", "unseen"
    run: str = "daily"  # or "session"; of a step


@dataclasses.dataclass(frozen=True)
class Kill:
    home: str
    life: int  # the one that it ended
    moment: str = ""
    offsets: dict = dataclasses.field(default_factory=dict)  # of the cursor that it left, by transcript


@dataclasses.dataclass
class Verdict:
    events: int = 0
    lost: list = dataclasses.field(default_factory=list)  # sentences
    doubled: list = dataclasses.field(default_factory=list)  # (what, event, number of the kill)
    lost_answers: int = 0  # what came again because of one
    given_up: int = 0  # calls and completions that failed as often as the agent tries
    broken: list = dataclasses.field(default_factory=list)  # what else is against the promise, sentences

    @property
    def events_doubled(self):
        """A step and its call that come again are one event."""
        return len({(event, kill) for _, event, kill in self.doubled})


ATTEMPTS = 3


class Comparison:
    def __init__(self, written, arrivals, kills, has_journal):
        self.written = {one.event: one for one in written}
        self.transcripts = collections.defaultdict(list)
        for one in written:
            self.transcripts[one.transcript].append(one)
        self.lives = collections.defaultdict(list)
        self.stored = {"step": {}, "call": {}, "completion": {}}
        for place, arrival in enumerate(arrivals):
            arrival.place = place
            self.lives[arrival.home, arrival.life].append(arrival)
            if arrival.is_stored:
                self.stored[arrival.what].setdefault(arrival.event, []).append(arrival)
        self.kills = {(kill.home, kill.life): (number, kill) for number, kill in enumerate(kills, 1)}
        self.has_journal = has_journal
        self.verdict = Verdict(events=sum(one.is_needed for one in written))

    def judge(self):
        self.find_inventions()
        for transcript, events in self.transcripts.items():
            self.find_lost_steps(events)
            self.find_lost_calls(events)
            self.check_completions(events)
            self.check_order(transcript, events)
        for what, arrivals_of in self.stored.items():
            for event, arrivals in arrivals_of.items():
                self.explain_repetitions(what, event, arrivals)
        self.check_kills()
        return self.verdict

    def name(self, event):
        one = self.written.get(event)
        where = f"{one.transcript}:{one.line}" if one else "in no transcript"
        return f"{event[1]} {event[2]} of {event[0]} ({where})".replace("  ", " ")

    def find_inventions(self):
        for what, arrivals_of in self.stored.items():
            for event in arrivals_of:
                one = self.written.get(event)
                has_it = {"step": one, "call": one and one.call, "completion": one and one.status}[what]
                if not has_it:
                    self.verdict.broken.append(f"a {what} that was never written: {self.name(event)}")

    def find_lost_steps(self, events):
        for one in events:
            if one.is_needed and one.event not in self.stored["step"]:
                self.verdict.lost.append(self.name(one.event))

    def find_lost_calls(self, events):
        for one in events:
            if one.is_needed and one.call and one.event in self.stored["step"]:
                self.need("call", one.event)

    def need(self, what, event):
        if event in self.stored[what]:
            return
        if self.is_given_up(what, event):
            self.verdict.given_up += 1
        else:
            self.verdict.lost.append(f"the {what} of {self.name(event)}")

    def is_given_up(self, what, event):
        """Whether a life of the agent tried as often as it may; attempts at a closed port are unseen."""
        for home, life in {(step.home, step.life) for step in self.stored["step"][event]}:
            outcomes = [arrival.outcome for arrival in self.lives[home, life]
                        if (arrival.what, arrival.event) == (what, event)]
            if "refused" in outcomes or "unseen" in outcomes or len(outcomes) >= ATTEMPTS:
                return True
        return False

    def check_completions(self, events):
        """Only the first result that goes to a run of its session completes it."""
        is_completed = False
        for one in events:
            steps = self.stored["step"].get(one.event, [])
            if not one.status or not steps:
                continue
            if is_completed and one.event in self.stored["completion"]:
                self.verdict.broken.append(f"a run completed once more by {self.name(one.event)}")
            if not any(step.run == "session" for step in steps) and one.event in self.stored["completion"]:
                self.verdict.broken.append(f"a daily run completed by {self.name(one.event)}")
            if not is_completed and one.is_needed and steps[-1].run == "session":
                is_completed = True
                self.need("completion", one.event)

    def check_order(self, transcript, events):
        if not all(one.is_needed for one in events):
            return  # lines came and went; only those that had to stay are in order
        latest, before = -1, None
        for one in events:
            steps = self.stored["step"].get(one.event)
            if not steps:
                continue
            if steps[0].place < latest:
                self.verdict.broken.append(
                    f"out of order: {self.name(one.event)} came before {self.name(before)}")
            latest, before = steps[0].place, one.event

    def explain_repetitions(self, what, event, arrivals):
        for earlier, later in zip(arrivals, arrivals[1:]):
            if earlier.outcome == "lost":
                self.verdict.lost_answers += 1
                continue
            number, kill = self.kills.get((earlier.home, earlier.life), (0, None))
            self.verdict.doubled.append((what, event, number))
            fault = self.fault_of(event, earlier, later, kill)
            if fault:
                around = f"kill {number} ({kill.moment})" if kill else "no kill"
                self.verdict.broken.append(
                    f"the {what} of {self.name(event)} came in lives {earlier.life} and {later.life} of "
                    f"{earlier.home}, after {around}: {fault}")

    def fault_of(self, event, earlier, later, kill):
        """Why the kill of the life of `earlier` does not explain `later`, or none."""
        if later.life == earlier.life:
            return "twice in one life"
        if kill is None:
            return "that life was not killed"
        one = self.written.get(event)
        if one and one.end <= kill.offsets.get(one.transcript, -1):
            return "the cursor was past it"
        life = self.lives[earlier.home, earlier.life]
        after = [arrival for arrival in life if arrival.place > earlier.place]
        if self.has_journal:
            others = [arrival for arrival in after if arrival.event not in (event, None)]
            return "it was not in flight" if others else None
        others = [arrival for arrival in after if arrival.event in self.written and one and
                  self.written[arrival.event].transcript != one.transcript]
        return "the cursor had been saved behind it" if others else None

    def check_kills(self):
        events_of_kill = collections.defaultdict(set)
        for _, event, number in self.verdict.doubled:
            events_of_kill[number].add(event)
        if self.has_journal:
            for number, events in sorted(events_of_kill.items()):
                if len(events) > 1:
                    self.verdict.broken.append(f"kill {number} doubled {len(events)} events")


def compare(written, arrivals, kills, has_journal=True):
    """`arrivals` in the order in which the requests came."""
    return Comparison(written, arrivals, kills, has_journal).judge()
