"""The results of a run as Markdown."""

import os

PLOTS = "plots"  # the folder of the plots, next to the report
ORDER = ("direct", "ours", "HAProxy", "nginx", "socat")
VERDICTS = {True: "met", False: "**not met**", None: "not measured"}


def number(value, digits):
    """A number with thousands separators and that many decimals."""
    return f"{value:,.{digits}f}"


def spread_text(spread, digits=2):
    if spread is None:
        return "–"
    return (
        f"{number(spread.median, digits)} "
        f"({number(spread.least, digits)}–{number(spread.most, digits)})"
    )


def value_text(figure, subject):
    spread = figure.spread(subject)
    if spread is None:
        return "–"
    text = number(spread.median, figure.digits)
    base = figure.spread(figure.added_to) if figure.added_to else None
    if base and subject != figure.added_to:
        text += f" ({spread.median - base.median:+,.{figure.digits}f})"
    return text


def bar_text(figure):
    """The bars of a figure, and whether each is met."""
    if not figure.bars:
        return "", ""
    bars = [bar.text(figure.unit) for bar in figure.bars]
    verdicts = [VERDICTS[figure.judged(bar)] for bar in figure.bars]
    return "; ".join(bars), "; ".join(verdicts)


def row(cells):
    return "| " + " | ".join(cells) + " |"


def subjects_of(figures):
    """The measured subjects: those in ORDER first, then the others as they were measured."""
    found = list(dict.fromkeys(name for figure in figures for name in figure.samples))
    return [name for name in ORDER if name in found] + [x for x in found if x not in ORDER]


def table(figures):
    """One table, with ratios of ours to the others, or the spread if there are none."""
    subjects = subjects_of(figures)
    others = [name for name in subjects if name in ORDER and name != "ours"]
    has_bars = any(figure.bars for figure in figures)
    head = ["figure", *subjects, *(f"ours / {name}" for name in others)]
    if not others:
        head.append("spread")
    if has_bars:
        head += ["target", "met"]
    lines = [row(head), row(["---"] + ["---:"] * (len(head) - 1))]
    for figure in figures:
        cells = [f"{figure.title}, {figure.unit}" if figure.unit else figure.title]
        cells += [value_text(figure, subject) for subject in subjects]
        cells += [spread_text(figure.ratio("ours", name)) for name in others]
        if not others:
            own = figure.spread(subjects[0])
            cells.append(f"{number(own.least, figure.digits)}–{number(own.most, figure.digits)}")
        if has_bars:
            cells += bar_text(figure)
        lines.append(row(cells))
    return lines


def section_lines(section):
    lines = [f"## {section.title}", ""]
    for words in section.words:
        lines += [words, ""]
    figures = [figure for figure in section.figures if figure.samples]
    if figures:
        lines += [*table(figures), ""]
    is_missed = any(figure.judged(bar) is False for figure in figures for bar in figure.bars)
    if section.why and is_missed:
        lines += [f"Not met because {section.why}", ""]
    for name, text, _ in section.plots:
        lines += [f"![{text}]({PLOTS}/{name})", ""]
    return lines


def summary_lines(book):
    judged = [verdict for _, _, _, verdict in book.judgements()]
    known = [verdict for verdict in judged if verdict is not None]
    lines = [f"{sum(known)} of {len(known)} targets are met."]
    lines += [f"**Could not be measured**: {failure}" for failure in book.failures]
    missed = [(s, f, b) for s, f, b, verdict in book.judgements() if verdict is False]
    if missed:
        lines += ["", "Not met:", ""]
    for section, figure, bar in missed:
        if bar.than is None:
            found = f"{number(figure.spread('ours').median, figure.digits)} {figure.unit}"
        else:
            found = f"{spread_text(figure.ratio('ours', bar.than))} × {bar.than}"
        lines.append(
            f"- {section.title}, {figure.title}: {found.strip()}, target {bar.text(figure.unit)}"
        )
    return lines


def markdown(book, machine, how):
    """The whole page: what it was measured on, how, which targets are met, and the tables."""
    lines = ["# Measurements", "", *how, ""]
    lines += [row(["machine", ""]), row(["---", "---"])]
    lines += [row([name, value]) for name, value in machine]
    lines += ["", *summary_lines(book), ""]
    for section in book.sections:
        lines += section_lines(section)
    return "\n".join(lines).rstrip() + "\n"


def write(path, page, book):
    """Writes the report, and its plots next to it."""
    with open(path, "w", encoding="utf-8") as file:
        file.write(page)
    folder = os.path.join(os.path.dirname(os.path.abspath(path)), PLOTS)
    pictures = [picture for section in book.sections for picture in section.plots]
    if pictures:
        os.makedirs(folder, exist_ok=True)
    for name, _, picture in pictures:
        with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
            file.write(picture)
