"""Runs the agent from a throwaway home against the local service and prints what that received."""

import argparse
import json
import os
import pathlib
import secrets
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import urllib.request

from expected_events import expected

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
SAMPLES = REPOSITORY / "samples"
# As the agent passes them over; what is not watched is not expected either.
SKIPPED_FOLDERS = {"cowork_plugins", "node_modules", "shim-lib", "shim-perm", "outputs", "uploads",
                   "skills-plugin", "debug"}
LIVE_SESSION = "c05e9a72-77b3-4d0c-8a94-2e6f1b3c9d58.jsonl"
PATIENCE = 60  # seconds without a new step before it counts as stuck


class Failure(Exception):
    pass


def arguments():
    parser = argparse.ArgumentParser(
        prog="./run",
        description="Runs the agent in a throwaway home, reporting to a local stand-in for the "
        "service on this machine and nowhere else, and prints what the service received. Without "
        "FOLDER it reports the samples of this repository. Nothing of your home is read unless you "
        "name it, and nothing in it is written.")
    parser.add_argument("folder", nargs="?", type=pathlib.Path, metavar="FOLDER",
                        help="report the transcripts (*.jsonl) below this folder instead; they are "
                        "copied, and never written to")
    parser.add_argument("--once", action="store_true",
                        help="stop as soon as everything has arrived; fails when it does not")
    parser.add_argument("--build", type=pathlib.Path, default=REPOSITORY / "build" / "release",
                        help=argparse.SUPPRESS)  # the tests' way to their own programs
    parser.add_argument("--keep", action="store_true", help="keep the throwaway folder")
    chosen = parser.parse_args()
    if chosen.folder is not None and not chosen.folder.is_dir():
        parser.error(f"{chosen.folder} is not a folder")
    return chosen


def why_no_page(folder):
    if (folder / "index.html").exists():
        return None
    reason = folder / "not-built.txt"
    return reason.read_text().strip() if reason.exists() else "scripts/build-page was not run."


class LocalService:
    def __init__(self, folder, build, started):
        self.key = secrets.token_hex(16)
        self.database = folder / "service.db"
        key_file = folder / "service.key"
        key_file.touch(mode=0o600)
        key_file.write_text(self.key)
        self.process = subprocess.Popen(
            [build / "pelmar-local-service", "--database", self.database, "--key-file", key_file,
             "--page", build / "page"],
            stdout=subprocess.PIPE, text=True, start_new_session=True)
        started.append(self.process)
        first = self.process.stdout.readline().split()
        if len(first) < 3:
            raise Failure("the local service did not start")
        self.url = first[-1]
        page = self.process.stdout.readline().split()[-1]
        missing = why_no_page(build / "page")
        self.page = page if missing is None else f"its page was not built: {missing}"
        self.opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))

    def all_of(self, path):
        items, after = [], 0
        while after is not None:
            page = self.query(f"{path}?limit=1000&after={after}")
            items += page["items"]
            after = page["next"]
        return items

    def query(self, path):
        request = urllib.request.Request(self.url + path, headers={"X-Pel-Key": self.key})
        with self.opener.open(request, timeout=30) as answer:
            return json.load(answer)


class Agent:
    """The agent in a home of its own below `root`."""

    def __init__(self, root, build, service, slug):
        self.root = root
        self.program = build / "PelmarCoworkWatcher-rooted"
        self.home = root / "home"
        self.projects = self.home / ".claude" / "projects"
        self.records = (self.home / "Library" / "Application Support" / "Claude" /
                        "claude-code-sessions" / "samples")
        self.log = root / "agent.log"
        for folder in (self.projects, self.records, self.home / ".pelmar"):
            folder.mkdir(parents=True)
        config = self.home / ".pelmar" / "config"
        config.touch(mode=0o600)
        slug_line = f"agent_slug = {slug}\n" if slug else ""
        config.write_text(
            f"[claude-cowork]\napi_url = {service.url}\napi_key = {service.key}\n{slug_line}")
        self.process = None
        self.usage = None

    def start(self):
        self.process = subprocess.Popen(
            [self.program, "--from-start", "--poll", "0.2"],
            env={"PELMAR_ROOT": str(self.root)}, stderr=self.log.open("wb"),
            start_new_session=True)

    def transcripts(self):
        return sorted(self.projects.rglob("*.jsonl"))

    def peak_memory(self):
        """Bytes, or none where the system does not say."""
        try:
            status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        except OSError:
            return None
        return int(status.split("VmHWM:")[1].split()[0]) * 1024

    def malformed(self):
        return self.log.read_text(errors="replace").count("skipping malformed line")


def stop(process):
    if process is None or process.poll() is not None:
        return
    process.terminate()
    try:
        process.wait(timeout=10)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


