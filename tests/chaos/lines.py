"""Lines as sessions write them into their transcripts, each with a marker that no other line has."""

import datetime
import json

from reading import events_of

FIRST = datetime.datetime(2026, 1, 1, tzinfo=datetime.timezone.utc)
LINES_A_TRANSCRIPT = 100_000
MODEL = "claude-sonnet-4-5"
TOOLS = ("Read", "Bash", "Edit", "WebSearch", "mcp__beds__plan")
WORDS = ("sow", "tomato", "bed", "spacing", "frost", "Grüße", "naïve", "e\u0301tage", "水やり", "🍅", "👩‍🌾", "Ω",
         "line\nbreak", "tab\t", '"quoted"', "back\\slash", "/path/to/plan.csv", "\u2028", "\x00", "{", "}")
ASCII_WORDS = ("sow", "tomato", "bed", "spacing", "frost", "/path/to/plan.csv", '"quoted"', "{", "}")
WEIGHTS = {"user": 18, "assistant": 30, "tool_results": 18, "status": 3, "permission": 5, "compact": 2,
           "result": 3, "tool_summary": 3, "rate_limit": 2, "unknown": 4, "init": 1, "nothing": 2,
           "blank": 3, "malformed": 3, "again": 2, "without_identity": 1}


def timestamp(number):
    """What marks a line: the agent passes its time on unchanged with every event."""
    return (FIRST + datetime.timedelta(milliseconds=number)).isoformat(timespec="milliseconds")[:-6] + "Z"


