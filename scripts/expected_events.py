"""What the agent should report of transcripts, read independently of the agent.

As a program: expected_events.py FILE...   prints the totals as JSON.
"""

import collections
import dataclasses
import json
import pathlib
import sys


@dataclasses.dataclass
class Expected:
    lines: int = 0
    malformed: int = 0
    steps: int = 0
    kinds: collections.Counter = dataclasses.field(default_factory=collections.Counter)
    llm_calls: int = 0
    tokens_in: int = 0
    tokens_out: int = 0
    results: int = 0  # transcripts with a result, each of which completes a run of its own


def text(value):
    return value if isinstance(value, str) else ""


def objects(value):
    if isinstance(value, list) and all(isinstance(item, dict) for item in value):
        return value
    return []


def count(value):
    """A token count: a number, or a string that is an integer; anything else is 0."""
    if isinstance(value, bool):
        return 0
    if isinstance(value, (int, float)):
        return int(value)
    try:
        return int(value) if isinstance(value, str) and value.strip() == value else 0
    except ValueError:
        return 0


def events_of(line):
    """The (kind, payload) pairs of a line, with as much payload as identifies and counts them."""
    kind, subtype = text(line.get("type")), text(line.get("subtype"))
    message = line.get("message") if isinstance(line.get("message"), dict) else {}
    if kind == "system":
        if subtype == "init":
            return [("session_init", {})]
        if subtype in ("permission_request", "permission_response", "permission_auto_approved"):
            return [("permission:" + subtype.replace("permission_", ""), {})]
        known = {"status": "system_status", "compact_boundary": "compact_boundary"}
        return [(known.get(subtype, "unknown"), {})]
    if kind == "result":
        return [("result:" + (subtype or "unknown"), {})]
    if kind == "tool_use_summary":
        return [("tool_use_summary", {"tool_use_id": text(line.get("tool_use_id"))})]
    if kind == "rate_limit_event":
        return [("rate_limit", {})]
    if kind == "user":
        content = message.get("content")
        if isinstance(content, str):
            return [("user_message", {})] if content else []
        return [("tool_result", {"tool_use_id": text(block.get("tool_use_id"))})
                for block in objects(content) if block.get("type") == "tool_result"]
    if kind == "assistant":
        identity = text(message.get("id"))
        tools = [("tool_use", {"message_id": identity, "tool_use_id": text(block.get("id"))})
                 for block in objects(message.get("content")) if block.get("type") == "tool_use"]
        usage = message.get("usage") if isinstance(message.get("usage"), dict) else {}
        tokens = (count(usage.get("input_tokens")), count(usage.get("output_tokens")))
        return [("assistant", {"message_id": identity, "tokens": tokens})] + tools
    return [("unknown", {})]


def key_of(line, kind, payload):
    identities = (line.get("uuid"), line.get("id"), payload.get("message_id"),
                  payload.get("tool_use_id"))
    identity = next((i for i in identities if isinstance(i, str)), "")
    return (identity, kind, payload.get("tool_use_id", ""))


def add_transcript(path, total):
    seen = set()
    has_run = False
    has_result = False
    complete = pathlib.Path(path).read_bytes().rpartition(b"\n")[0]
    for raw in complete.split(b"\n") if complete else []:
        total.lines += 1
        decoded = raw.decode("utf-8", "replace")
        if not decoded.strip(" \t"):
            continue
        try:
            line = json.loads(decoded)
        except ValueError:
            line = None
        if not isinstance(line, dict):
            total.malformed += 1
            continue
        for kind, payload in events_of(line):
            key = key_of(line, kind, payload)
            if key in seen:
                continue
            if kind == "session_init" and not has_run:
                has_run = True  # it asks for the run and is not a step of it
                continue
            has_run = True
            seen.add(key)
            total.steps += 1
            total.kinds[kind] += 1
            has_result = has_result or kind.startswith("result:")
            tokens_in, tokens_out = payload.get("tokens", (0, 0))
            if tokens_in > 0 or tokens_out > 0:
                total.llm_calls += 1
                total.tokens_in += tokens_in
                total.tokens_out += tokens_out
    total.results += has_result


def expected(paths):
    total = Expected()
    for path in paths:
        add_transcript(path, total)
    return total


if __name__ == "__main__":
    print(json.dumps(vars(expected(sys.argv[1:])), indent=2, sort_keys=True))
