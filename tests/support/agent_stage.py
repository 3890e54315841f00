"""What tests in Python share: the local service and what it holds, and a home for the agent."""

import collections
import http.client
import json
import secrets
import shutil
import subprocess

PATIENCE = 60  # seconds without a word before a program counts as stuck
KEY = secrets.token_hex(16)


class Failure(Exception):
    """What must not happen did."""


class Service:
    """The local service, and what it holds."""

    def __init__(self, build, folder, environment=None):
        key_file = folder / "service.key"
        key_file.write_text(KEY)
        self.process = subprocess.Popen(
            [build / "pelmar-local-service", "--database", folder / "service.db", "--key-file",
             key_file], env=environment, stdout=subprocess.PIPE, text=True)
        listening = self.process.stdout.readline()
        if not listening:
            self.process.wait()
            self.process.stdout.close()
            raise Failure("the service did not start")
        self.url = listening.split()[-1]
        self.known = collections.Counter()
        self.connection = http.client.HTTPConnection(self.url.rpartition("/")[2], timeout=PATIENCE)

    def stop(self):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()
        self.connection.close()

    def ask(self, path, body=None):
        self.connection.request("GET" if body is None else "POST", path,
                                None if body is None else json.dumps(body), {"X-Pel-Key": KEY})
        answer = self.connection.getresponse()
        text = answer.read()
        if answer.status != 200:
            raise Failure(f"the service answered {answer.status} to {path}: {text}")
        return json.loads(text)

    def all_of(self, path, after=0):
        rows = []
        while after is not None:
            page = self.ask(f"{path}?limit=1000&after={after}")
            rows += page["items"]
            after = page["next"]
        return rows

    def rows_since_last_time(self, table):
        """The rows of `table` that came since this was asked before."""
        rows = self.all_of(f"/api/local/{table}", self.known[table])
        if rows:
            self.known[table] = rows[-1]["id"]
        return rows

    def last_run(self):
        self.rows_since_last_time("runs")
        return self.known["runs"]

    def daily_run(self, slug):
        return self.ask("/api/v1/observe/runs/daily/",
                        {"agent_slug": slug, "agent_type": "claude-cowork"})

    def steps(self, after):
        """The steps of every run behind the run `after`, in the order of arrival."""
        rows = []
        for run in self.all_of("/api/local/runs", after):
            rows += self.all_of(f"/api/local/runs/{run['run_id']}/steps")
        return sorted(rows, key=lambda row: row["id"])

    def llm_calls(self, after):
        rows = []
        for run in self.all_of("/api/local/runs", after):
            rows += self.all_of(f"/api/local/runs/{run['run_id']}/llm-calls")
        return rows


class Home:
    """A folder for PELMAR_ROOT with a home in it."""

    def __init__(self, root):
        self.root = root
        self.pelmar = root / "home" / ".pelmar"
        self.cursor = self.pelmar / "cowork-cursor.json"
        self.activity = self.pelmar / "logs" / "cowork-watcher.activity.jsonl"
        self.projects = root / "home" / ".claude" / "projects" / "garden"
        self.records = (root / "home" / "Library" / "Application Support" / "Claude" /
                        "claude-code-sessions" / "person")

    def make(self, url, slug):
        shutil.rmtree(self.root, ignore_errors=True)
        for folder in (self.pelmar, self.projects, self.records):
            folder.mkdir(parents=True)
        (self.pelmar / "config").write_text(
            f"[claude-cowork]\napi_url = {url}\napi_key = {KEY}\nagent_slug = {slug}\n")

    def transcript(self, session):
        return self.projects / f"{session}.jsonl"

    def grow(self, lines):
        """Appends lines to transcripts, as (session, text) pairs; a new session gets its record."""
        for session, text in lines:
            path = self.transcript(session)
            if not path.exists():
                record = self.records / f"local_{session}.json"
                record.write_text(json.dumps({"cliSessionId": session}))
            with path.open("a") as file:
                file.write(text)

    def stored_offset(self, session):
        """Of the cursor file; 0 when it does not know the transcript."""
        try:
            state = json.loads(self.cursor.read_text())
        except FileNotFoundError:
            return 0
        entry = state.get(str(self.transcript(session)))
        return entry["offset"] if entry else 0