class LineMaker:
    """The lines of one transcript. Only ASCII where `is_ascii`: offsets then never drift. With `repeats`, the
    same event may stand in it twice."""

    def __init__(self, rng, session, place, is_ascii, repeats):
        self.rng = rng
        self.session = session
        self.number = place * LINES_A_TRANSCRIPT
        self.words = ASCII_WORDS if is_ascii else WORDS
        self.is_ascii = is_ascii
        self.weights = WEIGHTS if repeats else {**WEIGHTS, "again": 0, "without_identity": 0}
        self.is_first = True
        self.recent = []
        self.calls_of_tools = []
        self.latest, self.latest_is_step = "", False
        self.has_run = False  # a line that is a step whatever came before it has been made

    def next(self):
        """A line with its line feed."""
        self.latest_is_step = False
        if self.is_first:
            self.is_first = False
            if self.rng.random() < 0.7:
                return self.text_of(self.init())
        kind = self.rng.choices(tuple(self.weights), tuple(self.weights.values()))[0]
        if kind == "blank":
            return self.rng.choice((b"\n", b"   \n", b"\t\n"))
        if kind == "malformed":
            whole = json.dumps({"type": "user", "message": {"role": "user", "content": self.text()}})
            made = self.rng.choice((whole[:-5], "[1, 2]", "17", "no JSON at all", whole + "]"))
            return made.encode() + b"\n"
        if kind == "again" and self.recent:
            return self.rng.choice(self.recent)
        return self.text_of(self.object_of(kind))

    def user_line(self):
        return self.text_of(self.user())

    def big(self):
        """A line of up to some 1 MB."""
        size = self.rng.choice((60_000, 200_000, 900_000))
        text = self.text()
        return self.text_of(self.user(text + (text + " ") * (size // (len(text.encode()) + 1))))

    def object_of(self, kind):
        if kind == "init" and self.has_run:
            return self.init()
        if kind not in ("user", "nothing", "init", "again", "malformed"):
            self.has_run = True
        made = {"assistant": self.assistant, "tool_results": self.tool_results, "status": self.status,
                "permission": self.permission, "compact": self.compact, "result": self.result,
                "tool_summary": self.tool_summary, "rate_limit": self.rate_limit, "unknown": self.unknown,
                "nothing": self.nothing, "without_identity": self.without_identity}.get(kind, self.user)
        return made()

    def text_of(self, line):
        self.latest = line["timestamp"]
        self.latest_is_step = line.get("subtype") != "init" and bool(events_of(line)) and "uuid" in line
        text = json.dumps(line, ensure_ascii=self.is_ascii or self.rng.random() < 0.2,
                          separators=(",", ":") if self.rng.random() < 0.7 else None)
        whole = text.encode() + (b"\r\n" if self.rng.random() < 0.02 else b"\n")
        if len(whole) < 10_000 and line.get("subtype") != "init":
            self.recent = self.recent[-20:] + [whole]
        return whole

    def text(self):
        return " ".join(self.rng.choices(self.words, k=self.rng.randint(1, 60)))

    def line(self, kind, **others):
        self.number += 1
        return {"type": kind, "uuid": f"{self.session[:8]}-{self.number:x}", "session_id": self.session,
                "timestamp": timestamp(self.number), **others}

    def init(self):
        return self.line("system", subtype="init", cwd=f"/Users/me/{self.session[:8]}", model=MODEL,
                         tools=list(TOOLS))

    def user(self, text=None):
        self.has_run = True
        return self.line("user", message={"role": "user", "content": text or f"{self.number}: {self.text()}"})

    def nothing(self):
        return self.line("user", message={"role": "user", "content": self.rng.choice(("", [], [
            {"type": "text", "text": self.text()}]))})

    def assistant(self):
        content = [{"type": "text", "text": self.text()} for _ in range(self.rng.choice((0, 1, 1, 2)))]
        for count in range(self.rng.choice((0, 0, 1, 1, 2, 4))):
            tool = f"toolu_{self.number + 1:x}_{count}"
            self.calls_of_tools = self.calls_of_tools[-4:] + [tool]
            content.append({"type": "tool_use", "id": tool, "name": self.rng.choice(TOOLS),
                            "input": {"command": self.text()}})
        line = self.line("assistant", message={"id": f"msg_{self.number + 1:x}", "role": "assistant",
                                               "model": MODEL, "content": content})
        if self.rng.random() < 0.8:  # the tokens mark the LLM call, which has no time
            line["message"]["usage"] = {"input_tokens": self.number,
                                        "output_tokens": self.rng.randint(0, 900),
                                        "cache_read_input_tokens": self.rng.randint(0, 9000)}
        return line

    def tool_results(self):
        tools = self.rng.sample(self.calls_of_tools, min(len(self.calls_of_tools), self.rng.randint(1, 3)))
        blocks = [{"type": "tool_result", "tool_use_id": tool, "is_error": self.rng.random() < 0.1,
                   "content": self.text() if self.rng.random() < 0.5 else [
                       {"type": "text", "text": self.text()}, {"type": "text", "text": self.text()}]}
                  for tool in tools or [f"toolu_{self.number:x}_lone"]]
        return self.line("user", message={"role": "user", "content": blocks})

    def status(self):
        return self.line("system", subtype="status", status="compacting", message=self.text())

    def without_identity(self):
        line = self.status()
        del line["uuid"]
        return line

    def permission(self):
        subtype = self.rng.choice(("permission_request", "permission_response", "permission_auto_approved"))
        return self.line("system", subtype=subtype, tool_name=self.rng.choice(TOOLS), decision="allow",
                         tool_input={"command": self.text()}, reason=self.text())

    def compact(self):
        return self.line("system", subtype="compact_boundary", compact_type="auto",
                         pre_tokens=self.rng.randint(1, 10**6), post_tokens=self.rng.randint(1, 10**4))

    def result(self):
        line = self.line("result", subtype=self.rng.choice(("success", "success", "error_max_turns", "")),
                         summary=self.text(), duration_ms=self.rng.randint(1, 10**6), total_cost_usd=0.25)
        return {**line, "num_turns": self.number}  # marks the completion

    def tool_summary(self):
        return self.line("tool_use_summary", tool_name=self.rng.choice(TOOLS), summary=self.text(),
                         tool_use_id=f"toolu_{self.number + 1:x}_sum", is_error=False)

    def rate_limit(self):
        return self.line("rate_limit_event", status="allowed", tokens_used=self.rng.randint(1, 10**6))

    def unknown(self):
        return self.line(self.rng.choice(("queue-operation", "file-history-snapshot", "system")),
                         subtype=f"notice_{self.number + 1}", snapshot={"text": self.text()})
