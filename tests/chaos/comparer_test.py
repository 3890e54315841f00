"""The comparer must be able to fail: what it says of small runs, as a table."""

import unittest

from comparer import Arrival, Kill, compare
from reading import Written


def event(name):
    return (name, "user_message", "")


A, B, C = (Written(event(name), "one.jsonl", line, line * 10) for line, name in enumerate("ABC", 1))
OTHER = Written(event("O"), "other.jsonl", 1, 10)
MAYBE = Written(event("M"), "cut.jsonl", 1, 10, is_needed=False)
CALL = Written(("call", "assistant", ""), "one.jsonl", 4, 40, call=(1, 2, "model", "", ""))
RESULT = Written(("result", "result:success", ""), "one.jsonl", 5, 50, status="success", turns=7)
LATER_RESULT = Written(("later", "result:success", ""), "one.jsonl", 6, 60, status="success", turns=8)


def step(one, life=1, **others):
    return Arrival("home", life, "step", one.event, **others)


def call(life=1, **others):
    return Arrival("home", life, "call", CALL.event, **others)


def completion(one=RESULT, life=1, **others):
    return Arrival("home", life, "completion", one.event, **others)


def failed(arrival):
    arrival.is_stored, arrival.outcome = False, "failed"
    return arrival


KILL_1, KILL_2 = Kill("home", 1), Kill("home", 2)
PAST_A = Kill("home", 1, offsets={"one.jsonl": 10})
BEFORE_A = Kill("home", 1, offsets={"one.jsonl": 9})

