"""The report that a run writes."""

import pytest
import report
from figures import Bar, Book, Figure, Section
from machine import version_in


def relays(**more):
    samples = {"socat": [4.0], "ours": [3.0, 6.0, 4.0], "direct": [4.0, 6.0, 5.0]}
    return Figure("1 stream", "GB/s", samples=samples, **more)


def cells(line):
    return [cell.strip() for cell in line.strip("|").split("|")]


def test_subjects_stand_in_their_order():
    assert report.subjects_of([relays()]) == ["direct", "ours", "socat"]


def test_a_row_shows_medians_and_ratios_with_their_spread():
    head, _, row = report.table([relays()])
    found = dict(zip(cells(head), cells(row)))
    assert found["figure"] == "1 stream, GB/s"
    assert found["direct"] == "5.00"
    assert found["ours"] == "4.00"
    assert found["ours / direct"] == "0.80 (0.75–1.00)"
    assert found["ours / socat"] == "0.75 (0.75–0.75)"


def test_bars_and_verdicts_stand_at_the_end():
    bars = (Bar(least=0.75, than="direct"), Bar(least=1, than="socat"), Bar(least=1, than="nginx"))
    head, _, row = report.table([relays(bars=bars)])
    found = dict(zip(cells(head), cells(row)))
    assert found["target"] == "≥ 0.75 × direct; ≥ 1 × socat; ≥ 1 × nginx"
    assert found["met"] == "met; **not met**; not measured"


def test_every_row_has_as_many_cells_as_the_head():
    lines = report.table([relays(), Figure("2", "s", samples={"ours": [1]}, bars=(Bar(most=2),))])
    assert len({line.count("|") for line in lines}) == 1


def test_what_a_relay_adds_stands_beside_the_whole():
    figure = Figure("p50", "µs", digits=0, added_to="direct")
    figure.samples = {"direct": [50.0], "ours": [1070.4]}
    assert report.value_text(figure, "ours") == "1,070 (+1,020)"
    assert report.value_text(figure, "direct") == "50"
    assert report.value_text(figure, "nginx") == "–"


def test_the_summary_names_what_is_not_held():
    book = Book()
    book.section("Throughput").figures = [relays(bars=(Bar(least=0.9, than="direct"),))]
    book.section("Idle").figures = [
        Figure("memory", "MB", samples={"ours": [50]}, bars=(Bar(most=45),)),
        Figure("threads", "", samples={"ours": [5]}, bars=(Bar(most=9),)),
    ]
    lines = report.summary_lines(book)
    assert lines[0] == "1 of 3 targets are met."
    assert lines[-2] == (
        "- Throughput, 1 stream: 0.80 (0.75–1.00) × direct, target ≥ 0.9 × direct"
    )
    assert lines[-1] == "- Idle, memory: 50.00 MB, target ≤ 45 MB"


def test_a_part_that_failed_is_named():
    book = Book()
    book.failures.append("smb: no server")
    assert "**Could not be measured**: smb: no server" in report.summary_lines(book)


def test_a_section_without_measurements_has_no_table():
    section = Section("Empty", words=["Nothing."], figures=[Figure("f", "")])
    assert report.section_lines(section) == ["## Empty", "", "Nothing.", ""]


def test_pictures_are_written_beside_the_page(tmp_path):
    book = Book()
    book.section("Growth").plots.append(("a.svg", "A by b", "<svg/>"))
    page = report.markdown(book, [("kernel", "6")], ["How."])
    report.write(tmp_path / "RESULTS.md", page, book)
    assert "![A by b](plots/a.svg)" in (tmp_path / "RESULTS.md").read_text(encoding="utf-8")
    assert (tmp_path / "plots" / "a.svg").read_text(encoding="utf-8") == "<svg/>"


@pytest.mark.parametrize(
    "text, version",
    [
        ("HAProxy version 2.6.12-1+deb12u4 2026/10/17 - https://haproxy.org/", "2.6.12-1+deb12u4"),
        ("nginx version: nginx/1.22.1\n", "1.22.1"),
        ("quillbox-helper 0.1.0", "0.1.0"),
        ("none", "unknown"),
    ],
)
def test_a_version_is_found_in_what_programs_say(text, version):
    assert version_in(text) == version


def test_the_reason_stands_only_where_a_bar_is_not_held():
    section = Section("Throughput", why="of the wire.")
    section.figures = [relays(bars=(Bar(least=0.75, than="direct"),))]
    assert "Not met because of the wire." not in report.section_lines(section)
    section.figures.append(relays(bars=(Bar(least=0.9, than="direct"),)))
    assert "Not met because of the wire." in report.section_lines(section)