class Report:
    """What the service holds, beside what should arrive."""

    def __init__(self, service, agents):
        self.service = service
        self.agents = agents
        self.summary = {}

    def refresh(self):
        self.summary = self.service.query("/api/local/summary")

    def steps(self):
        return self.summary["steps"]["total"]

    def calls(self):
        return self.summary["llm_calls"]["total"]

    def completions(self):
        return sum(self.summary["completions"]["by_status"].values())

    def wait_for(self, steps, calls, completions, progress):
        """Returns once that much has arrived; fails when nothing more does."""
        last_change = time.monotonic()
        last_steps = -1
        while True:
            self.refresh()
            progress(self.steps(), steps)
            if (self.steps() >= steps and self.calls() >= calls and
                    self.completions() >= completions):
                return
            if self.steps() != last_steps:
                last_steps, last_change = self.steps(), time.monotonic()
            if any(agent.process.poll() is not None for agent in self.agents):
                raise Failure("the agent ended: " + self.last_error())
            if time.monotonic() - last_change > PATIENCE:
                raise Failure(f"{self.steps()} of {steps} steps, {self.calls()} of {calls} LLM "
                              f"calls and {self.completions()} of {completions} completions "
                              f"arrived, then nothing more: {self.last_error()}")
            time.sleep(0.05)

    def last_error(self):
        for agent in self.agents:
            errors = [line for line in agent.log.read_text(errors="replace").splitlines()
                      if (" error " in line or line.startswith("Fatal error")) and
                      "agent_slug" not in line and "malformed" not in line]
            if errors:
                return errors[-1]
        return "the agent's log names no error"

    def check(self, wanted):
        if self.summary["steps"]["by_kind"] != dict(wanted.kinds):
            raise Failure(f"the steps differ from the transcripts: {dict(wanted.kinds)} expected, "
                          f"{self.summary['steps']['by_kind']} received")
        malformed = sum(agent.malformed() for agent in self.agents)
        if malformed != wanted.malformed:
            raise Failure(f"{malformed} lines passed over as malformed instead of "
                          f"{wanted.malformed}")
        models = self.summary["llm_calls"]["by_model"].values()
        tokens = tuple(sum(model[key] for model in models)
                       for key in ("calls", "tokens_in", "tokens_out"))
        if tokens != (wanted.llm_calls, wanted.tokens_in, wanted.tokens_out):
            raise Failure(f"the LLM calls and tokens differ from the transcripts: {tokens}")


def progress_line():
    """Shows progress in place on a terminal, and every few seconds elsewhere."""
    state = {"shown": time.monotonic()}

    def show(done, total):
        now = time.monotonic()
        if sys.stdout.isatty():
            print(f"\r  {done:,} of {total:,} steps", end="\n" if done >= total else "", flush=True)
        elif done >= total or now - state["shown"] >= 5:
            state["shown"] = now
            print(f"  {done:,} of {total:,} steps", flush=True)

    return show


def copy_transcripts(folder, agent):
    """Copies what the agent would watch; a session record each makes it known."""
    copied = 0
    for parent, folders, files in os.walk(folder):
        folders[:] = sorted(f for f in folders if f not in SKIPPED_FOLDERS and f[0] != ".")
        for name in sorted(files):
            source = pathlib.Path(parent) / name
            if name[0] == "." or not name.endswith(".jsonl") or source.is_symlink():
                continue
            target = agent.projects / source.relative_to(folder)
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(source, target)
            copied += 1
            record = agent.records / f"local_{copied}.json"
            record.write_text(json.dumps({"cliSessionId": source.stem}))
    if copied == 0:
        raise Failure(f"no transcripts (*.jsonl) below {folder}")


def append_live(agent, report):
    """Writes a new session's lines one by one and waits for each."""
    print("\nAppending to a transcript while the agent runs:")
    target = agent.projects / "garden-planner" / LIVE_SESSION
    lines = (SAMPLES / "live.jsonl").read_bytes().splitlines(keepends=True)
    before = report.steps()
    for number, line in enumerate(lines, 1):
        with target.open("ab") as transcript:
            transcript.write(line)
        begin = time.monotonic()
        wanted = expected_of(report.agents)
        report.wait_for(wanted.steps, wanted.llm_calls, 0, lambda done, total: None)
        arrived = f"{counted(wanted.steps - before, 'step')}, after {time.monotonic() - begin:.2f} s"
        if wanted.steps == before:
            arrived = "asks for a run and is no step of it"
        print(f"  line {number} of {len(lines)}: {arrived}", flush=True)
        before = wanted.steps


def counted(count, noun):
    return f"{count:,} {noun}" + ("" if count == 1 else "s")


def expected_of(agents):
    return expected([path for agent in agents for path in agent.transcripts()])


def table(rows):
    for name, number in sorted(rows.items(), key=lambda row: (-row[1], row[0])):
        print(f"  {number:>10,}  {name}")


