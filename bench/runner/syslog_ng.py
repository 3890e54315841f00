"""A general log shipper on the same transcripts and the same sink: syslog-ng, one record a request,
losing nothing."""

import json
import os
import shutil
import subprocess
import time

import homes
import transcripts
from figures import Row
from processes import Failure, Watched, minimal_environment, watched
from setting import say
from sink import sink

RUN_PATIENCE = 600  # seconds for one run
POLL = 2  # seconds, of both
CONFIGURATION = """@version: {version}
options {{ stats-freq(0); }};
log {{
  source {{
    wildcard-file(base-dir("{folder}") filename-pattern("*.jsonl") recursive(yes)
      follow-freq({poll}) max-files({files}) log-iw-size(2000000) log-msg-size(4194304)
      flags(no-parse));
  }};
  parser {{ json-parser(prefix(".line.")); }};
  destination {{
    http(url("{url}/record") method("POST") headers("Content-Type: application/json")
      body("${{MESSAGE}}") workers(1) batch-lines(1) log-fifo-size(200000));
  }};
  flags(flow-control);
}};
"""


def _program():
    return shutil.which("syslog-ng", path=os.environ.get("PATH", "") + ":/usr/sbin")


def _version():
    words = subprocess.run([_program(), "--version"], capture_output=True, text=True, check=True).stdout
    for line in words.splitlines():
        if line.startswith("Config version:"):
            return line.split(":")[1].strip()
    raise Failure("syslog-ng does not say which version its configuration has")


def _start(folder, home, service, files, cores):
    """syslog-ng on the transcripts of `home`, with all that it keeps in `folder`, which is new."""
    folder.mkdir()
    configuration = folder / "syslog-ng.conf"
    configuration.write_text(CONFIGURATION.format(
        version=_version(), folder=home.projects, poll=POLL, files=max(100, files), url=service.url))
    return Watched([_program(), "--foreground", "--no-caps", "--stderr", "--cfgfile", configuration,
                    "--persist-file", folder / "persist", "--pidfile", folder / "pid",
                    "--control", folder / "control"], minimal_environment(), cores)


def _wait_for_requests(service, process, count):
    """Returns once `count` requests more have come than when it was called."""
    before = service.stats()
    deadline = time.monotonic() + RUN_PATIENCE
    while service.since(before)[0] < count:
        if process.process.poll() is not None:
            process.take()
            raise Failure(f"syslog-ng ended: {process.last_words()}")
        if time.monotonic() > deadline:
            raise Failure(f"of {count} records syslog-ng sent {service.since(before)[0]}")
        process.take()
        time.sleep(0.02)
    if service.since(before)[0] > count:
        raise Failure("syslog-ng sent a record twice")


def _records(text):
    """The lines that a JSON parser takes for objects."""
    count = 0
    for line in text.split(b"\n"):
        try:
            count += isinstance(json.loads(line), dict)
        except ValueError:
            continue
    return count


def _shipper_run(setting, home, service, records, number):
    started = time.monotonic()
    folder = setting.folder / f"syslog-ng-{number}"
    process = _start(folder, home, service, home.transcripts, setting.one_core())
    try:
        _wait_for_requests(service, process, records)
        return (records / (time.monotonic() - started), 1e6 * process.cpu() / records,
                process.field("status", "VmHWM") / 1024)
    finally:
        process.stop()
        shutil.rmtree(folder)


def _agent_run(setting, home, records):
    home.forget()
    with watched([setting.agent, "--from-start", "--verbose", "--poll", str(POLL)], home.environment(),
                 setting.one_core()) as agent:
        # The next pass begins a pause after the end of the one that reported everything.
        seconds = agent.wait_for(2, RUN_PATIENCE) - POLL - agent.started
        return records / seconds, 1e6 * agent.cpu() / records, agent.field("status", "VmHWM") / 1024


def _catch_up(setting):
    home = homes.Home(setting.folder / "shipped", "")
    records = 0
    for text in transcripts.repeated(setting.transcripts, setting.scale.corpus_bytes):
        home.add_session(text)
        records += _records(text)
    found = {"agent": [], "floor": []}
    with setting.off_the_one_core(setting.one_core()), \
            sink(setting.tools / "bench_sink", cores=setting.one_core()) as service:
        home.profile(service.url)
        for number, who in enumerate(setting.alternating()):
            found[who].append(_agent_run(setting, home, records) if who == "agent"
                              else _shipper_run(setting, home, service, records, number))
    shutil.rmtree(home.root)
    return records, found


def _idle(setting):
    """CPU milliseconds a second of both with nothing new."""
    files, seconds = setting.scale.shipper_files, setting.scale.shipper_rest_seconds
    shares = {"agent": [], "floor": []}
    with sink(setting.tools / "bench_sink") as service:
        home = homes.idle_home(setting.folder / "shipped-idle", service.url, files, files)
        for number, who in enumerate(setting.alternating(min(3, setting.scale.runs))):
            if who == "agent":
                process = Watched([setting.agent, "--verbose", "--poll", str(POLL)], home.environment())
            else:
                process = _start(setting.folder / f"idle-{number}", home, service, files, None)
            try:
                if who == "agent":
                    process.wait_for(2)
                else:
                    _wait_for_requests(service, process, files)
                cpu = process.cpu()
                time.sleep(seconds)
                shares[who].append(1000 * (process.cpu() - cpu) / seconds)
            finally:
                process.stop()
    return shares


def measure(setting):
    if not _program():
        say("syslog-ng: skipped, it is not installed (packages syslog-ng-core and syslog-ng-mod-http)")
        return []
    say("syslog-ng")
    topic = "beside syslog-ng, in the floor's column"
    records, found = _catch_up(setting)
    rows = []
    for index, (what, unit) in enumerate((("catch-up, one core", "records/s"),
                                          ("catch-up, CPU a record", "us"), ("peak memory", "MiB"))):
        rows.append(Row(topic, what, unit, *([run[index] for run in found[who]] for who in found)))
    rows[0].note = f"{records:,} records; the agent makes up to several requests of one, syslog-ng one"
    shares = _idle(setting)
    rows.append(Row(topic, f"idle, {setting.scale.shipper_files:,} files every {POLL} s", "ms CPU/s",
                    shares["agent"], shares["floor"]))
    return rows
