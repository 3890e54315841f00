"""A pass with nothing new: its CPU time and its system calls, for growing numbers of files."""

import collections
import re
import shutil
import statistics

import homes
from figures import Goal, Row
from processes import Failure, cpu_a_pass, watched
from setting import say
from sink import sink

WARM_PASSES = 3  # the first has a heartbeat behind it
COUNTED_PASSES = 3


def _commands(setting, home, pause):
    return {"agent": [setting.agent, "--verbose", "--poll", str(pause)],
            "floor": [setting.tools / "floor_idle_pass", home.folder, str(pause)]}


def _milliseconds(setting, home, pause, runs, warm, passes, seconds):
    figures = {"agent": [], "floor": []}
    commands = _commands(setting, home, pause)
    for who in setting.alternating(runs):
        with watched(commands[who], home.environment()) as process:
            figures[who].append(1000 * cpu_a_pass(process, warm, passes, seconds))
    return figures


def _system_calls(setting, home, who):
    """How often each system call was made in a pass; the passes must agree."""
    trace = setting.folder / "trace"
    command = ["strace", "-D", "-f", "-s", "200", "-o", trace, *_commands(setting, home, 0)[who]]
    with watched(command, home.environment()) as process:
        process.wait_for(WARM_PASSES + COUNTED_PASSES + 1)
    passes = []
    for line in trace.read_text(errors="replace").splitlines():
        call = re.match(r"\d+ +(\w+)\(", line)
        if call and passes:
            passes[-1][call[1]] += 1
        if call and call[1] == "write" and "found" in line:
            passes.append(collections.Counter())
    trace.unlink()
    counted = passes[WARM_PASSES:WARM_PASSES + COUNTED_PASSES]
    if len(counted) < COUNTED_PASSES or any(one != counted[0] for one in counted):
        raise Failure(f"passes of the {who} differ in their system calls: {counted}")
    return counted[0]


def _per_file(rows, sizes):
    """How the cost of a file grows from the smallest size to the largest: 1 is linear."""
    def growth(who):
        costs = [statistics.median(getattr(row, who)) / sum(size) for row, size in zip(rows, sizes)]
        return [costs[-1] / costs[0]]
    return Row("idle pass", "cost of a file, largest size over smallest", "x", growth("agent"),
               growth("floor"), note="the floor's is that of the files alone: beside it 1 is linear")


def measure(setting):
    scale = setting.scale
    rows = {"free": [], "paused": [], "calls": []}
    with sink(setting.tools / "bench_sink") as service:
        for records, transcripts in scale.idle_sizes:
            size = f"{records:,} records, {transcripts:,} transcripts"
            say(f"idle pass: {size}")
            home = homes.idle_home(setting.folder / f"idle-{records}", service.url, records, transcripts)
            free = _milliseconds(setting, home, 0, scale.runs, WARM_PASSES, scale.idle_passes,
                                 scale.idle_seconds)
            rows["free"].append(Row("idle pass", size, "ms CPU", free["agent"], free["floor"],
                                    Goal(1.25)))
            # One pass apart from the first: what ran in between has taken the caches.
            paused = _milliseconds(setting, home, scale.pause, scale.paused_runs, 2,
                                   scale.paused_passes, 0)
            rows["paused"].append(Row("idle pass", f"{size}, {scale.pause:g} s apart", "ms CPU",
                                      paused["agent"], paused["floor"], Goal(1.25)))
            if shutil.which("strace"):
                calls = {who: _system_calls(setting, home, who) for who in ("agent", "floor")}
                ours, theirs = (", ".join(f"{name} {count:,}" for name, count in calls[who].most_common(6))
                                for who in ("agent", "floor"))
                rows["calls"].append(Row(
                    "system calls of an idle pass", size, "calls", [calls["agent"].total()],
                    [calls["floor"].total()], Goal(1.1), note=f"{ours}; the floor: {theirs}"))
            shutil.rmtree(home.root)
    if not rows["calls"]:
        say("system calls: skipped, strace is missing")
    growth = _per_file(rows["free"], scale.idle_sizes)
    return rows["free"] + rows["paused"] + [growth] + rows["calls"]


def plot_series(rows, sizes):
    """The lines of the plot: (files, low, median, high) for each size."""
    series = []
    for name, paused in (("without a pause", False), ("with a pause", True)):
        chosen = [row for row in rows if row.topic == "idle pass" and "records" in row.what
                  and row.what.endswith("apart") == paused]
        for who in ("agent", "floor"):
            values = [getattr(row, who) for row in chosen]
            series.append((f"{who}, {name}", [(sum(size), min(v), statistics.median(v), max(v))
                                              for size, v in zip(sizes, values)]))
    return series
