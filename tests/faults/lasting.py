"""The system fails the agent for a while: a full disk, no descriptors left, a home that is not its
own, a service out of reach. Meanwhile the agent reports what it can, or waits; it never spins. Once
the fault is lifted, in the same process, everything has arrived, once."""

import dataclasses
import errno
import itertools
import re

from agent_stage import Failure
from driven_agent import Ended
from scenario import (AFTER, FIRST, GROWN, LATER, NEW, RESUMED, TAIL, check_activity, check_arrival,
                      check_cursor, events_of, switches_of)

OPENS = ("open_read", "open_write", "opendir")
WRITES = ("open_write", "write", "mkdir", "fsync")
CHANGES = ("open_write", "unlink", "rename", "mkdir")
PASSES = 5
# Three attempts at each of the scenario's requests, and the looks at its files, stay below this.
MOST_CALLS_OF_A_PASS = 600


@dataclasses.dataclass(frozen=True)
class Trouble:
    name: str
    calls: tuple
    error: int
    reports: bool  # whether events arrive while it lasts
    hides_answers: bool = False  # what arrived then may come again

    def plan(self, first=1):
        return ",".join(f"{call}:{self.error}:{first}+" for call in self.calls)


TROUBLES = [
    Trouble("a full disk", WRITES, errno.ENOSPC, reports=True),
    Trouble("a disk that fills up with files open", ("write",), errno.ENOSPC, reports=True),
    Trouble("a disk that keeps nothing", ("fsync",), errno.EIO, reports=True),
    Trouble("a read-only file system", CHANGES, errno.EROFS, reports=True),
    Trouble("a home that is not ours to write", CHANGES, errno.EACCES, reports=True),
    Trouble("a home that is not ours to open", OPENS, errno.EACCES, reports=False),
    Trouble("no descriptor for a file", ("open_read", "open_write"), errno.EMFILE, reports=False),
    Trouble("no descriptor to write with", ("open_write",), errno.EMFILE, reports=True),
    Trouble("no descriptors left", (*OPENS, "socket"), errno.EMFILE, reports=False),
    Trouble("no descriptors left on the machine", (*OPENS, "socket"), errno.ENFILE, reports=False),
    Trouble("no memory for the system", (*OPENS, "read", "stat"), errno.ENOMEM, reports=False),
    Trouble("a disk that cannot be read", ("read", "readdir"), errno.EIO, reports=False),
    Trouble("a service that refuses", ("connect", "send"), errno.ECONNREFUSED, reports=False),
    Trouble("a network that is down", ("connect", "send"), errno.ENETUNREACH, reports=False),
    Trouble("answers that are lost", ("recv",), errno.ECONNRESET, reports=False, hides_answers=True),
]


def run(stage, trouble, start):
    """The fault begins and ends behind a pause. Returns how many there were: 1."""
    lines = stage.prepare(start)
    with stage.agent(switches=switches_of(start)) as agent:
        agent.wait_for_pause()
        agent.plan(trouble.plan())
        for grown in (GROWN, NEW):
            stage.home.grow(grown)
            pass_in_trouble(agent)
        for _ in range(PASSES):
            pass_in_trouble(agent)
        if not agent.faults:
            raise Failure("the fault was not met")
        if not trouble.hides_answers:
            judge(trouble, lines + (GROWN + NEW if trouble.reports else []), stage)
        recover(stage, agent, trouble, lines)
        log = agent.log()
    if "open_write" in trouble.calls and trouble.reports:
        check_saves_failed(trouble, log)
    judge_next_process(stage, trouble, start, lines)
    return 1


def run_from(stage, trouble, number):
    """The fault begins with the call `number` of each name, from the start of the process on. Whether
    it was met."""
    lines = stage.prepare(FIRST)
    with stage.agent(plan=trouble.plan(number), switches=switches_of(FIRST)) as agent:
        try:
            agent.wait_for_pause()
        except Ended as ended:
            check_ended_for_want_of_a_profile(trouble, ended)
            return True
        for grown in (GROWN, NEW):
            stage.home.grow(grown)
            pass_in_trouble(agent)
        pass_in_trouble(agent)
        is_met = bool(agent.faults)
        recover(stage, agent, trouble, lines)
    judge_next_process(stage, trouble, FIRST, lines)
    return is_met


def pass_in_trouble(agent):
    agent.go_on()
    if agent.calls > MOST_CALLS_OF_A_PASS:
        raise Failure(f"{agent.calls} calls in one pass")


def recover(stage, agent, trouble, lines):
    agent.plan("")
    agent.go_on()
    agent.go_on()
    stage.home.grow(TAIL)
    agent.go_on()
    judge(trouble, lines + LATER, stage)


def judge(trouble, lines, stage):
    events = events_of(lines)
    every = {text for texts in events.values() for text in texts}
    check_arrival(events, stage.arrived(), may_repeat=every if trouble.hides_answers else (),
                  most=None if trouble.hides_answers else 1)


def check_saves_failed(trouble, log):
    if not re.search("cursor save failed: ", log):
        raise Failure(f"{trouble.name}: no failed save in the log")


def check_ended_for_want_of_a_profile(trouble, ended):
    """The one fault that ends the agent: at the start the config cannot be read, also not again."""
    if ended.status != 1 or "No profile in ~/.pelmar/config" not in ended.log or trouble.reports:
        raise ended


def judge_next_process(stage, trouble, start, lines):
    check_cursor(stage.home)
    check_activity(stage.home, torn=1)
    stage.home.grow(AFTER)
    with stage.agent(switches=switches_of(start)) as agent:
        agent.wait_for_pause()
    judge(trouble, lines + LATER + AFTER, stage)


def sweep_from(stage, trouble, stride):
    """Lets the fault begin ever later, until it does not begin any more; how often it did."""
    for count in itertools.count():
        number = 1 + count * stride
        try:
            if not run_from(stage, trouble, number):
                return count
        except Failure as failure:
            raise Failure(f"from the call {number} on: {failure}") from failure
