"""How a cost grows, in words."""

# Measurements vary: growth within these factors of proportional counts as linear.
LEAST, MOST = 0.8, 1.25


def word_for(wider, higher):
    """The word for `higher`-fold cost at a `wider`-fold number."""
    if higher <= wider * LEAST:
        return "less than linear"
    return "linear" if higher <= wider * MOST else "more than linear"


def steps(points):
    """Factors of number and cost from each point to the next: (from, to, wider, higher)."""
    return [(x1, x2, x2 / x1, y2 / y1) for (x1, y1), (x2, y2) in zip(points, points[1:])]


def growth_words(what, of, points):
    """The growth of a cost in a sentence. A large fixed cost can hide growth over the whole range,
    so the steepest step is named if it is more than linear."""
    points = [(x, y) for x, y in points if y > 0]
    if len(points) < 2:
        return f"{what}: too little to be measured."
    (x1, y1), (x2, y2) = points[0], points[-1]
    wider, higher = x2 / x1, y2 / y1
    text = (
        f"{what}, from {x1:,} to {x2:,} {of}: {higher:,.1f}-fold for {wider:,.0f}-fold the number, "
        f"{word_for(wider, higher)}"
    )
    start, end, wider, higher = max(steps(points), key=lambda step: step[3] / step[2])
    if word_for(wider, higher) == "more than linear":
        text += f"; from {start:,} to {end:,} {higher:,.1f}-fold for {wider:,.0f}-fold"
    return text + "."
