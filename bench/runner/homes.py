"""Homes for the agent, below a folder that PELMAR_ROOT names: records, transcripts, a profile."""

import json
import shutil
import uuid

from processes import minimal_environment

KEY = "the-key-of-the-benchmark"
SLUG = "bench-agent"
RECORD_BYTES = 1500
TRANSCRIPTS_A_FOLDER = 20


class Home:
    def __init__(self, root, url):
        self.root = root
        self.folder = root / "home"
        self.state = self.folder / ".pelmar"
        self.cursor = self.state / "cowork-cursor.json"
        self.journal = self.state / "cowork-cursor-journal.jsonl"
        self.activity = self.state / "logs" / "cowork-watcher.activity.jsonl"
        self.projects = self.folder / ".claude" / "projects"
        # Two folders deep, as the desktop application keeps them: an account's, an organisation's.
        self.records = (self.folder / "Library/Application Support/Claude/claude-code-sessions"
                        / str(uuid.UUID(int=1)) / str(uuid.UUID(int=2)))
        for folder in (self.state, self.projects, self.records):
            folder.mkdir(parents=True)
        self.profile(url)
        self.transcripts = 0

    def profile(self, url):
        (self.state / "config").write_text(
            f"[default]\napi_url = {url}\napi_key = {KEY}\nagent_slug = {SLUG}\n", encoding="ascii")

    def add_record(self, session):
        record = {"sessionId": "local_" + session, "cliSessionId": session, "title": "Beds of the year",
                  "cwd": "/Users/me/garden-planner", "originCwd": "/Users/me/garden-planner",
                  "createdAt": 1772614800000, "lastActivityAt": 1772618400000, "model": "claude-sonnet-4",
                  "isArchived": False, "permissionMode": "default", "enabledTools": {}, "notes": ""}
        for number in range(18):
            record["enabledTools"][f"garden-server:tool-number-{number}"] = number % 3 > 0
        record["notes"] = "x" * (RECORD_BYTES - len(json.dumps(record)))
        (self.records / f"local_{session}.json").write_text(json.dumps(record), encoding="ascii")

    def add_transcript(self, session, text):
        folder = self.projects / f"-Users-me-project-{self.transcripts // TRANSCRIPTS_A_FOLDER:05}"
        folder.mkdir(exist_ok=True)
        path = folder / f"{session}.jsonl"
        path.write_bytes(text)
        self.transcripts += 1
        return path

    def add_session(self, text):
        session = session_id(self.transcripts)
        self.add_record(session)
        return self.add_transcript(session, text)

    def forget(self):
        """Takes back what agents left here: the next one starts anew."""
        for path in (self.cursor, self.journal):
            path.unlink(missing_ok=True)
        shutil.rmtree(self.activity.parent, ignore_errors=True)

    def environment(self):
        return minimal_environment(PELMAR_ROOT=str(self.root))


def session_id(number):
    # Spread over the alphabet, as random ids are: the order of ids must not be that of their making.
    return str(uuid.UUID(int=(number * 0x9E3779B97F4A7C15F39CC0605CEDC835) % (1 << 128), version=4))


def idle_home(root, url, records, transcripts):
    """Of `transcripts` transcripts, evenly chosen ones belong to the `records` sessions."""
    home = Home(root, url)
    every = max(1, transcripts // records)
    known = 0
    for number in range(transcripts):
        session = session_id(number)
        home.add_transcript(session, b'{"type":"user","message":{"content":""}}\n')
        if number % every == 0 and known < records:
            home.add_record(session)
            known += 1
    return home
