"""What transcripts should bring, and what the service's database holds: both read independently of the
agent, event by event."""

import dataclasses
import hashlib
import json
import pathlib
import sqlite3
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
from expected_events import events_of, key_of  # noqa: E402

PREVIEW = 200  # code points of a text that may be cut which are compared
NOWHERE = 1 << 62
ANY = None  # of a prompt

# What identifies and makes up an event, besides its kind; of both a line and a step's output.
FACTS = {"user_message": ("text",), "assistant": ("text", "model", "message_id"),
         "tool_use": ("tool_name", "tool_input", "message_id"), "tool_result": ("content", "is_error"),
         "session_init": ("cwd", "model", "tools"),
         "permission": ("tool_name", "tool_input", "reason", "decision"),
         "system_status": ("status", "message"),
         "compact_boundary": ("compact_type", "pre_tokens", "post_tokens"),
         "result": ("summary", "num_turns", "duration_ms", "total_cost_usd"),
         "tool_use_summary": ("tool_name", "summary"), "rate_limit": ("status", "tokens_used"),
         "unknown": ("type", "subtype")}


@dataclasses.dataclass(frozen=True)
class Written:
    """An event as a transcript has it."""
    event: tuple  # its line's time, its kind, the id of its tool use
    transcript: str
    line: int
    end: int  # the offset behind its line
    is_needed: bool = True  # it has to arrive; otherwise it may
    step: str = ""  # a digest of what the step has to hold
    call: tuple = ()  # of the LLM call: tokens in and out, model, beginnings of prompt and answer
    status: str = ""  # of the completion, for a result
    turns: int = 0  # which mark the completion


def digest(facts):
    return hashlib.sha1(json.dumps(facts, sort_keys=True).encode()).hexdigest()


def facts_of(kind, session, values):
    facts = {key: values.get(key) for key in FACTS[kind.partition(":")[0]]}
    if kind == "tool_result":
        facts["content"] = (facts["content"] or "")[:PREVIEW]
    return digest({**facts, "session_id": session})


def texts(content):
    if isinstance(content, str):
        return content
    return "\n".join(block["text"] for block in content if block.get("text"))


def values_of(line, kind, tool):
    """The payload of a line's event, as far as FACTS asks for it."""
    if line["type"] not in ("user", "assistant"):
        return line
    message, content = line["message"], line["message"]["content"]
    if kind == "user_message":
        return {"text": content}
    if kind == "assistant":
        return {"text": texts(content), "model": message["model"], "message_id": message["id"]}
    name = "id" if kind == "tool_use" else "tool_use_id"
    block = next(block for block in content if block.get(name) == tool)
    if kind == "tool_use":
        return {"tool_name": block["name"], "tool_input": block["input"], "message_id": message["id"]}
    return {"content": texts(block["content"]), "is_error": block["is_error"]}


def call_of(line, prompt):
    usage = line["message"].get("usage")
    if usage is None:
        return ()
    return (usage["input_tokens"], usage["output_tokens"], line["message"]["model"], prompt[:PREVIEW],
            texts(line["message"]["content"])[:PREVIEW])


def written_in(transcript, content, is_needed=lambda start: True, has_run=False):
    """The events of the complete lines in `content`, in order, each once."""
    found, seen = [], set()
    prompt, end = "", 0
    for number, raw in enumerate(content.split(b"\n")[:-1], 1):
        start, end = end, end + len(raw) + 1
        try:
            line = json.loads(raw)
        except ValueError:
            continue
        for kind, payload in events_of(line) if isinstance(line, dict) else ():
            key = key_of(line, kind, payload)
            if key in seen:
                continue
            if kind == "session_init" and not has_run:
                has_run = True
                continue
            has_run = True
            seen.add(key)
            tool = payload.get("tool_use_id", "")
            values = values_of(line, kind, tool)
            prompt = values["text"] if kind == "user_message" else prompt
            status = "success" if kind == "result:success" else "error"
            found.append(Written(
                event=(line["timestamp"], kind, tool), transcript=transcript, line=number, end=end,
                is_needed=is_needed(start), step=facts_of(kind, line["session_id"], values),
                call=call_of(line, prompt) if kind == "assistant" else (),
                status=status if kind.startswith("result:") else "", turns=line.get("num_turns", 0)))
    return found


def written_since(transcript, content, first):
    """From the line of the event `first` on, the first that an agent sent which reads only what is new."""
    events = written_in(transcript, content)
    line = next(one.line for one in events if one.event == first)
    begin = len(b"\n".join(content.split(b"\n")[:line - 1]) + b"\n") if line > 1 else 0
    return [dataclasses.replace(one, line=one.line + line - 1, end=one.end + begin)
            for one in written_in(transcript, content[begin:], has_run=True)]


def written_in_rewritten(transcript, content, needed_from, history):
    """Where a transcript was cut or replaced: any of the lines in `history` may have been read, with whatever
    prompt; what begins at or behind `needed_from`, which no stale offset can reach, has to be."""
    needed = [one for one in written_in(transcript, content, lambda start: start >= needed_from)
              if one.is_needed]
    known = {one.event for one in needed}
    for line in history:
        for one in written_in(transcript, line, lambda start: False, has_run=True):
            if one.event not in known:
                known.add(one.event)
                call = one.call and (*one.call[:3], ANY, one.call[4])
                needed.append(dataclasses.replace(one, end=NOWHERE, call=call))
    return needed


def event_of_step(output):
    return (output["timestamp"], output["kind"], output.get("tool_use_id", ""))


class Database:
    """The rows of a service that has ended."""

    def __init__(self, file):
        self.connection = sqlite3.connect(f"file:{file}?mode=ro", uri=True)

    def steps(self):
        """(event, digest)"""
        for output, in self.connection.execute("SELECT output FROM steps ORDER BY id"):
            values = json.loads(output)
            yield event_of_step(values), facts_of(values["kind"], values["session_id"], values)

    def calls(self):
        """As Written has them."""
        for row in self.connection.execute(
                "SELECT tokens_in, tokens_out, model, prompt_preview, response_preview FROM llm_calls "
                "ORDER BY id"):
            yield (*row[:3], row[3][:PREVIEW], row[4][:PREVIEW])

    def completions(self):
        """(number of turns, which marks the result; status)"""
        for status, result in self.connection.execute("SELECT status, result FROM completions ORDER BY id"):
            yield json.loads(result)["num_turns"], status
