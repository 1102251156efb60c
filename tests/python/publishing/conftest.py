import traceback

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.cloud import credentials
from corvex.core import firestore_rest
from corvex.core import report as report_module
from corvex.testing.cloud import CloudServer, trial_token

SECRET = "SecretSignature0123456789"


@pytest.fixture(autouse=True)
def nobody(tmp_path, monkeypatch):
    """A user without login and settings, in an empty folder."""
    for name in (
        "CORVEX_ID_TOKEN CORVEX_API_TOKEN CORVEX_DOCUMENT_STORE_URL CORVEX_LEGACY_URL"
        " CORVEX_HTTP_TIMEOUT CORVEX_FORCED_STRATEGY_NAME"
    ).split():
        monkeypatch.delenv(name, raising=False)
    monkeypatch.setenv("HOME", str(tmp_path))
    monkeypatch.setenv("XDG_CONFIG_HOME", str(tmp_path / "config"))
    monkeypatch.setattr(firestore_rest, "FIRST_PAUSE", 0.002)
    # What these tests call tokens must not be hidden from the texts of later ones.
    monkeypatch.setattr(credentials, "_seen", set())
    monkeypatch.chdir(tmp_path)


@pytest.fixture
def id_token():
    return trial_token().replace("unsigned", SECRET)


@pytest.fixture
def cloud(monkeypatch, id_token):
    """The reference server, with a user who is logged in there."""
    with CloudServer() as server:
        for name, value in server.settings.items():
            monkeypatch.setenv(name, value)
        monkeypatch.setenv("CORVEX_ID_TOKEN", id_token)
        for path in ("WRITE_DATABASE", "AUTH_GET_STRATEGY"):
            url = f"{server.url}/{path.lower()}"
            monkeypatch.setattr(report_module, f"LEGACY_{path}_URL", url)
        yield server


@pytest.fixture
def legacy_login(monkeypatch):
    monkeypatch.delenv("CORVEX_ID_TOKEN", raising=False)
    monkeypatch.setenv("CORVEX_API_TOKEN", SECRET)


@pytest.fixture(scope="session")
def report():
    index = pd.bdate_range("2020-01-01", periods=90)
    walk = np.random.default_rng(3).normal(0.001, 0.01, (90, 2))
    prices = pd.DataFrame(np.exp(walk.cumsum(axis=0)), index=index, columns=["AAPL", "MSFT"])
    return corvex.simulate(prices > 0, prices, resample="ME", market="us_stock", name="trial")


@pytest.fixture
def leaks():
    """Where an error holds the secret: its texts, attributes, causes, and the frames it passed."""

    def search(error):
        found, seen, waiting = [], set(), [error]
        while waiting:
            current = waiting.pop()
            if current is None or id(current) in seen:
                continue
            seen.add(id(current))
            attributes = [*vars(current).values(), *current.args]
            inner = [vars(a) for a in attributes if hasattr(a, "__dict__")]
            places = {"error": [str(current), repr(current), attributes, inner]}
            for frame, line in traceback.walk_tb(current.__traceback__):
                if "/tests/" not in frame.f_code.co_filename:
                    places[f"{frame.f_code.co_qualname}:{line}"] = frame.f_locals
            found += [place for place, content in places.items() if SECRET in repr(content)]
            waiting += [current.__cause__, current.__context__]
        return found

    return search
