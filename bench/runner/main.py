"""Measures the agent beside floors that do the same work with the least that it takes."""

import argparse
import dataclasses
import os
import pathlib
import platform
import signal
import sys
import tempfile

import catch_up
import figures
import idle
import in_process
import latency
import memory
import plot
import syslog_ng
import transcripts
from processes import Failure
from setting import FULL, SMOKE, Setting, say

BUILD = pathlib.Path(__file__).resolve().parents[2] / "build" / "release"
TOOLS = BUILD / "bench"
TOPICS = ("idle", "catch-up", "reading", "skip", "remainders", "cursor-save", "latency", "footprint")


def arguments():
    parser = argparse.ArgumentParser(
        prog="./bench/run", description="Measures the agent beside floors that do the same work with the "
        "least that it takes, in turn on this machine, and prints medians with their spread "
        "(least..greatest). What counts are ratios and counts, and only from a machine that does nothing "
        "else. Nothing leaves the machine and all files lie in a folder that is thrown away.")
    parser.add_argument("folder", nargs="?", type=pathlib.Path, metavar="FOLDER",
                        help="transcripts (*.jsonl) to report; made ones of a fixed mix otherwise")
    parser.add_argument("--smoke", action="store_true", help="see that everything runs: small and short")
    parser.add_argument("--only", action="append", choices=TOPICS, help="this topic (may be repeated)")
    parser.add_argument("--runs", type=int, metavar="N", help="of agent and floor each, in turn")
    parser.add_argument("--idle-minutes", type=float, help="how long the footprint is left to settle")
    parser.add_argument("--with-syslog-ng", action="store_true",
                        help="also syslog-ng as a shipper of the same transcripts")
    parser.add_argument("--json", type=pathlib.Path, metavar="FILE", help="all values of all runs")
    parser.add_argument("--plot", type=pathlib.Path, metavar="FILE", default=TOOLS / "idle-cost.svg",
                        help="the cost of an idle pass against the number of files (%(default)s)")
    chosen = parser.parse_args()
    if chosen.folder is not None and not chosen.folder.is_dir():
        parser.error(f"{chosen.folder} is not a folder")
    return chosen


def machine():
    model = "unknown processor"
    for line in pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8").splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
    return (f"{platform.system()} {platform.release()}, {platform.machine()}, {model}, "
            f"{len(os.sched_getaffinity(0))} cores, load {os.getloadavg()[0]:.2f} at the start")


def measure(setting, chosen):
    rest = setting.scale.rest_seconds if chosen.idle_minutes is None else 60 * chosen.idle_minutes
    work = {"idle": idle.measure, "catch-up": catch_up.measure, "reading": in_process.reading,
            "skip": in_process.skip, "remainders": memory.remainders,
            "cursor-save": in_process.cursor_save, "latency": latency.measure,
            "footprint": lambda setting: memory.footprint(setting, rest)}
    rows = []
    for topic in TOPICS:
        if topic in (chosen.only or TOPICS):
            rows += work[topic](setting)
    if chosen.with_syslog_ng:
        rows += syslog_ng.measure(setting)
    return rows


def main():
    chosen = arguments()
    for number in (signal.SIGTERM, signal.SIGHUP):  # end what was started, throw the folder away
        signal.signal(number, lambda *_: sys.exit(1))
    about = machine()
    with tempfile.TemporaryDirectory(prefix="pelmar-bench-") as name:
        folder = pathlib.Path(name)
        scale = SMOKE if chosen.smoke else FULL
        if chosen.runs:
            scale = dataclasses.replace(scale, runs=chosen.runs, paused_runs=chosen.runs)
        made = folder / "transcripts"
        if chosen.folder is None:
            transcripts.make(made, scale.made_bytes)
        setting = Setting(agent=BUILD / "PelmarCoworkWatcher-rooted", product=BUILD / "PelmarCoworkWatcher",
                          tools=TOOLS, folder=folder, transcripts=chosen.folder or made,
                          scale=scale, cores=tuple(sorted(os.sched_getaffinity(0))))
        rows = measure(setting, chosen)
    print(about)
    print(figures.table(rows))
    series = idle.plot_series(rows, scale.idle_sizes)
    if all(points for _, points in series):
        chosen.plot.write_text(plot.svg("CPU time of an idle pass", "session records and transcripts",
                                        "milliseconds", series), encoding="utf-8")
        say(f"plot: {chosen.plot}")
    if chosen.json:
        chosen.json.write_text(figures.as_json(rows, about), encoding="utf-8")


if __name__ == "__main__":
    try:
        main()
    except Failure as failure:
        sys.exit(f"bench/run: {failure}")
