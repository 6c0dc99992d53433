"""Figures, their bars (the limits to meet), and the statistics of several rounds."""

from dataclasses import dataclass, field
from statistics import median


@dataclass(frozen=True)
class Spread:
    """Median, minimum and maximum of several rounds."""

    median: float
    least: float
    most: float


def spread_of(values):
    return Spread(median(values), min(values), max(values))


def ratios(ours, others):
    """One ratio for each round in which both were measured and the divisor is not 0."""
    return [one / other for one, other in zip(ours, others) if other]


@dataclass(frozen=True)
class Bar:
    """A limit for our figure: a ratio to the subject `than`, or an absolute value without it."""

    least: float = None
    most: float = None
    than: str = None

    def text(self, unit=""):
        sign, value = ("≥", self.least) if self.least is not None else ("≤", self.most)
        if self.than is None:
            return f"{sign} {value:g} {unit}".rstrip()
        return f"{sign} {value:g} × {self.than}"

    def holds(self, value):
        if self.least is not None:
            return value >= self.least
        return value <= self.most


@dataclass
class Figure:
    """One row of a table: its title, its unit, and the values of all rounds by subject."""

    title: str
    unit: str
    digits: int = 2
    bars: tuple = ()
    # The table also shows the difference to this subject. Ratios are those of the full values.
    added_to: str = None
    samples: dict = field(default_factory=dict)

    def add(self, subject, value):
        self.samples.setdefault(subject, []).append(value)

    def spread(self, subject):
        values = self.samples.get(subject)
        return spread_of(values) if values else None

    def ratio(self, subject, to):
        """The spread of the ratios of two subjects, or None if there are none."""
        found = ratios(self.samples.get(subject, []), self.samples.get(to, []))
        return spread_of(found) if found else None

    def judged(self, bar):
        """Whether our median meets the bar; None if it was not measured."""
        if bar.than is None:
            own = self.spread("ours")
            return bar.holds(own.median) if own else None
        ratio = self.ratio("ours", bar.than)
        return bar.holds(ratio.median) if ratio else None


@dataclass
class Section:
    """A table: a heading, some text, the figures, and plots below them.

    `why` is the reason, found by profiling, for the case that a bar is not met."""

    title: str
    words: list = field(default_factory=list)
    why: str = ""
    figures: list = field(default_factory=list)
    plots: list = field(default_factory=list)

    def figure(self, title, unit, **more):
        made = Figure(title, unit, **more)
        self.figures.append(made)
        return made


class Book:
    """All sections of a run, in the order in which they were started."""

    def __init__(self):
        self.sections = []
        self.failures = []  # parts that could not be measured, and why

    def section(self, title):
        for section in self.sections:
            if section.title == title:
                return section
        section = Section(title)
        self.sections.append(section)
        return section

    def judgements(self):
        """Every bar with its section, its figure and whether it is met (None: not measured)."""
        return [
            (section, figure, bar, figure.judged(bar))
            for section in self.sections
            for figure in section.figures
            for bar in figure.bars
        ]
