"""Growth in words and as a chart."""

import xml.etree.ElementTree as tree

import pytest
from figures import Bar, Section
from growth import growth_words, word_for
from plot import LEFT, RIGHT, WIDTH, Axis, bounds, chart, spread_labels, tick_text
from scaling import Series

SVG = "{http://www.w3.org/2000/svg}"


@pytest.mark.parametrize(
    "wider, higher, word",
    [(10, 2, "less than linear"), (10, 10, "linear"), (10, 12, "linear"), (10, 13, "more than linear")],
)
def test_growth_has_a_word(wider, higher, word):
    assert word_for(wider, higher) == word


def test_growth_is_told_from_the_first_to_the_last():
    words = growth_words("Memory", "sessions", [(10, 2.0), (100, 20.0), (1000, 200.0)])
    assert words == "Memory, from 10 to 1,000 sessions: 100.0-fold for 100-fold the number, linear."


def test_a_step_that_is_worse_than_linear_is_named_though_a_fixed_cost_hides_it():
    words = growth_words("Processor", "phones", [(1, 1.0), (50, 2.0), (250, 20.0)])
    assert "less than linear; from 50 to 250 10.0-fold for 5-fold." in words


def test_what_was_too_little_to_measure_says_so():
    assert growth_words("Memory", "sessions", [(1, 0), (10, 5.0)]).endswith("too little to be measured.")


def test_axes_end_at_powers_of_ten():
    assert bounds([3, 4200]) == (0, 4)
    assert bounds([10, 1000]) == (1, 3)
    assert bounds([10]) == (1, 2)


def test_a_power_of_ten_is_as_far_from_the_next_one_everywhere():
    axis = Axis([1, 1000], 0, 300)
    assert [round(axis.place(value)) for value in axis.ticks()] == [0, 100, 200, 300]


@pytest.mark.parametrize("value, text", [(1000.0, "1,000"), (1.0, "1"), (0.01, "0.01")])
def test_ticks_are_written_out(value, text):
    assert tick_text(value) == text


def test_labels_that_would_cover_each_other_are_moved_apart():
    assert spread_labels({"a": 100, "b": 104, "c": 200}) == {"a": 100, "b": 115, "c": 200}


def test_a_relay_has_the_same_colour_in_every_chart():
    one = chart("t", "x", "y", {"direct": [(1, 2), (10, 3)], "ours": [(1, 2), (10, 3)]})
    other = chart("t", "x", "y", {"ours": [(1, 2), (10, 3)]})
    colours = [x.get("stroke") for x in tree.fromstring(one).findall(f"{SVG}polyline")]
    assert len(set(colours)) == 2
    assert tree.fromstring(other).find(f"{SVG}polyline").get("stroke") == colours[1]


def test_a_chart_has_a_curve_for_each_series_within_its_frame():
    text = chart("T <b>", "x", "y", {"ours": [(1, 2), (10, 30)], "a & b": [(1, 5), (10, 0)], "no": []})
    picture = tree.fromstring(text)
    lines = picture.findall(f"{SVG}polyline")
    assert len(lines) == 2
    first = [tuple(map(float, point.split(","))) for point in lines[0].get("points").split()]
    assert first[0][0] == LEFT and first[-1][0] == WIDTH - RIGHT
    assert first[0][1] > first[-1][1]  # more is higher up
    texts = [element.text for element in picture.findall(f"{SVG}text")]
    assert {"T <b>", "ours", "a & b"} <= set(texts) and "no" not in texts


def test_many_sessions_have_a_target_and_few_have_none():
    section, bars = Section("Growth"), (Bar(least=1, than="nginx"),)
    Series(section, "throughput", "GB/s", 2, (1, 10, 100, 5000), "sessions", bars)
    assert [figure.bars for figure in section.figures] == [(), (), bars, bars]
