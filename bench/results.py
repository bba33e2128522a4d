"""What was measured, as a table for a person and as CSV."""

import csv
from statistics import median

BASE = "bare"
BROKER = "broker"
FIGURES = ["message_bytes", "events_per_second", "deliveries_per_second", "latency_p50_us",
           "latency_p99_us", "subject_cpu_us_per_event", "load_cores"]

# Subject, figure, consumers, bound: what the service is to reach as a ratio of the bare loop.
AT_LEAST = [("level-4", "events_per_second", 1, 0.75), ("level-4", "events_per_second", 100, 0.95),
            ("file", "events_per_second", 1, 0.6), ("file", "events_per_second", 100, 0.6),
            ("pipe", "events_per_second", 1, 0.6), ("pipe", "events_per_second", 100, 0.6)]
AT_MOST = [("level-4", "latency_p50_us", 1, 1.15)]
# Times the broker's deliveries a second, from this many consumers on.
BROKER_FROM, BROKER_TIMES = 10, 5


def describe(workload):
    if workload.kind == "all":
        return f"all, {workload.sessions} sessions"
    return f"session, {workload.streams} streams"


class Results:
    """The figures of every round, by workload and subject."""

    def __init__(self):
        self.rounds = {}

    def add(self, workload, subject, figures):
        self.rounds.setdefault(workload, {}).setdefault(subject, []).append(figures)

    def workloads(self, kind):
        return [workload for workload in self.rounds if workload.kind == kind]

    def subjects(self):
        return list(dict.fromkeys(name for by_subject in self.rounds.values()
                                  for name in by_subject))

    def values(self, workload, subject, figure):
        return [figures[figure] for figures in self.rounds[workload].get(subject, [])]

    def middle(self, workload, subject, figure):
        values = self.values(workload, subject, figure)
        return median(values) if values else None

    def ratio(self, workload, subject, figure, base=BASE):
        """The median of the rounds' own ratios: what slows a whole round down cancels out."""
        pairs = list(zip(self.values(workload, subject, figure),
                         self.values(workload, base, figure)))
        return median(one / other for one, other in pairs) if pairs else None

    def table(self):
        """A row for each workload and subject, then the goals."""
        rows = [["workload", "consumers", "subject", "events/s", "÷ bare", "deliveries/s",
                 "÷ broker", "p50 µs", "÷ bare", "p99 µs", "CPU µs/event", "÷ bare", "load cores"]]
        for workload, by_subject in self.rounds.items():
            for name in by_subject:
                def figure(key, digits=0, of=workload, by=name):
                    return shown(self.middle(of, by, key), digits)

                def ratio(key, base=BASE, of=workload, by=name):
                    return shown(self.ratio(of, by, key, base), 2)

                rows.append([describe(workload), str(workload.consumers), name,
                             figure("events_per_second"), ratio("events_per_second"),
                             figure("deliveries_per_second"),
                             ratio("deliveries_per_second", BROKER),
                             figure("latency_p50_us"), ratio("latency_p50_us"),
                             figure("latency_p99_us"), figure("subject_cpu_us_per_event", 1),
                             ratio("subject_cpu_us_per_event"), figure("load_cores", 2)])
        return "\n".join([*aligned(rows), "", *self.goals()])

    def goals(self):
        """One line for each goal and workload: what was to be reached, and what was."""
        for workload in self.workloads("session"):
            for name, figure, consumers, bound in AT_LEAST:
                yield from self.goal(workload, name, figure, consumers, bound, at_least=True)
            for name, figure, consumers, bound in AT_MOST:
                yield from self.goal(workload, name, figure, consumers, bound, at_least=False)
            if workload.consumers >= BROKER_FROM:
                times = self.ratio(workload, "level-4", "deliveries_per_second", BROKER)
                yield from verdict(workload, "level-4, deliveries of the broker", times,
                                   BROKER_TIMES, at_least=True)

    def goal(self, workload, name, figure, consumers, bound, at_least):
        if workload.consumers == consumers:
            yield from verdict(workload, f"{name}, {figure} of the bare loop",
                               self.ratio(workload, name, figure), bound, at_least)

    def write_csv(self, path):
        with open(path, "w", encoding="utf-8", newline="") as file:
            writer = csv.writer(file, lineterminator="\n")
            writer.writerow(["kind", "streams", "sessions", "consumers", "subject", "rounds",
                             *FIGURES, "events_lowest", "events_highest", "events_ratio",
                             "latency_p50_ratio", "cpu_ratio"])
            for workload, by_subject in self.rounds.items():
                for name in by_subject:
                    events = self.values(workload, name, "events_per_second")
                    writer.writerow([workload.kind, workload.streams, workload.sessions,
                                     workload.consumers, name, len(events)]
                                    + [f"{self.middle(workload, name, figure):.6g}"
                                       for figure in FIGURES]
                                    + [f"{min(events):.6g}", f"{max(events):.6g}"]
                                    + [shown(self.ratio(workload, name, figure), 3)
                                       for figure in ("events_per_second", "latency_p50_us",
                                                      "subject_cpu_us_per_event")])


def verdict(workload, what, value, bound, at_least):
    if value is None:
        return
    reached = value >= bound if at_least else value <= bound
    yield (f"{'reached' if reached else 'MISSED ':7}  {value:5.2f}  "
           f"{'at least' if at_least else 'at most':8} {bound:4}  "
           f"{describe(workload)}, {workload.consumers} consumers: {what}")


def shown(value, digits=2):
    return "" if value is None else f"{value:.{digits}f}"


def aligned(rows):
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    return ["  ".join(cell.ljust(width) if i in (0, 2) else cell.rjust(width)
                      for i, (cell, width) in enumerate(zip(row, widths))).rstrip()
            for row in rows]
