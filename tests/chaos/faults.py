"""How a service fails: the faults, and for every life of an agent which of them it meets and how it ends."""

import dataclasses

REFUSED = ("400 Bad Request", "401 Unauthorized", "404 Not Found", "409 Conflict", "429 Too Many Requests")
UNAVAILABLE = ("500 Internal Server Error", "502 Bad Gateway", "503 Service Unavailable",
               "301 Moved Permanently", "304 Not Modified", "307 Temporary Redirect")
INTERIM = ("100 Continue", "103 Early Hints")
# Of no version, of no number, of a body that is not what its head says, and no HTTP at all.
GARBAGE = (b"\x16\x03\x01\x00\x05hello\r\n\r\n", b"HTTP/1.1 abc OK\r\n\r\n", b"SSH-2.0-none\r\n",
           b"\r\n\r\n", b"\x00" * 200,
           b"HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\n{}",
           b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n{}\r\n")
HALVES = (b"HTTP/1.1 200 OK\r\nContent-Length: 900\r\n\r\n{\"run_id\": \"half\", \"recor",
          b"HTTP/1.1 200 OK\r\nContent-Le",
          b"HTTP/1.1 200 OK\r\nContent-Length: 40\r\n\r\n", b"HTTP/1.1 2",
          b"HTTP/1.1 200 OK\r\nContent-Length: 20\r\n",
          b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n{\"a\":")
# Stored, and any of these says so.
ODD_SUCCESSES = (b"HTTP/1.1 204 No Content\r\n\r\n", b"HTTP/1.1 201 Created\r\nContent-Length: 0\r\n\r\n",
                 b"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nall right",
                 b"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n"
                 b"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n[]")

# Name, weight. Those of STORED hand the request to the store, the others never do.
KINDS = {"refused": 6, "unavailable": 3, "drop_before_reading": 2, "drop_after_reading": 2, "half": 3,
         "garbage": 3,
         "interim": 2, "never": 2, "down": 3, "slow": 4, "odd_success": 3, "stored_but_lost": 5}
STORED = ("slow", "odd_success", "stored_but_lost")
MOMENTS = ("read", "stored", "half answered", "answered")


@dataclasses.dataclass(frozen=True)
class Fault:
    kind: str
    bytes: bytes = b""
    seconds: float = 0
    closes: bool = True


@dataclasses.dataclass
class Plan:
    """What one life meets. Requests are counted from 0."""
    faults: dict = dataclasses.field(default_factory=dict)  # by request
    kind: str = "none"  # of how it ends: "start", "request", "first" (of a session), "save", "time"
    after: float = 0  # seconds
    request: int = 0
    moment: str = ""
    delay: float = 0  # seconds behind an answer, in which the agent writes down that it came
    pause: float = 0  # seconds before the next life

    def __str__(self):
        where = f"{self.kind} {self.after:.3f} s"
        if self.kind == "request":
            where = f"request {self.request} {self.moment}"
        first = sorted(self.faults.items())[:6]
        return where + "".join(f", {fault.kind} at {place}" for place, fault in first)


def answer(status, body=b'{"error": "no"}'):
    length = b"" if status[:3] in ("204", "304") else b"Content-Length: %d\r\n" % len(body)
    head = b"HTTP/1.1 %s\r\nLocation: /elsewhere\r\n%s\r\n" % (status.encode(), length)
    return head + body if length else head


def fault(rng, kind=None):
    kind = kind or rng.choices(tuple(KINDS), tuple(KINDS.values()))[0]
    closes = rng.random() < 0.5
    if kind in ("refused", "unavailable"):
        return Fault(kind, answer(rng.choice(REFUSED if kind == "refused" else UNAVAILABLE)), closes=closes)
    if kind == "interim":
        return Fault(kind, answer(rng.choice(INTERIM), b""))
    if kind == "stored_but_lost":
        return Fault(kind, rng.choice((b"", b"", HALVES[0], HALVES[1], answer(UNAVAILABLE[0]))))
    choices = {"half": HALVES, "garbage": GARBAGE, "odd_success": ODD_SUCCESSES}.get(kind)
    if choices:
        return Fault(kind, rng.choice(choices), closes=closes or kind != "odd_success")
    return Fault(kind, seconds={"down": rng.uniform(0.1, 1.5), "slow": rng.uniform(0.01, 0.3),
                                "never": rng.uniform(0.02, 0.8)}.get(kind, 0), closes=closes)


def plan_of_life(rng):
    plan = Plan(pause=rng.choice((0, 0, 0, rng.uniform(0, 0.25))))
    plan.kind = rng.choices(("start", "request", "first", "save", "time"), (12, 42, 12, 16, 18))[0]
    plan.after = {"start": rng.uniform(0, 0.04), "request": rng.uniform(0.4, 1.5),
                  "first": rng.uniform(0.4, 1), "save": rng.uniform(0, 0.4),
                  "time": rng.uniform(0.05, 1.5)}[plan.kind]
    plan.request = min(int(rng.expovariate(1 / 12)), 150)
    plan.moment = rng.choice(MOMENTS)
    plan.delay = rng.choice((0, rng.expovariate(1 / 0.0002)))
    if rng.random() < 0.6:
        place = min(int(rng.expovariate(1 / 3)), 60)
        one_kind = rng.choice((None, "refused"))
        for number in range(rng.choice((1, 1, 2, 3))):
            plan.faults[place + number] = fault(rng, one_kind)
        if rng.random() < 0.3:  # long enough to try again, and again
            plan.after += rng.uniform(1, 3.5)
            plan.request += place
    for number in range(150):  # what costs no pause may come at any time
        if number not in plan.faults and rng.random() < 0.03:
            plan.faults[number] = fault(rng, rng.choice(("slow", "odd_success", "refused")))
    return plan
