"""One system call fails, once: the first, the second, and so on until a run makes fewer.

Behind every such run stands one without a fault. What the sweep holds the agent to:

- it neither ends, hangs nor spins, and the cursor file is whole;
- the process that met the fault reports every event, in order and once. Only where the fault hides
  an answer that the service has sent does what was answered come twice;
- a save that failed is logged, and the next save makes up for it;
- the next process doubles only what the cursor on the disk does not know;
- an interrupted call (EINTR) changes nothing at all, nor does one that did half its work.
"""

import dataclasses
import errno
import itertools
import json
import os
import re

from agent_stage import Failure
from scenario import (AFTER, LATER, LLM_CALLS_OF, RESUMED, check_activity, check_arrival,
                      check_cursor, events_of, play, switches_of, unsaved)

HALF = "half"
# What each call can answer. The preloaded library knows the calls by these names.
ERRORS = {
    "open_read": ["EMFILE", "EACCES", "EINTR", "ENFILE", "EIO", "ENOMEM", "ENOENT"],
    "open_write": ["ENOSPC", "EACCES", "EROFS", "EMFILE", "EINTR", "ENFILE", "EIO", "EDQUOT",
                   "ENOMEM"],
    "opendir": ["EMFILE", "EACCES", "EINTR", "ENFILE", "EIO", "ENOMEM", "ENOENT"],
    "readdir": ["EINTR", "EIO", "ENOENT"],
    "read": ["EINTR", "EIO", "ENOMEM"],
    "write": ["ENOSPC", "EINTR", HALF, "EIO", "EDQUOT", "EFBIG"],
    "lseek": ["EINVAL", "EOVERFLOW"],
    "fsync": ["ENOSPC", "EINTR", "EIO", "EROFS", "EDQUOT"],
    "rename": ["ENOSPC", "EACCES", "EROFS", "EINTR", "EIO", "ENOENT", "EDQUOT"],
    "unlink": ["EACCES", "EROFS", "EINTR", "EIO"],
    "mkdir": ["ENOSPC", "EACCES", "EROFS", "EINTR", "EIO", "EDQUOT"],
    "fstat": ["EINTR", "EIO", "ENOMEM"],
    "ftruncate": ["EINTR", "EIO", "EROFS"],
    "stat": ["EACCES", "EINTR", "EIO", "ENOMEM", "ENOENT"],
    "socket": ["EMFILE", "EACCES", "ENFILE", "ENOBUFS", "ENOMEM"],
    "connect": ["ECONNREFUSED", "ETIMEDOUT", "ENETUNREACH", "EHOSTUNREACH", "EADDRNOTAVAIL"],
    "send": ["ECONNRESET", "EPIPE", "EINTR", HALF, "ETIMEDOUT", "ENOMEM", "ENOBUFS"],
    "recv": ["ECONNRESET", "EINTR", HALF, "ETIMEDOUT", "EIO", "ENOMEM"],
    "recv_look": ["ECONNRESET", "EINTR"],
    "poll": ["EINTR"],
    "nanosleep": ["EINTR"],
}
HARMLESS = ("EINTR", HALF)
MOST_CALLS = 500  # of one name in the scenario: far beyond what it makes


@dataclasses.dataclass(frozen=True)
class Case:
    start: str
    call: str
    error: str
    number: int

    def plan(self):
        number = 0 if self.error == HALF else getattr(errno, self.error)
        return f"{self.call}:{number}:{self.number}"

    def __str__(self):
        return f"{self.start} start, {self.call} number {self.number}: {self.error}"


def loses_cursor(case, fault):
    """Whether the fault hides the stored cursor from the start: a cursor that cannot be read counts
    as empty, and all transcripts as reported."""
    return (case.start == RESUMED and fault.call in ("open_read", "read")
            and fault.where.endswith("cowork-cursor.json") and case.error not in HARMLESS)


def fails_save(case, fault):
    return (case.error not in HARMLESS and "cowork-cursor.json" in fault.where
            and fault.call in ("open_write", "write", "fsync", "rename"))


def hidden_answer(case, fault):
    """The request whose answer the fault hid from the agent, or none."""
    is_hidden = fault.call in ("recv", "poll") and case.error not in HARMLESS
    return fault.where if is_hidden and fault.where != "idle" else ""


def repeated(before, arrived):
    """The one event that came twice in a row."""
    return [text for texts in arrived.values() for text, again in itertools.pairwise(texts)
            if text == again and text not in before]


