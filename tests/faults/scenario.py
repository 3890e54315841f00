"""What the agent is given to report while the system fails it, and what must have arrived.

Every transcript has events in it that are told apart by their texts; one line is malformed. The
`first` start finds no cursor and reports from the beginning; the `resumed` one finds a cursor and
lines that were written while it was down.
"""

import collections
import json
import os
import re

from agent_stage import Failure
from driven_agent import Agent

FIRST, RESUMED = "first", "resumed"
PASSES_TO_RECOVER = 2


def user(session, text):
    return session, json.dumps({"type": "user", "uuid": text, "session_id": session,
                                "timestamp": "2026-01-02T03:04:05.000Z",
                                "message": {"content": text}}) + "\n"


def answer(session, text):
    """Two events, and an LLM call."""
    return session, json.dumps(
        {"type": "assistant", "uuid": text, "session_id": session,
         "timestamp": "2026-01-02T03:04:05.000Z",
         "message": {"id": text, "model": "tulip", "usage": {"input_tokens": 5, "output_tokens": 7},
                     "content": [{"type": "text", "text": text},
                                 {"type": "tool_use", "id": text + "-tool", "name": "Read",
                                  "input": {}}]}}) + "\n"


BEFORE = [user("s1", "s1-before"), user("s2", "s2-before")]
WHILE_DOWN = [user("s1", "s1-down"), ("s2", "{broken\n"), answer("s2", "s2-down")]
GROWN = [user("s1", "s1-grown")]
NEW = [user("s3", "s3-new"), user("s2", "s2-later")]
TAIL = [user("s1", "s1-tail"), user("s2", "s2-tail"), user("s3", "s3-tail")]
AFTER = [user("s1", "s1-after"), user("s3", "s3-after")]
LATER = GROWN + NEW + TAIL
LLM_CALLS_OF = {"s2-down": 1}


def events_of(lines):
    """The texts of the lines' events by session, in order."""
    events = collections.defaultdict(list)
    for session, line in lines:
        if line == "{broken\n":
            continue
        text = json.loads(line)["uuid"]
        events[session].append(text)
        if text in LLM_CALLS_OF:
            events[session].append(text + "-tool")
    return events


def text_of(step):
    output = step["output"]
    return output["tool_use_id"] if step["kind"] == "tool_use" else output["text"]


class Stage:
    """One worker's home and service, used for case after case, and the resumed home's template."""

    def __init__(self, build, home, service):
        self.build, self.home, self.service = build, home, service
        self.case = 0
        self.template = None
        self.calm = {}  # by start: see one_at_a_time.picture

    def prepare(self, start):
        """A home before the start; what is to be reported of it."""
        if start == RESUMED and self.template is None:
            self.template = self.make_template()
        self.make_home()
        if start == RESUMED:
            run, workflow, cursor, activity = self.template
            for old, new in ((run, self.run["run_id"]), (workflow, self.run["workflow_id"])):
                cursor, activity = cursor.replace(old, new), activity.replace(old, new)
            self.home.activity.parent.mkdir()
            self.home.cursor.write_text(cursor)
            self.home.activity.write_text(activity)
        self.home.grow(WHILE_DOWN)
        return WHILE_DOWN if start == RESUMED else BEFORE + WHILE_DOWN

    def make_home(self):
        self.case += 1
        slug = f"case-{self.case}"
        self.home.make(self.service.url, slug)
        self.home.grow(BEFORE)
        self.first_run = self.service.last_run()
        self.run = self.service.daily_run(slug)

    def make_template(self):
        self.make_home()
        with self.agent(switches=["--from-start"]) as agent:
            agent.wait_for_pause()
        return (self.run["run_id"], self.run["workflow_id"], self.home.cursor.read_text(),
                self.home.activity.read_text())

    def agent(self, **how):
        return Agent(self.build, self.home, **how)

    def arrived(self):
        """The texts of the steps by session, in the order of arrival."""
        texts = collections.defaultdict(list)
        for step in self.service.steps(self.first_run):
            texts[step["session_id"]].append(text_of(step))
        return texts

    def requests(self):
        """What the agent asked of its run, and what it was answered; may be asked for once."""
        return [(row["method"], row["path"], row["status"], row["body"]) for row in
                self.service.rows_since_last_time("requests")
                if self.is_of_this_case(row["path"] + str(row["body"]))]

    def is_of_this_case(self, text):
        return self.run["run_id"] in text or re.search(rf"case-{self.case}\b", text)

    def llm_calls(self):
        return len(self.service.llm_calls(self.first_run))


def switches_of(start):
    return ["--from-start"] if start == FIRST else []


def play(stage, agent):
    """The passes of one process; between them the transcripts grow."""
    agent.wait_for_pause()
    for lines in (GROWN, NEW):
        stage.home.grow(lines)
        agent.go_on()
    for _ in range(PASSES_TO_RECOVER):
        agent.go_on()
    stage.home.grow(TAIL)
    for _ in range(1 + PASSES_TO_RECOVER):
        agent.go_on()


def check_arrival(expected, arrived, may_repeat=(), must_repeat=(), most=2):
    """Every event once and in order, but for those that must come twice and those that may come
    `most` times (none: any number of times)."""
    if set(arrived) != set(expected):
        raise Failure(f"sessions {sorted(arrived)} instead of {sorted(expected)}")
    for session, wanted in expected.items():
        in_order = list(dict.fromkeys(arrived[session]))
        if in_order != wanted:
            raise Failure(f"{session}: {arrived[session]} instead of {wanted}")
        for text, times in collections.Counter(arrived[session]).items():
            is_free = text in may_repeat and (most is None or times <= most)
            if times != (2 if text in must_repeat else 1) and not is_free:
                raise Failure(f"{text} arrived {times} times: {arrived[session]}")


def unsaved(home, lines):
    """The events of `lines` that the cursor on the disk does not know to be reported."""
    texts = set()
    ends = collections.Counter()
    for session in {session for session, _ in lines}:
        content = home.transcript(session).read_bytes()
        for line in content.splitlines(keepends=True):
            ends[session] += len(line)
            if ends[session] > home.stored_offset(session):
                for events in events_of([(session, line.decode())]).values():
                    texts.update(events)
    return texts


def check_cursor(home):
    """The cursor file is whole, and of no transcript more is read than stands there."""
    if not home.cursor.exists():
        return
    try:
        state = json.loads(home.cursor.read_text())
    except ValueError as error:
        raise Failure(f"the cursor file is not whole: {error}") from error
    for path, entry in state.items():
        if not 0 <= entry["offset"] <= os.path.getsize(path):
            raise Failure(f"offset {entry['offset']} in {path}")


def check_activity(home, torn):
    """The activity log is whole, but for at most `torn` lines."""
    if not home.activity.exists():
        return
    bad = 0
    for line in home.activity.read_bytes().splitlines():
        try:
            json.loads(line)
        except ValueError:
            bad += 1
    if bad > torn:
        raise Failure(f"{bad} torn lines in the activity log")
