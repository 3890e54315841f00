"""Peak memory of long remainders; what the agent takes at rest, and how soon it begins."""

import contextlib
import time

import homes
from figures import Goal, Row
from processes import Failure, watched
from setting import say
from sink import sink

MIB = 1 << 20


def _peak(setting, service, name, text, requests):
    """The agent's peak resident memory in bytes, after a pass over one transcript of `text`."""
    home = homes.Home(setting.folder / name, service.url)
    transcript = home.add_session(text)
    before = service.stats()
    peaks = []
    for _ in range(min(3, setting.scale.runs)):
        home.forget()
        with watched([setting.agent, "--from-start", "--verbose", "--poll", "0"],
                     home.environment()) as process:
            process.wait_for(2)
            peaks.append(process.field("status", "VmHWM") * 1024)
    came = service.since(before)[0]
    if came < requests * len(peaks):
        raise Failure(f"{came} requests came for {name}")
    transcript.unlink()
    return peaks


def remainders(setting):
    say("long remainders")
    # Lines that yield no events: the memory is that of reading, and a pass is short.
    short = b'{"type":"user","message":{"content":[{"type":"text","text":"%s"}]}}\n' % (b"tomato " * 30)
    short_text = short * (setting.scale.short_lines_bytes // len(short))
    begin, end = b'{"type":"user","uuid":"1","message":{"content":"', b'"}}\n'
    long_text = begin + b"x" * (setting.scale.long_line_bytes - len(begin) - len(end)) + end
    with sink(setting.tools / "bench_sink") as service:
        short_peaks = _peak(setting, service, "short-lines", short_text, 0)
        long_peaks = _peak(setting, service, "long-line", long_text, 1)
    topic = "peak memory"
    return [Row(topic, "short lines, less 16 MiB", "MB", [(peak - 16 * MIB) / 1e6 for peak in short_peaks],
                [len(short_text) / 1e6] * len(short_peaks), Goal(1.2),
                note="the floor of both is the size of what is to be read"),
            Row(topic, "one long line", "MB", [peak / 1e6 for peak in long_peaks],
                [len(long_text) / 1e6] * len(long_peaks))]


def _starts(setting, home):
    """Milliseconds from the start of the process to its first pass (to `main` of the floor)."""
    commands = {"agent": [setting.agent, "--verbose"], "floor": [setting.tools / "floor_same_libraries"]}
    times = {"agent": [], "floor": []}
    for who in setting.alternating(setting.scale.starts):
        with watched(commands[who], home.environment()) as process:
            times[who].append(1000 * (process.wait_for(1) - process.started))
    return times


def _at_rest(setting, service, seconds):
    """Of three agents and three floors that rest side by side, so that no page of a library counts as
    private because nobody else happens to run: what each takes, in kB, and its threads and CPU."""
    found = {"agent": [], "floor": []}
    places = [homes.idle_home(setting.folder / f"rest-{i}", service.url, *setting.scale.idle_sizes[0])
              for i in range(3)]
    with contextlib.ExitStack() as stack:
        running = []
        for home in places:
            for who, command in (("agent", [setting.agent, "--verbose"]),
                                 ("floor", [setting.tools / "floor_same_libraries"])):
                running.append((who, home, stack.enter_context(watched(command, home.environment()))))
        for *_, process in running:
            process.wait_for(1)
        cpu = [process.cpu() for *_, process in running]
        until = time.monotonic() + seconds
        while (left := until - time.monotonic()) > 0:
            time.sleep(min(5, left))
            for *_, process in running:
                process.take()  # lest a full pipe stops it
        for (who, home, process), before in zip(running, cpu):
            state = home.cursor.stat().st_size / 1024 if who == "agent" else 0
            kept = {kind: process.field("smaps_rollup", f"{kind}_Clean")
                    + process.field("smaps_rollup", f"{kind}_Dirty") for kind in ("Private", "Shared")}
            found[who].append({"resident": process.field("smaps_rollup", "Rss"),
                               "private": kept["Private"] - state, "shared": kept["Shared"],
                               "threads": process.field("status", "Threads"),
                               "CPU a minute": 60000 * (process.cpu() - before) / seconds})
    return found


def footprint(setting, rest_seconds):
    say(f"footprint: at rest for {rest_seconds:g} s")
    topic = "footprint"
    with sink(setting.tools / "bench_sink") as service:
        found = _at_rest(setting, service, rest_seconds)
        home = homes.idle_home(setting.folder / "start", service.url, 10, 50)
        starts = _starts(setting, home)
    records, transcripts = setting.scale.idle_sizes[0]
    rows = []
    for key, unit, goal in (("resident", "kB", None), ("private", "kB, less state", Goal(1.5)),
                            ("shared", "kB", None), ("threads", "", Goal(1, of_agent=True)),
                            ("CPU a minute", "ms", None)):
        rows.append(Row(topic, key, unit, *([one[key] for one in found[who]] for who in ("agent", "floor")),
                        goal))
    rows[0].note = f"after {rest_seconds:g} s with {records:,} records and {transcripts:,} transcripts"
    rows.append(Row(topic, "size of the program", "kB", [setting.product.stat().st_size / 1024]))
    rows.append(Row(topic, "start to first pass", "ms", starts["agent"], starts["floor"],
                    Goal(20, of_agent=True)))
    return rows
