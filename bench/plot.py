"""Line charts as SVG, with logarithmic axes: linear growth is a straight line of slope 1."""

import math
from html import escape

WIDTH, HEIGHT = 640, 400
LEFT, RIGHT, TOP, BOTTOM = 76, 120, 44, 56
COLOURS = {"ours": "#1f6feb", "direct": "#57606a", "HAProxy": "#d1453b", "nginx": "#3a8f3a"}
OTHER_COLOUR = "#8a5cc2"


def tick_text(value):
    """A power of ten in decimal notation."""
    if value >= 1:
        return f"{value:,.0f}"
    return f"{value:.{max(0, -math.floor(math.log10(value)))}f}"


def bounds(values):
    """The exponents of the powers of ten around all values, at least one apart."""
    low = math.floor(math.log10(min(values)) + 1e-9)
    high = math.ceil(math.log10(max(values)) - 1e-9)
    return low, max(high, low + 1)


class Axis:
    """Maps values to coordinates from `start` to `end`, logarithmically."""

    def __init__(self, values, start, end):
        self.low, self.high = bounds(values)
        self.start, self.end = start, end

    def place(self, value):
        share = (math.log10(value) - self.low) / (self.high - self.low)
        return self.start + share * (self.end - self.start)

    def ticks(self):
        return [10.0**power for power in range(self.low, self.high + 1)]


def text(x, y, content, anchor="middle", more=""):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" {more}>{escape(content)}</text>'


def line(x1, y1, x2, y2, colour="#d8dee4"):
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}"/>'


def grid(across, up, x_title, y_title):
    bottom, right = HEIGHT - BOTTOM, WIDTH - RIGHT
    parts = []
    for tick in across.ticks():
        x = across.place(tick)
        parts += [line(x, TOP, x, bottom), text(x, bottom + 18, tick_text(tick))]
    for tick in up.ticks():
        y = up.place(tick)
        parts += [line(LEFT, y, right, y), text(LEFT - 8, y + 4, tick_text(tick), "end")]
    middle = (TOP + bottom) / 2
    parts.append(text((LEFT + right) / 2, HEIGHT - 14, x_title))
    parts.append(text(18, middle, y_title, more=f'transform="rotate(-90 18 {middle:.1f})"'))
    return parts


def spread_labels(wanted, least=15):
    """Vertical positions of labels, moved down where two would overlap."""
    found = {}
    last = -math.inf
    for key, place in sorted(wanted.items(), key=lambda item: item[1]):
        last = found[key] = max(place, last + least)
    return found


def curve(points, colour, across, up):
    places = [(across.place(x), up.place(y)) for x, y in points]
    path = " ".join(f"{x:.1f},{y:.1f}" for x, y in places)
    parts = [f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>']
    parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{colour}"/>' for x, y in places]
    return parts


def chart(title, x_title, y_title, series):
    """The chart as SVG text; `series` maps names to points. Points that are not positive are left
    out."""
    series = {
        name: [(x, y) for x, y in points if x > 0 and y > 0] for name, points in series.items()
    }
    series = {name: points for name, points in series.items() if points}
    across = Axis([x for points in series.values() for x, _ in points], LEFT, WIDTH - RIGHT)
    up = Axis([y for points in series.values() for _, y in points], HEIGHT - BOTTOM, TOP)
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
        f'width="{WIDTH}" height="{HEIGHT}" font-family="sans-serif" font-size="12" fill="#24292f">',
        f'<rect width="{WIDTH}" height="{HEIGHT}" fill="#ffffff"/>',
        text(LEFT, 24, title, "start", 'font-size="15" font-weight="bold"'),
        *grid(across, up, x_title, y_title),
    ]
    labels = spread_labels({name: up.place(points[-1][1]) for name, points in series.items()})
    for name, points in series.items():
        colour = COLOURS.get(name, OTHER_COLOUR)
        parts += curve(points, colour, across, up)
        end = across.place(points[-1][0]) + 8
        parts.append(text(end, labels[name] + 4, name, "start", f'style="fill:{colour}"'))
    return "\n".join([*parts, "</svg>"]) + "\n"
