"""What all topics are given: programs, a folder for their files, sizes, cores."""

import contextlib
import dataclasses
import os
import pathlib
import sys


@dataclasses.dataclass(frozen=True)
class Scale:
    runs: int  # of agent and floor each, in turn
    idle_sizes: tuple  # (session records, transcripts)
    idle_seconds: float  # a run without a pause; at least `idle_passes` passes too
    idle_passes: int
    pause: float  # the agent's default; seconds
    paused_passes: int
    paused_runs: int
    made_bytes: int  # of transcripts, where no folder is named
    corpus_bytes: int  # to which they are repeated
    appends: int
    saved_transcripts: int
    repetitions: int  # of an in-process benchmark
    repetition_seconds: float
    short_lines_bytes: int
    long_line_bytes: int
    starts: int
    rest_seconds: float
    shipper_files: int
    shipper_rest_seconds: float


FULL = Scale(runs=5, idle_sizes=((100, 500), (1000, 5000), (5000, 50000)), idle_seconds=1.5,
             idle_passes=10, pause=2, paused_passes=5, paused_runs=7, made_bytes=11_000_000,
             corpus_bytes=100_000_000, appends=300, saved_transcripts=300, repetitions=15,
             repetition_seconds=0.3, short_lines_bytes=100_000_000, long_line_bytes=64_000_000, starts=25,
             rest_seconds=10, shipper_files=1000, shipper_rest_seconds=20)
SMOKE = Scale(runs=2, idle_sizes=((10, 50), (40, 200), (100, 500)), idle_seconds=0.1, idle_passes=5,
              pause=0.2, paused_passes=2, paused_runs=1, made_bytes=500_000, corpus_bytes=1_000_000,
              appends=10, saved_transcripts=6, repetitions=2, repetition_seconds=0.02,
             short_lines_bytes=4_000_000, long_line_bytes=2_000_000, starts=3, rest_seconds=0.5,
             shipper_files=20, shipper_rest_seconds=2)


@dataclasses.dataclass(frozen=True)
class Setting:
    agent: pathlib.Path  # PelmarCoworkWatcher-rooted
    product: pathlib.Path  # PelmarCoworkWatcher
    tools: pathlib.Path  # the folder of floors and sink
    folder: pathlib.Path  # thrown away at the end
    transcripts: pathlib.Path
    scale: Scale
    cores: tuple  # that may be measured on: the first is the one of "one core"

    def alternating(self, runs=None):
        """"agent" and "floor" in turn, each `runs` times; who begins changes."""
        for run in range(runs or self.scale.runs):
            yield from ("agent", "floor") if run % 2 == 0 else ("floor", "agent")

    def one_core(self):
        return {self.cores[0]}

    @contextlib.contextmanager
    def off_the_one_core(self, cores):
        """Where `cores` are given, this program's own work stays off them, if there are others."""
        others = set(self.cores) - (cores or set())
        if others:
            os.sched_setaffinity(0, others)
        try:
            yield
        finally:
            os.sched_setaffinity(0, set(self.cores))


def say(text):
    print(text, file=sys.stderr, flush=True)