def run(stage, case):
    """Plays one case; the fault that it met, or none when the scenario made fewer calls."""
    lines = stage.prepare(case.start)
    calm = calm_picture(stage, case.start) if case.error in HARMLESS else None
    with stage.agent(plan=case.plan(), switches=switches_of(case.start)) as agent:
        play(stage, agent)
        log = agent.log()
    fault = agent.faults[0] if agent.faults else None
    check_cursor(stage.home)
    if fault is None:
        judge_process(stage, lines + LATER, "")
    elif loses_cursor(case, fault):
        lines = []
        judge_process(stage, LATER, "")
    else:
        judge_process(stage, lines + LATER, hidden_answer(case, fault))
    if calm is not None:
        judge_picture(calm, picture(stage, log))
    judge_log(case, fault, log)
    judge_activity(stage, case, fault)
    judge_next_process(stage, case, lines + LATER)
    return fault


def picture(stage, log):
    """All that a process left behind and sent, but for what differs from run to run. Transcripts are
    looked at in whatever order the folder has them, so lines are sorted."""
    def calmed(text):
        for varying, name in ((stage.run["run_id"], "RUN"), (stage.run["workflow_id"], "WORKFLOW"),
                              (f"case-{stage.case}\\b", "SLUG"), (r'"(ts|date)":"[^"]*"', ""),
                              (r'"(ms|pid)":\d+', ""), (r"pid=\d+", ""), (r"(?m)^\S+Z? ", "")):
            text = re.sub(varying, name, text)
        return text
    return {"log": sorted(calmed(log).splitlines()),
            "cursor": calmed(stage.home.cursor.read_text()),
            "activity": sorted(calmed(stage.home.activity.read_text()).splitlines()),
            "requests": sorted(calmed(str(request)) for request in stage.requests())}


def calm_picture(stage, start):
    """The picture of a run without a fault; the home is prepared anew behind it."""
    if start not in stage.calm:
        with stage.agent(switches=switches_of(start)) as agent:
            play(stage, agent)
            stage.calm[start] = picture(stage, agent.log())
        stage.prepare(start)
    return stage.calm[start]


def judge_picture(calm, shaken):
    for part, content in calm.items():
        if shaken[part] != content:
            raise Failure(f"the {part} differ:\n{shaken[part]}\ninstead of\n{content}")


def judge_process(stage, lines, hidden):
    arrived = stage.arrived()
    twice = repeated((), arrived) if hidden.endswith("/steps/") else []
    if hidden.endswith("/steps/") and len(twice) != 1:
        raise Failure(f"{hidden} was answered unheard, but {twice} came twice")
    check_arrival(events_of(lines), arrived, must_repeat=twice)
    calls = sum(LLM_CALLS_OF.get(json.loads(line)["uuid"], 0)
                for _, line in lines if line != "{broken\n")
    if stage.llm_calls() != calls + hidden.endswith("/llm-calls/"):
        raise Failure(f"{stage.llm_calls()} LLM calls instead of {calls}")


def judge_log(case, fault, log):
    reasons = re.findall(r"cursor save failed: (.*)", log)
    wanted = []
    if fault is not None and fails_save(case, fault) and not fault.where.endswith(".pelmar"):
        wanted = [os.strerror(getattr(errno, case.error))]
    if reasons != wanted:
        raise Failure(f"the log tells of failed saves {reasons} instead of {wanted}")


def judge_activity(stage, case, fault):
    is_hit = fault is not None and "activity.jsonl" in fault.where and case.error not in HARMLESS
    check_activity(stage.home, torn=1 if is_hit else 0)


def judge_next_process(stage, case, lines):
    before = stage.arrived()
    again = unsaved(stage.home, lines)
    stage.home.grow(AFTER)
    with stage.agent(switches=switches_of(case.start)) as agent:
        agent.wait_for_pause()
        agent.go_on()
    arrived = stage.arrived()
    expected = events_of(lines + AFTER)
    twice = [text for texts in before.values() for text in texts if texts.count(text) > 1]
    check_arrival(expected, arrived, may_repeat=again, must_repeat=twice)


def sweep(stage, case, stride, offset):
    """Raises the number until the fault is not reached any more; how many faults were met."""
    met = 0
    for number in range(1 + offset, MOST_CALLS, stride):
        numbered = dataclasses.replace(case, number=number)
        try:
            if run(stage, numbered) is None:
                return met
        except Failure as failure:
            raise Failure(f"{numbered}: {failure}") from failure
        met += 1
    raise Failure(f"{case.call} never stops")
