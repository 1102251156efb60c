"""Target weights are what numpy makes of the weights, to the bit."""

import numpy as np
import pytest

from corvex import _engine


def by_numpy(values, rows, limit, leverage):
    weights = np.nan_to_num(values[rows].astype(float), nan=0.0)
    gross = np.abs(weights).sum(axis=1, keepdims=True)
    if not leverage:
        weights = weights / np.maximum(gross, 1.0)
    return np.clip(weights, -limit, limit), gross[:, 0]


@pytest.mark.parametrize("assets", [1, 7, 8, 9, 50, 128, 129, 1000])
@pytest.mark.parametrize("order", ["C", "F", "bool"])
def test_targets_are_those_of_numpy(assets, order):
    draw = np.random.default_rng(assets)
    values = draw.normal(size=(40, assets)) / assets**0.8
    values[draw.random(values.shape) < 0.2] = np.nan
    values[5:9] = values[4]
    values[:3] = np.nan
    values = values > 0.0 if order == "bool" else np.asarray(values, order=order)
    rows = np.sort(draw.integers(0, 40, 60))
    for limit, leverage in [(np.inf, False), (0.01, False), (0.02, True)]:
        wanted, sums = by_numpy(values, rows, limit, leverage)
        options = {"limit": limit, "leverage": leverage}
        kept, targets, gross = _engine.read_targets(values, rows, only_changes=False, **options)
        assert kept.tolist() == list(range(60))
        np.testing.assert_array_equal(targets, wanted)
        np.testing.assert_array_equal(gross, sums)
        before = np.vstack([np.zeros(assets), wanted[:-1]])
        changed = np.flatnonzero((wanted != before).any(axis=1))
        kept, targets, _ = _engine.read_targets(values, rows, only_changes=True, **options)
        np.testing.assert_array_equal(kept, changed)
        np.testing.assert_array_equal(targets, wanted[changed])


def test_rows_outside_the_table_are_refused():
    for row in (-1, 2):
        with pytest.raises(ValueError, match="outside the table"):
            _engine.read_targets(np.ones((2, 3)), np.array([row]), limit=1.0, leverage=True,
                                 only_changes=False)  # fmt: skip
    with pytest.raises(ValueError, match="must not be negative"):
        _engine.read_targets(np.ones((2, 3)), np.array([0]), limit=-1.0, leverage=True,
                             only_changes=False)  # fmt: skip
