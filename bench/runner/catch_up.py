"""Reporting everything from the start, against posting the same requests; and what the journal costs."""

import filecmp
import shutil

import homes
import transcripts
from figures import Goal, Row
from processes import Failure, watched
from setting import say
from sink import sink

RUN_PATIENCE = 600  # seconds for one run


class CatchUp:
    def __init__(self, setting):
        self.setting = setting
        self.home = homes.Home(setting.folder / "catch-up", "")
        for text in transcripts.repeated(setting.transcripts, setting.scale.corpus_bytes):
            self.home.add_session(text)
        self.recorded = setting.folder / "requests"
        self.lines = setting.folder / "activity-lines"
        self.floor_log = setting.folder / "floor-activity-lines"
        self.cursor = setting.folder / "cursor"
        self.expected = None  # requests and their bytes

    def _agent(self, has_journal):
        self.home.forget()
        if not has_journal:
            # A link, which the agent never follows here: there is nothing that it could write to.
            self.home.journal.symlink_to("nowhere")
        return [self.setting.agent, "--from-start", "--verbose", "--poll", "0"]

    def _floor(self, service, saves):
        self.floor_log.unlink(missing_ok=True)
        files = [self.cursor, self.home.transcripts] if saves else []
        return [self.setting.tools / "floor_post_loop", service.url, homes.KEY, self.recorded,
                self.lines, self.floor_log, *files]

    def run(self, who, service, cores=None):
        """Seconds and CPU seconds between the two marks, and what arrived meanwhile. `who` is "agent",
        "agent without journal", "floor", or "floor that saves", which also treats its files as the agent
        must."""
        self.home.profile(service.url)
        before = service.stats()
        command = (self._floor(service, saves=who == "floor that saves") if who.startswith("floor")
                   else self._agent(has_journal=who == "agent"))
        with watched(command, self.home.environment(), cores) as process:
            begin = process.wait_for(1)
            cpu = process.cpu()
            end = process.wait_for(2, RUN_PATIENCE)
            cpu = process.cpu() - cpu
        came = service.since(before)
        if self.expected and came != self.expected:
            raise Failure(f"{who} sent {came} (requests, bytes), {self.expected} are to come")
        return end - begin, cpu, came

    def record(self):
        """Keeps the agent's requests and activity lines for the floor, and holds the floor to them."""
        program = self.setting.tools / "bench_sink"
        with sink(program, "--record", self.recorded) as service:
            *_, came = self.run("agent", service)
        shutil.copyfile(self.home.activity, self.lines)
        shutil.copyfile(self.home.cursor, self.cursor)
        again = self.setting.folder / "requests-of-the-floor"
        with sink(program, "--record", again) as service:
            *_, floor_came = self.run("floor", service)
        if floor_came != came or not filecmp.cmp(self.recorded, again, shallow=False):
            raise Failure(f"agent and floor sent other requests: {came}, {floor_came}")
        if not filecmp.cmp(self.lines, self.floor_log, shallow=False):
            raise Failure("agent and floor wrote other activity lines")
        again.unlink()
        self.expected = came


def _alternating(catch_up, ours, theirs, service, cores):
    """The two kinds of run in turn: the rates of both, and their CPU times a request."""
    rates, costs = {ours: [], theirs: []}, {ours: [], theirs: []}
    requests = catch_up.expected[0]
    for turn in catch_up.setting.alternating():
        who = ours if turn == "agent" else theirs
        seconds, cpu, _ = catch_up.run(who, service, cores)
        rates[who].append(requests / seconds)
        costs[who].append(1e6 * cpu / requests)
    return (rates[ours], rates[theirs]), (costs[ours], costs[theirs])


def measure(setting):
    catch_up = CatchUp(setting)
    say("catch-up: recording the requests")
    catch_up.record()
    requests, size = catch_up.expected
    note = f"{requests:,} requests of {size / 1e6:.1f} MB a run, the same from both"
    rows = []
    program = setting.tools / "bench_sink"
    for where, cores, goal in (("one core", setting.one_core(), 0.6), ("free", None, 0.85)):
        say(f"catch-up: {where}")
        with setting.off_the_one_core(cores), sink(program, cores=cores) as service:
            rates, costs = _alternating(catch_up, "agent", "floor", service, cores)
        rows.append(Row("catch-up", where, "requests/s", *rates, Goal(goal, at_least=True), note))
        rows.append(Row("catch-up", f"{where}, CPU a request", "us", *costs))
        note = ""
    cores = setting.one_core()
    for topic, who, note in (
            ("catch-up, its files too", "floor that saves", "the floor also opens the log for each line, "
             f"and replaces a growing cursor file {catch_up.home.transcripts:,} times, as the agent does"),
            ("journal", "agent without journal",
             "the floor's column is the agent with a journal that cannot be written")):
        say(f"{topic}: beside the {who}")
        with setting.off_the_one_core(cores), sink(program, cores=cores) as service:
            rates, costs = _alternating(catch_up, "agent", who, service, cores)
        rows.append(Row(topic, "one core", "requests/s", *rates, note=note))
        rows.append(Row(topic, "one core, CPU a request", "us", *costs))
    shutil.rmtree(catch_up.home.root)
    catch_up.recorded.unlink()
    return rows
