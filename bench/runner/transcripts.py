"""Transcripts to report: made ones of a fixed mix, and a folder's repeated to a size."""

import datetime
import json
import math
import random
import uuid

# What lines real transcripts have: the share of each kind, and the median and the ninth decile of
# the bytes of its text. A line of a kind that is not here yields one event, as system lines do.
MIX = [
    ("tool_use", 0.300, 300, 1500),
    ("tool_result", 0.300, 800, 8000),
    ("assistant", 0.185, 200, 900),
    ("thinking", 0.055, 600, 2500),
    ("user", 0.050, 100, 1800),
    ("system", 0.061, 120, 250),
    ("attachment", 0.016, 300, 350),
    ("summary", 0.013, 40, 50),
    ("user_blocks", 0.011, 250, 3000),
    ("file-history-snapshot", 0.009, 60, 500),
    ("image", 0.001, 500000, 1000000),
]
LONGEST_TEXT = 1_200_000
WORDS = """the of tomato path watering returned "seedling" line\n harvest src/garden/plan.py \t bed
 value compost -> function {row} null index; basil über die Straße 種 error: expected\n rotation
 in 3.25 ms https://garden.example.com/plan?bed=4 and then trellis \\n sorted by week""".split(" ")
START = datetime.datetime(2026, 3, 4, 5, 6, 7)


class Writer:
    """Makes transcripts, always the same ones. Uses nothing of `random` but what
    yields the same numbers in every version of Python."""

    def __init__(self, longest):
        self.longest = longest  # of a line's text
        self.random = random.Random(1)
        pool = []
        for _ in range(40000):
            pool.append(WORDS[int(self.random.random() * len(WORDS))])
        self.pool = " ".join(pool)
        self.lines = 0

    def session_id(self):
        return str(uuid.UUID(int=self.random.getrandbits(128), version=4))

    def _length(self, median, ninth_decile):
        # Lognormal: 1.2816 standard deviations above the median lie nine tenths.
        angle = 2 * math.pi * self.random.random()
        normal = math.sqrt(-2 * math.log(1 - self.random.random())) * math.cos(angle)
        return int(median * math.exp(normal * math.log(ninth_decile / median) / 1.2816))

    def _text(self, length):
        begin = int(self.random.random() * (len(self.pool) // 2))
        text = self.pool[begin:begin + length]
        return text if len(text) == length else (text * (length // max(1, len(text)) + 1))[:length]

    def _kind(self):
        at = self.random.random() * sum(share for _, share, _, _ in MIX)
        for kind, share, median, decile in MIX:
            at -= share
            if at < 0:
                break
        return kind, self._text(min(self.longest, self._length(median, decile)))

    def _message(self, kind, text):
        """The keys of a line that its kind adds to the common ones."""
        if kind in ("tool_use", "assistant", "thinking"):
            block = {"tool_use": {"type": "tool_use", "id": "toolu_" + self.session_id()[:18], "name": "Bash",
                                  "input": {"command": text, "description": "Sorts the beds"}},
                     "assistant": {"type": "text", "text": text},
                     "thinking": {"type": "thinking", "thinking": text, "signature": "c2ln" * 80}}[kind]
            usage = {"input_tokens": len(text) % 97, "cache_creation_input_tokens": 1200,
                     "cache_read_input_tokens": 15000, "output_tokens": len(text) // 4,
                     "service_tier": "standard"}
            return {"type": "assistant", "requestId": "req_" + self.session_id()[:20], "message": {
                "id": "msg_" + self.session_id()[:20], "type": "message", "role": "assistant",
                "model": "claude-sonnet-4-20250514", "content": [block], "stop_reason": None,
                "usage": usage}}
        if kind == "tool_result":
            block = {"type": "tool_result", "tool_use_id": "toolu_" + self.session_id()[:18], "content": text}
            return {"type": "user", "message": {"role": "user", "content": [block]},
                    "toolUseResult": {"stdout": text, "stderr": "", "interrupted": False}}
        if kind == "user_blocks":
            return {"type": "user", "message": {"role": "user",
                                                "content": [{"type": "text", "text": text}]}}
        if kind == "image":
            data = "iVBORw0KGgo" + "A" * len(text)
            source = {"type": "base64", "media_type": "image/png", "data": data}
            return {"type": "user", "message": {"role": "user", "content": [
                {"type": "image", "source": source}, {"type": "text", "text": "What is this?"}]}}
        if kind == "user":
            return {"type": "user", "message": {"role": "user", "content": text}}
        if kind == "summary":
            return {"type": "summary", "summary": text}
        return {"type": kind, "content": text}

    def line(self, session):
        kind, text = self._kind()
        self.lines += 1
        stamp = START + datetime.timedelta(milliseconds=777 * self.lines)
        line = {"parentUuid": self.session_id(), "isSidechain": False, "userType": "external",
                "cwd": "/Users/me/garden-planner", "sessionId": session, "version": "2.0.76",
                "gitBranch": "main", **self._message(kind, text), "uuid": self.session_id(),
                "timestamp": stamp.isoformat(timespec="milliseconds") + "Z"}
        return json.dumps(line, ensure_ascii=False, separators=(",", ":")).encode() + b"\n"

    def transcript(self, session):
        """Between a few and a few hundred lines."""
        count = max(2, min(400, self._length(20, 110)))
        return b"".join(self.line(session) for _ in range(count))


def make(folder, size, longest=LONGEST_TEXT):
    """Writes transcripts of about `size` bytes together into `folder`."""
    folder.mkdir(parents=True)
    writer = Writer(longest)
    while size > 0:
        session = writer.session_id()
        text = writer.transcript(session)
        (folder / f"{session}.jsonl").write_bytes(text)
        size -= len(text)


def repeated(folder, size):
    """Yields the content of the transcripts below `folder`, again and again, until they are `size`
    bytes. Every repetition is to become a session of its own."""
    texts = [path.read_bytes() for path in sorted(folder.rglob("*.jsonl"))]
    texts = [text for text in texts if text]
    if not texts:
        raise ValueError(f"{folder} holds no transcripts")
    while True:
        for text in texts:
            yield text
            size -= len(text)
            if size <= 0:
                return
