"""Small price tables."""

import pandas as pd
import pytest


@pytest.fixture
def days() -> pd.DatetimeIndex:
    """Tuesday 2024-01-02 to Thursday 2024-01-11."""
    return pd.bdate_range("2024-01-02", periods=8)


@pytest.fixture
def prices(days) -> pd.DataFrame:
    return pd.DataFrame(
        {
            "AAA": [100.0, 100, 110, 121, 121, 121, 121, 121],
            "BBB": [50.0, 50, 50, 50, 40, 40, 40, 40],
        },
        index=days,
    )


@pytest.fixture
def weights_on(days):
    """Weights of AAA and BBB by position of their day."""

    def make(rows: dict[int, tuple[float, float]]) -> pd.DataFrame:
        index = days[list(rows)]
        return pd.DataFrame(list(rows.values()), index=index, columns=["AAA", "BBB"])

    return make
