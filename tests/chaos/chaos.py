"""Kills agents while their transcripts grow and their service fails; compares what arrived with what was
written."""

import argparse
import asyncio
import collections
import pathlib
import secrets
import shutil
import signal
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
REPOSITORY = HERE.parents[1]
sys.path.insert(0, str(REPOSITORY / "scripts"))

from round import Round  # noqa: E402

KILLS_A_ROUND = 200  # then a new set of homes, so that a long run stays as quick as a short one
MOST_SHOWN = 20


def arguments():
    parser = argparse.ArgumentParser(
        prog="tests/chaos/run",
        description="Kills agents at random moments while sessions write and the service fails, and compares "
        "every event written with what the service received. The last line is "
        '"events written W, lost L, doubled D, kills N"; the exit status is 1 when a promise was broken: '
        "nothing is lost, and a kill brings back at most the one event that was in flight.")
    parser.add_argument("--kills", type=int, default=200, metavar="N")
    parser.add_argument("--seed", default=None, metavar="S", help="of all choices; random without one")
    parser.add_argument("--round", type=int, metavar="R", help=f"only this round of {KILLS_A_ROUND} kills")
    parser.add_argument("--without-journal", action="store_true",
                        help="keep the agent from writing its journal: a kill then brings back what was "
                        "recorded since the cursor was saved, and only that")
    parser.add_argument("--build", type=pathlib.Path, default=REPOSITORY / "build" / "release", metavar="DIR")
    parser.add_argument("--keep", action="store_true", help="keep the folder even if all was well")
    chosen = parser.parse_args()
    if chosen.kills < 1:
        parser.error("--kills needs at least 1")
    chosen.seed = chosen.seed or secrets.token_hex(4)
    return chosen


def rounds(chosen):
    """(number, kills)"""
    left = chosen.kills
    for number in range(1, chosen.kills // KILLS_A_ROUND + 2):
        kills = min(left, KILLS_A_ROUND)
        left -= kills
        if kills and chosen.round in (None, number):
            yield number, kills


def progress_of(number, before):
    shown = {"time": time.monotonic()}

    def progress(done):
        now = time.monotonic()
        if now - shown["time"] >= 10:
            shown["time"] = now
            print(f"  round {number}: {before + done} kills", flush=True)

    return progress


def show_failures(chosen, number, verdict, folder):
    for title, sentences in (("lost", verdict.lost), ("against the promise", verdict.broken)):
        for sentence in sentences[:MOST_SHOWN]:
            print(f"{title}: {sentence}")
        if len(sentences) > MOST_SHOWN:
            print(f"{title}: and {len(sentences) - MOST_SHOWN} more")
    weaker = " --without-journal" if chosen.without_journal else ""
    print(f"Kept: {folder}\nAgain: tests/chaos/run --kills {chosen.kills} --seed {chosen.seed}{weaker} "
          f"--round {number}", flush=True)


def listed(counts):
    often_first = sorted(counts.items(), key=lambda one: (-one[1], one[0]))
    return ", ".join(f"{name} {count}" for name, count in often_first)


def main():
    chosen = arguments()
    for ending in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(ending, lambda *_: sys.exit(1))
    print(f"seed {chosen.seed}", flush=True)
    root = pathlib.Path(tempfile.mkdtemp(prefix="pelmar-chaos-"))
    root.chmod(0o711)
    met, moments = collections.Counter(), collections.Counter()
    total = {"written": 0, "lost": 0, "doubled": 0, "kills": 0, "lost answers": 0, "given up": 0}
    is_well = True
    begin = time.monotonic()
    for number, kills in rounds(chosen):
        folder = root / f"round-{number}"
        one = Round(folder, chosen.build.resolve(), f"{chosen.seed}/{number}", kills,
                    not chosen.without_journal, progress_of(number, total["kills"]))
        verdict = asyncio.run(one.run())
        for key, value in (("written", verdict.events), ("lost", len(verdict.lost)),
                           ("doubled", verdict.events_doubled), ("kills", len(one.kills.done)),
                           ("lost answers", verdict.lost_answers), ("given up", verdict.given_up)):
            total[key] += value
        met += one.faults_met()
        moments += one.moments()
        if verdict.lost or verdict.broken:
            is_well = False
            show_failures(chosen, number, verdict, folder)
        elif not chosen.keep:
            shutil.rmtree(folder)
    if is_well and not chosen.keep:
        shutil.rmtree(root)
    print(f"Requests by fault: {listed(met)}.\nKills: {listed(moments)}.")
    print(f"In {time.monotonic() - begin:.0f} s. "
          f"Sent again because an answer was lost: {total['lost answers']}. "
          f"LLM calls and completions given up after failures, as documented: {total['given up']}.")
    print(f"events written {total['written']}, lost {total['lost']}, doubled {total['doubled']}, "
          f"kills {total['kills']}")
    return 0 if is_well else 1


if __name__ == "__main__":
    sys.exit(main())
