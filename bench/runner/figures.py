"""What was measured, as rows: medians with their spread, the agent beside its floor."""

import dataclasses
import json
import statistics


@dataclasses.dataclass
class Goal:
    """A bound of the ratio, or, where `of_agent`, of the agent's own median."""
    bound: float
    at_least: bool = False
    of_agent: bool = False

    def __str__(self):
        return f"{'>=' if self.at_least else '<='} {self.bound:g}{'' if self.of_agent else ' x'}"

    def is_met_by(self, value):
        return value >= self.bound if self.at_least else value <= self.bound


@dataclasses.dataclass
class Row:
    """One quantity. `agent` and `floor` hold a value a run, in the order of the runs, which
    alternated; `floor` is empty where there is none."""
    topic: str
    what: str
    unit: str
    agent: list
    floor: list = dataclasses.field(default_factory=list)
    goal: Goal | None = None
    note: str = ""

    def ratios(self):
        return [ours / theirs for ours, theirs in zip(self.agent, self.floor) if theirs]

    def ratio(self):
        """Of the medians; none without a floor."""
        if not self.floor or not statistics.median(self.floor):
            return None
        return statistics.median(self.agent) / statistics.median(self.floor)

    def is_met(self):
        if self.goal is None:
            return None
        value = statistics.median(self.agent) if self.goal.of_agent else self.ratio()
        return None if value is None else self.goal.is_met_by(value)

    def as_json(self):
        return {"topic": self.topic, "what": self.what, "unit": self.unit, "agent": self.agent,
                "floor": self.floor, "ratio": self.ratio(), "goal": self.goal and str(self.goal),
                "met": self.is_met(), "note": self.note}


def number(value):
    """With three digits that count, and never as a power of ten."""
    if value != 0 and abs(value) < 100:
        return f"{value:.3g}" if abs(value) >= 0.001 else f"{value:.6f}"
    return f"{value:,.0f}"


def spread(values):
    if not values:
        return "-"
    median = number(statistics.median(values))
    return median if len(values) == 1 else f"{median} ({number(min(values))}..{number(max(values))})"


def table(rows):
    """Plain text: a line a row, the topics apart. The spread is that of all runs, none dropped."""
    lines = [["", "unit", "agent", "floor", "agent/floor", "goal", "met"]]
    topic = None
    for row in rows:
        if row.topic != topic:
            topic = row.topic
            lines.append([topic])
        ratio = row.ratio()
        together = "-" if ratio is None else f"{ratio:.2f} ({min(row.ratios()):.2f}..{max(row.ratios()):.2f})"
        met = {None: "-", True: "yes", False: "NO"}[row.is_met()]
        lines.append(["  " + row.what, row.unit, spread(row.agent), spread(row.floor), together,
                      str(row.goal or "-"), met])
    widths = [max(len(line[i]) for line in lines if len(line) > 1) for i in range(7)]
    text = "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip()
                     for line in lines)
    notes = [f"{row.topic}, {row.what}: {row.note}" for row in rows if row.note]
    return text + "".join(f"\n* {note}" for note in notes)


def as_json(rows, machine):
    return json.dumps({"machine": machine, "rows": [row.as_json() for row in rows]}, indent=1) + "\n"
