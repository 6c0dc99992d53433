"""What the other devices of a home send, second by second."""

import itertools

import home_traffic
import mdns

ADDRESSES = [f"192.0.2.{number}" for number in range(1, 21)]
HOUR = 3600


def sent_within(seconds):
    schedule = home_traffic.Schedule(home_traffic.devices_of(ADDRESSES))
    return list(itertools.takewhile(lambda packet: packet[0] < seconds, schedule.packets()))


def test_an_hour_has_a_packet_every_two_seconds_from_all_devices():
    sent = sent_within(HOUR)
    assert HOUR / 3 < len(sent) < HOUR
    assert {sender for _, sender, _ in sent} == set(ADDRESSES)
    assert [when for when, _, _ in sent] == sorted(when for when, _, _ in sent)


def test_it_is_the_same_each_time():
    assert sent_within(600) == sent_within(600)


def test_who_has_what_is_asked_for_answers_soon():
    sent = sent_within(HOUR)
    asked = [
        when for when, _, packet in sent
        if [["_googlecast", "_tcp", "local"]] == list(mdns.asked(packet))
    ]
    assert len(asked) == 30, "for ten minutes, every 20 s"
    television = ADDRESSES[list(home_traffic.OFFERS).index("Television")]
    for when in asked:
        assert any(0 < answer - when < 0.2 for answer, sender, _ in sent if sender == television)
