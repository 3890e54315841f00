"""Figures of parts, from a program over the agent's libraries: reading, skipping, saving."""

import json
import subprocess

from figures import Goal, Row
from processes import Failure, minimal_environment
from setting import say

PATIENCE = 900  # seconds for a topic


def _repetitions(setting, topic, *arguments):
    """What each repetition of agent and floor found; their order is shuffled by the program."""
    command = [setting.tools / "bench_in_process", topic, *arguments, "--benchmark_format=json",
               f"--benchmark_repetitions={setting.scale.repetitions}",
               f"--benchmark_min_time={setting.scale.repetition_seconds}",
               "--benchmark_enable_random_interleaving=true"]
    done = subprocess.run([str(word) for word in command], env=minimal_environment(), timeout=PATIENCE,
                          capture_output=True, check=False)
    if done.returncode != 0:
        raise Failure(done.stderr.decode(errors="replace"))
    found = {"agent": [], "floor": []}
    for one in json.loads(done.stdout)["benchmarks"]:
        if one.get("error_occurred"):
            raise Failure(f"{one['name']}: {one['error_message']}")
        if one["run_type"] == "iteration":
            found[one["name"].split("/")[1]].append(one)
    if any(len(ones) != setting.scale.repetitions for ones in found.values()):
        raise Failure(f"{topic} was not measured as often as it should have been")
    return found


def reading(setting):
    say("reading")
    found = _repetitions(setting, "reading", setting.transcripts)
    rates = [[one["bytes_per_second"] / 1e6 for one in found[who]] for who in ("agent", "floor")]
    return [Row("reading", "from file to events", "MB/s", *rates, Goal(0.7, at_least=True))]


def skip(setting):
    say("skip")
    found = _repetitions(setting, "skip", setting.transcripts)
    rates = [[one["items_per_second"] for one in found[who]] for who in ("agent", "floor")]
    return [Row("skip", "lines whose events are all seen", "lines/s", *rates, Goal(0.9, at_least=True))]


def cursor_save(setting):
    say("cursor save")
    found = _repetitions(setting, "cursor-save", setting.folder, setting.scale.saved_transcripts)
    size = found["floor"][0]["bytes"] / 1e6
    rows = []
    for what, key, goal in (("elapsed", "real_time", Goal(1.3)), ("CPU", "cpu_time", None)):
        times = [[one[key] / 1e6 for one in found[who]] for who in ("agent", "floor")]
        rows.append(Row("cursor save", f"{size:.1f} MB, {what}", "ms", *times, goal))
    return rows
