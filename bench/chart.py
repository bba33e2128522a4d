"""The picture of a measurement, as SVG."""

import math
from xml.sax.saxutils import escape

import results

# Told apart by people who do not see all colours, too (Okabe and Ito).
COLOURS = {"bare": "#666666", "level-4": "#0072b2", "file": "#56b4e9", "pipe": "#009e73",
           "broker": "#d55e00"}
PANEL_WIDTH, PANEL_HEIGHT, MARGIN, GAP = 420, 220, 60, 90


class Panel:
    """One diagram with its own axes; (x, y) is its upper left corner on the page."""

    def __init__(self, x, y, title):
        self.x, self.y = x, y
        self.parts = [text(x, y - 14, title, weight="bold")]

    def frame(self):
        bottom = self.y + PANEL_HEIGHT
        self.parts.append(f'<path d="M{self.x} {self.y}V{bottom}H{self.x + PANEL_WIDTH}" '
                          'fill="none" stroke="#333"/>')

    def level(self, height, label, dashed=False):
        """A horizontal line at `height` (0 bottom, 1 top)."""
        y = self.y + PANEL_HEIGHT * (1 - height)
        dash = ' stroke-dasharray="5 4"' if dashed else ""
        colour = "#333" if dashed else "#ddd"
        self.parts.append(f'<path d="M{self.x} {y:.1f}h{PANEL_WIDTH}" stroke="{colour}"{dash}/>')
        self.parts.append(text(self.x - 6, y + 4, label, anchor="end"))

    def category(self, place, count, label):
        self.parts.append(text(self.x + PANEL_WIDTH * (place + 0.5) / count,
                               self.y + PANEL_HEIGHT + 18, label, anchor="middle"))

    def caption(self, label):
        self.parts.append(text(self.x + PANEL_WIDTH / 2, self.y + PANEL_HEIGHT + 38, label,
                               anchor="middle"))


def text(x, y, content, anchor="start", weight="normal"):
    return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-weight="{weight}">'
            f"{escape(content)}</text>")


def ratio_bars(measured, workloads, names, panel, category, caption):
    """Events a second in multiples of the bare loop's: a group of bars for each workload."""
    ratios = {(workload, name): measured.ratio(workload, name, "events_per_second")
              for workload in workloads for name in names}
    top = max([1.0, *(ratio for ratio in ratios.values() if ratio is not None)]) * 1.1
    for quarter in range(math.floor(top * 4) + 1):
        panel.level(quarter / 4 / top, f"{quarter / 4:.2f}")
    slot = PANEL_WIDTH / len(workloads)
    width = slot * 0.75 / max(1, len(names))
    for place, workload in enumerate(workloads):
        panel.category(place, len(workloads), category(workload))
        for index, name in enumerate(names):
            ratio = ratios[workload, name]
            if ratio is None:
                continue
            height = PANEL_HEIGHT * ratio / top
            x = panel.x + place * slot + slot * 0.125 + index * width
            panel.parts.append(
                f'<rect x="{x:.1f}" y="{panel.y + PANEL_HEIGHT - height:.1f}" '
                f'width="{width * 0.92:.1f}" height="{height:.1f}" fill="{COLOURS[name]}"/>')
    panel.level(1 / top, "", dashed=True)
    panel.frame()
    panel.caption(caption)


def delivery_lines(measured, workloads, names, panel):
    """Deliveries a second over the number of consumers, on a logarithmic scale."""
    values = {(workload, name): measured.middle(workload, name, "deliveries_per_second")
              for workload in workloads for name in names}
    present = [value for value in values.values() if value]
    low, high = math.floor(math.log10(min(present))), math.ceil(math.log10(max(present)))
    high = max(high, low + 1)
    for decade in range(low, high + 1):
        panel.level((decade - low) / (high - low), f"{10 ** decade:,}")
    for place, workload in enumerate(workloads):
        panel.category(place, len(workloads), str(workload.consumers))
    for name in names:
        points = [(panel.x + PANEL_WIDTH * (place + 0.5) / len(workloads),
                   panel.y + PANEL_HEIGHT * (1 - (math.log10(values[workload, name]) - low)
                                             / (high - low)))
                  for place, workload in enumerate(workloads) if values[workload, name]]
        path = "L".join(f"{x:.1f} {y:.1f}" for x, y in points)
        panel.parts.append(f'<path d="M{path}" fill="none" stroke="{COLOURS[name]}" '
                           'stroke-width="2"/>')
        panel.parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.5" fill="{COLOURS[name]}"/>'
                        for x, y in points]
    panel.frame()
    panel.caption("consumers")


def draw(measured, labels):
    names = list(labels)
    service = [name for name in names if name not in (results.BASE, results.BROKER)]
    panels = []

    def next_panel(title):
        column, row = len(panels) % 2, len(panels) // 2
        panels.append(Panel(MARGIN + 20 + column * (PANEL_WIDTH + GAP),
                            MARGIN + row * (PANEL_HEIGHT + GAP), title))
        return panels[-1]

    by_streams = {}
    for workload in measured.workloads("session"):
        by_streams.setdefault(workload.streams, []).append(workload)
    for streams, workloads in by_streams.items():
        if results.BASE in names:
            ratio_bars(measured, workloads, service,
                       next_panel(f"Events a second, bare loop = 1: sessions of {streams} streams"),
                       lambda workload: str(workload.consumers), "consumers")
    documents = measured.workloads("all")
    if documents and results.BASE in names:
        ratio_bars(measured, documents, [name for name in service if name == "level-4"],
                   next_panel("Events a second, bare loop = 1: the whole document"),
                   lambda workload: f"{workload.sessions} / {workload.consumers}",
                   "sessions / consumers")
    for streams, workloads in list(by_streams.items())[:1]:
        delivery_lines(measured, workloads, names,
                       next_panel(f"Deliveries a second: sessions of {streams} streams"))

    width = 2 * MARGIN + 2 * PANEL_WIDTH + GAP
    legend_y = MARGIN + (len(panels) + 1) // 2 * (PANEL_HEIGHT + GAP)
    parts = [part for panel in panels for part in panel.parts]
    for place, (name, label) in enumerate(labels.items()):
        x, y = MARGIN + 20 + place % 3 * 310, legend_y + place // 3 * 22
        parts.append(f'<rect x="{x}" y="{y - 10}" width="12" height="12" '
                     f'fill="{COLOURS[name]}"/>')
        parts.append(text(x + 18, y, label))
    height = legend_y + 22 * ((len(labels) + 2) // 3) + 10
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
            'font-family="sans-serif" font-size="12">\n'
            f'<rect width="{width}" height="{height}" fill="white"/>\n'
            + "\n".join(parts) + "\n</svg>\n")