# What was written, what arrived, the kills, whether there is a journal;
# then how many were lost, doubled, explained by lost answers, given up, and broken promises.
TABLE = {
    "everything arrived": ([A, B], [step(A), step(B)], [], True, (0, 0, 0, 0, 0)),
    "an event is missing": ([A, B], [step(A)], [], True, (1, 0, 0, 0, 0)),
    "an event that failed is missing": ([A], [failed(step(A))], [], True, (1, 0, 0, 0, 0)),
    "an event that need not arrive is missing": ([A, MAYBE], [step(A)], [], True, (0, 0, 0, 0, 0)),
    "an event that nobody wrote": ([A], [step(A), step(B)], [], True, (0, 0, 0, 0, 1)),
    "out of order": ([A, B, C], [step(A), step(C), step(B)], [], True, (0, 0, 0, 0, 1)),
    "transcripts have no order among them": ([A, B, OTHER], [step(OTHER), step(A), step(B)], [], True,
                                             (0, 0, 0, 0, 0)),
    "in flight at a kill": ([A, B], [step(A), step(B), step(B, 2)], [KILL_1], True, (0, 1, 0, 0, 0)),
    "in flight at two kills": ([A], [step(A), step(A, 2), step(A, 3)], [KILL_1, KILL_2], True,
                               (0, 2, 0, 0, 0)),
    "a step and its call in flight are one event": (
        [CALL], [step(CALL), call(), step(CALL, 2), call(2)], [KILL_1], True, (0, 1, 0, 0, 0)),
    "no longer in flight": ([A, B], [step(A), step(B), step(A, 2)], [KILL_1], True, (0, 1, 0, 0, 1)),
    "no longer in flight, the next one failed": (
        [A, B], [step(A), failed(step(B)), step(A, 2), step(B, 2)], [KILL_1], True, (0, 1, 0, 0, 1)),
    "two events after one kill": ([A, B], [step(A), step(B), step(A, 2), step(B, 2)], [KILL_1], True,
                                  (0, 2, 0, 0, 2)),
    "twice in one life": ([A], [step(A), step(A)], [KILL_1], True, (0, 1, 0, 0, 1)),
    "twice without a kill": ([A], [step(A), step(A, 2)], [], True, (0, 1, 0, 0, 1)),
    "twice, and another life was killed": ([A], [step(A), step(A, 2)], [KILL_2], True, (0, 1, 0, 0, 1)),
    "twice because the answer was lost": ([A], [step(A, outcome="lost"), step(A)], [], True, (0, 0, 1, 0, 0)),
    "three times, one answer lost": ([A], [step(A, outcome="lost"), step(A), step(A)], [], True,
                                     (0, 1, 1, 0, 1)),
    "the cursor was past it": ([A], [step(A), step(A, 2)], [PAST_A], True, (0, 1, 0, 0, 1)),
    "the cursor was a byte before it": ([A], [step(A), step(A, 2)], [BEFORE_A], True, (0, 1, 0, 0, 0)),
    "since the cursor was saved": ([A, B], [step(A), step(B), step(A, 2), step(B, 2)], [KILL_1], False,
                                   (0, 2, 0, 0, 0)),
    "before the cursor was saved for another": (
        [A, OTHER], [step(A), step(OTHER), step(A, 2)], [KILL_1], False, (0, 1, 0, 0, 1)),
    "a call arrived": ([CALL], [step(CALL), call()], [], True, (0, 0, 0, 0, 0)),
    "a call is missing": ([CALL], [step(CALL)], [], True, (1, 0, 0, 0, 0)),
    "a call was refused": ([CALL], [step(CALL), call(is_stored=False, outcome="refused")], [], True,
                           (0, 0, 0, 1, 0)),
    "a call failed three times": ([CALL], [step(CALL), *(failed(call()) for _ in range(3))], [], True,
                                  (0, 0, 0, 1, 0)),
    "a call failed twice": ([CALL], [step(CALL), *(failed(call()) for _ in range(2))], [], True,
                            (1, 0, 0, 0, 0)),
    "a call met a closed port": ([CALL], [step(CALL), call(is_stored=False, outcome="unseen")], [], True,
                                 (0, 0, 0, 1, 0)),
    "a call twice in one life": ([CALL], [step(CALL), call(), call()], [], True, (0, 1, 0, 0, 1)),
    "a call of an event without one": ([A], [step(A), Arrival("home", 1, "call", A.event)], [], True,
                                       (0, 0, 0, 0, 1)),
    "a run completed": ([RESULT], [step(RESULT, run="session"), completion()], [], True, (0, 0, 0, 0, 0)),
    "a run not completed": ([RESULT], [step(RESULT, run="session")], [], True, (1, 0, 0, 0, 0)),
    "a daily run left open": ([RESULT], [step(RESULT)], [], True, (0, 0, 0, 0, 0)),
    "a daily run completed": ([RESULT], [step(RESULT), completion()], [], True, (0, 0, 0, 0, 1)),
    "a run completed once for two results": (
        [RESULT, LATER_RESULT],
        [step(RESULT, run="session"), completion(), step(LATER_RESULT, run="session")], [], True,
        (0, 0, 0, 0, 0)),
    "a run completed for each of two results": (
        [RESULT, LATER_RESULT], [step(RESULT, run="session"), completion(), step(LATER_RESULT, run="session"),
                                 completion(LATER_RESULT)], [], True, (0, 0, 0, 0, 1)),
}


class Comparer(unittest.TestCase):
    def test_says_what_the_table_says(self):
        for name, (written, arrivals, kills, has_journal, expected) in TABLE.items():
            with self.subTest(name):
                verdict = compare(written, arrivals, kills, has_journal)
                counts = (len(verdict.lost), verdict.events_doubled, verdict.lost_answers, verdict.given_up,
                          len(verdict.broken))
                self.assertEqual(counts, expected, verdict)

    def test_names_the_event_the_transcript_the_line_and_the_kill(self):
        verdict = compare([A, B], [step(A), step(B), step(A, 2)], [Kill("home", 1, "request 2 stored")])
        self.assertEqual(verdict.broken, [
            "the step of user_message of A (one.jsonl:1) came in lives 1 and 2 of home, after kill 1 "
            "(request 2 stored): it was not in flight"])


if __name__ == "__main__":
    unittest.main()
