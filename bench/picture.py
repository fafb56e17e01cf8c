"""Pictures of the figures: groups of bars on a logarithmic scale, shorter is better."""
import math
from xml.sax.saxutils import escape

WIDTH = 900
LEFT, RIGHT = 64, 16
PANEL_HEIGHT = 250
TOP, LABELS, GAP = 92, 44, 34
COLOURS = ["#d1495b", "#edae49", "#00798c", "#66a182", "#8d6a9f", "#8d99ae"]

STYLE = """
 text { font: 12px sans-serif; fill: #24292f; }
 .title { font-size: 17px; font-weight: bold; }
 .value { font-size: 9.5px; }
 .ground { fill: #ffffff; }
 .line { stroke: #d0d7de; stroke-width: 1; }
 @media (prefers-color-scheme: dark) {
  text { fill: #e6edf3; }
  .ground { fill: #0d1117; }
  .line { stroke: #30363d; }
 }
"""


def short(value):
    value = max(value, 0.0)
    if value >= 10000:
        return f"{value / 1000:.0f}k"
    return f"{value:.0f}" if value >= 10 else f"{value:.1f}"


class Panel:
    """One logarithmic scale from `bottom` on, groups of bars side by side."""

    def __init__(self, topic, columns, bottom):
        self.topic, self.bottom, self.columns = topic, bottom, columns
        self.medians = [{f["column"]: f["median"] for f in c["figures"]}
                        for c in topic["candidates"]]
        shown = [m[column] for m in self.medians for column in columns if column in m]
        self.low = math.floor(math.log10(max(min(shown), 0.1)) + 1e-9)
        self.decades = max(1, math.ceil(math.log10(max(max(shown), 1.0)) + 1e-9) - self.low)

    def height_of(self, value):
        share = (math.log10(max(value, 10.0 ** self.low)) - self.low) / self.decades
        return max(1.5, share * PANEL_HEIGHT)

    def draw(self):
        yield from self.scale()
        group = (WIDTH - LEFT - RIGHT) / len(self.columns)
        bars = len(self.medians)
        width = min(26.0, group * 0.84 / bars)
        for number, column in enumerate(self.columns):
            middle = LEFT + group * (number + 0.5)
            yield (f'<text x="{middle:.1f}" y="{self.bottom + 18}" text-anchor="middle">'
                   f"{escape(column)}</text>")
            for i, medians in enumerate(self.medians):
                if column not in medians:
                    continue
                x = middle + (i - bars / 2) * width
                height = self.height_of(medians[column])
                y = self.bottom - height
                yield (f'<rect x="{x + 1:.1f}" y="{y:.1f}" width="{width - 2:.1f}" '
                       f'height="{height:.1f}" fill="{COLOURS[i]}"/>')
                yield (f'<text class="value" x="{x + width / 2:.1f}" y="{y - 3:.1f}" '
                       f'text-anchor="middle">{short(medians[column])}</text>')

    def scale(self):
        for step in range(self.decades + 1):
            y = self.bottom - PANEL_HEIGHT * step / self.decades
            label = f"{10.0 ** (self.low + step):g} ns"
            yield f'<line class="line" x1="{LEFT}" x2="{WIDTH - RIGHT}" y1="{y:.1f}" y2="{y:.1f}"/>'
            yield f'<text x="{LEFT - 6}" y="{y + 4:.1f}" text-anchor="end">{label}</text>'


class Picture:
    """One panel for each topic of a kind."""

    def __init__(self, title, columns):
        self.title, self.columns = title, columns

    def draw(self, topics):
        step = PANEL_HEIGHT + LABELS + GAP
        height = TOP + step * len(topics)
        parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" '
                 f'width="{WIDTH}" height="{height}">', f"<style>{STYLE}</style>",
                 f'<rect class="ground" width="{WIDTH}" height="{height}"/>',
                 f'<text class="title" x="16" y="28">{escape(self.title)}</text>']
        parts += self.legend(topics[0])
        for number, topic in enumerate(topics):
            bottom = TOP + step * number + PANEL_HEIGHT + 14
            if len(topics) > 1:
                parts.append(f'<text x="{LEFT}" y="{bottom - PANEL_HEIGHT - 14}">'
                             f'{escape(topic["topic"])}</text>')
            present = [c for c in self.columns
                       if any(f["column"] == c for k in topic["candidates"] for f in k["figures"])]
            parts += Panel(topic, present, bottom).draw()
        return "\n".join(parts) + "\n</svg>\n"

    @staticmethod
    def legend(topic):
        for i, candidate in enumerate(topic["candidates"]):
            x, y = 16 + 290 * (i % 3), 50 + 20 * (i // 3)
            yield f'<rect x="{x}" y="{y - 10}" width="11" height="11" fill="{COLOURS[i]}"/>'
            yield f'<text x="{x + 17}" y="{y}">{escape(candidate["name"])}</text>'


PICTURES = {
    "tables": Picture("A shared table: nanoseconds a row, shorter is better",
                      ["insert", "update", "delete", "read", "scan"]),
    "notification": Picture("A notice: nanoseconds a write, shorter is better",
                            ["no subscriber", "1 subscriber", "4 subscribers", "cold objects"]),
    "map": Picture("A keyed map: nanoseconds an operation or entry, shorter is better",
                   ["hit", "miss", "insert", "erase", "iterate", "resume"]),
    "tracing": Picture("A trace: nanoseconds a statement, shorter is better",
                       ["trace, off", "trace, on, to a sink", "ring, off", "ring record",
                        "ring record, formatted"]),
}