def show(report, elapsed):
    summary = report.summary
    runs = report.service.all_of("/api/local/runs")
    daily = sum(run["kind"] == "daily" for run in runs)
    print("\nThe service received")
    print(f"\n  {len(runs):>10,}  runs: {daily:,} daily, {len(runs) - daily:,} of one session")
    print(f"\n  {report.steps():>10,}  steps")
    table(summary["steps"]["by_step_name"])
    print(f"\n  {report.calls():>10,}  LLM calls")
    for model, counts in sorted(summary["llm_calls"]["by_model"].items()):
        print(f"  {counts['calls']:>10,}  {model}: {counts['tokens_in']:,} tokens in, "
              f"{counts['tokens_out']:,} out")
    print(f"\n  {report.completions():>10,}  completions")
    table(summary["completions"]["by_status"])
    requests = summary["requests"]
    statuses = ", ".join(f"{count:,} answered {status}"
                         for status, count in sorted(requests["by_status"].items()))
    print(f"\n  {requests['total']:>10,}  requests: {statuses}; "
          f"{requests['bytes_received']:,} bytes")
    print(f"  {summary['heartbeats']:>10,}  heartbeats")

    peaks = [agent.peak_memory() for agent in report.agents]
    print(f"\nAll of it arrived within {elapsed:.1f} s.", end="")
    if all(peaks):
        print(f" The agent's peak memory: {max(peaks) / 1e6:.1f} MB.", end="")
    print(f" Malformed lines passed over: {sum(agent.malformed() for agent in report.agents)}.")


def show_where(report, root):
    agent = report.agents[0]
    print(f"""
To look closer, while this runs:
  in a browser      {report.service.page}
  what arrived      curl -H "X-Pel-Key: $(cat {root}/service.key)" {report.service.url}/api/local/summary
                    (also /api/local/runs, /api/local/requests: docs/local-service.md)
  its database      {report.service.database}
  the cursor        {agent.home}/.pelmar/cowork-cursor.json
  the activity log  {agent.home}/.pelmar/logs/cowork-watcher.activity.jsonl
  the agent's log   {agent.log}""")


def prepare(chosen, root, service):
    """The agents to run, with their transcripts in place."""
    team = Agent(root / "agent", chosen.build, service, "sample-agent")
    if chosen.folder is not None:
        print(f"Copying the transcripts below {chosen.folder} …", flush=True)
        copy_transcripts(chosen.folder.resolve(), team)
        return [team]
    solo = Agent(root / "agent-without-slug", chosen.build, service, "")
    for agent, project in ((team, "garden-planner"), (solo, "recipe-box")):
        shutil.copytree(SAMPLES / "projects" / project, agent.projects / project)
        shutil.copytree(SAMPLES / "sessions", agent.records, dirs_exist_ok=True)
    return [team, solo]


def report_all(chosen, root, service, started):
    agents = prepare(chosen, root, service)
    report = Report(service, agents)
    wanted = expected_of(agents)
    transcripts = sum(len(agent.transcripts()) for agent in agents)
    if chosen.folder is None:
        print("Two agents: one with an agent slug, whose sessions share a daily run, and one without,\n"
              "whose sessions have a run each.")
    print(f"\nReporting {counted(wanted.lines, 'line')} of {counted(transcripts, 'transcript')}:",
          flush=True)
    begin = time.monotonic()
    for agent in agents:
        agent.start()
        started.append(agent.process)
    completions = 0 if chosen.folder is not None else expected_of(agents[1:]).results
    report.wait_for(wanted.steps, wanted.llm_calls, completions, progress_line())
    elapsed = time.monotonic() - begin
    if chosen.folder is None:
        append_live(agents[0], report)
    report.refresh()
    report.check(expected_of(agents))
    show(report, elapsed)
    return report


def main():
    chosen = arguments()
    signal.signal(signal.SIGINT, signal.default_int_handler)  # also where a shell had it ignored
    for ending in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(ending, lambda *_: sys.exit(1))
    root = pathlib.Path(tempfile.mkdtemp(prefix="pelmar-run-"))
    started = []
    try:
        service = LocalService(root, chosen.build, started)
        print(f"The local service listens on {service.url}; nothing is sent anywhere else.\n"
              f"To see every byte of it in a browser: {service.page}", flush=True)
        report = report_all(chosen, root, service, started)
        if not chosen.once:
            show_where(report, root)
            print("\nCtrl-C stops the agent and the service" +
                  ("." if chosen.keep else f" and deletes {root}."), flush=True)
            signal.pause()
    except KeyboardInterrupt:
        print("\nStopped.")
    except Failure as failure:
        print(f"./run: {failure}", file=sys.stderr)
        return 1
    finally:
        for process in reversed(started):
            stop(process)
        if chosen.keep:
            print(f"Kept: {root}")
        else:
            shutil.rmtree(root, ignore_errors=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
