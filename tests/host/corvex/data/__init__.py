"""Freshness of the data: `answers` are given, and every question is noted in `calls`."""

answers = {}
calls = []


def _answer(question, *arguments):
    calls.append((question, *arguments))
    return answers.get(question)


def next_data_expiry():
    return _answer("next_data_expiry")


def next_future_expiry():
    return _answer("next_future_expiry")


def suggested_tradable_time(market):
    return _answer("suggested_tradable_time", market)


def is_tradable(market):
    return _answer("is_tradable", market)
