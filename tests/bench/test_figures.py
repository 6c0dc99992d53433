"""Medians, ratios and bars."""

import pytest
from figures import Bar, Book, Figure, Spread, ratios, spread_of


def test_the_median_stands_between_the_least_and_the_most():
    assert spread_of([5, 1, 3]) == Spread(3, 1, 5)


def test_ratios_are_those_of_one_round():
    assert ratios([2, 6], [1, 2]) == [2, 3]


def test_a_round_without_a_divisor_gives_no_ratio():
    assert ratios([2, 6], [0, 2]) == [3]


def test_a_round_that_only_one_was_measured_in_gives_no_ratio():
    assert ratios([2, 6], [1]) == [2]


@pytest.mark.parametrize("ours, holds", [(1.4, False), (1.5, True), (1.6, True)])
def test_a_bar_from_below_holds_from_its_value_on(ours, holds):
    figure = Figure("f", "GB/s", samples={"ours": [ours], "nginx": [1.0]})
    assert figure.judged(Bar(least=1.5, than="nginx")) is holds


@pytest.mark.parametrize("ours, holds", [(44, True), (45, True), (46, False)])
def test_a_limit_holds_up_to_its_value(ours, holds):
    figure = Figure("f", "MB", samples={"ours": [ours]})
    assert figure.judged(Bar(most=45)) is holds


def test_a_bar_is_judged_by_the_median_of_the_ratios_not_by_the_ratio_of_the_medians():
    figure = Figure("f", "", samples={"ours": [1, 10, 100], "HAProxy": [2, 5, 300]})
    assert figure.ratio("ours", "HAProxy").median == 0.5
    assert figure.judged(Bar(least=1, than="HAProxy")) is False


def test_a_bar_without_a_measurement_is_not_judged():
    figure = Figure("f", "", samples={"ours": [1]})
    assert figure.judged(Bar(least=1, than="socat")) is None
    assert Figure("f", "").judged(Bar(most=1)) is None


def test_a_section_is_made_once():
    book = Book()
    assert book.section("a") is book.section("a")
    assert book.section("b") is not book.section("a")
