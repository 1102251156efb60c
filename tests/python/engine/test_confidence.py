"""The tests of skill against public packages, plain loops and what is known beforehand."""

import itertools
import math

import numpy as np
import pytest

from corvex import _engine

SEEDS = range(6)


NONE = np.empty(0, dtype=np.int64)


def noise(rows: int, columns: int = 1, seed: int = 0, sd: float = 0.01) -> np.ndarray:
    values = np.random.default_rng(seed).normal(0.0, sd, (rows, columns))
    return values[:, 0] if columns == 1 else values


def autoregressive(rows: int, phi: float, seed: int) -> np.ndarray:
    values = np.random.default_rng(seed).normal(size=rows)
    for i in range(1, rows):
        values[i] += phi * values[i - 1]
    return values


@pytest.mark.parametrize("share", [1e-300, 1e-9, 0.02, 0.0243, 0.3, 0.5, 0.9, 1 - 1e-9])
def test_the_normal_distribution_and_its_inverse_agree(share):
    from scipy.stats import norm

    assert _engine.normal_quantile(share) == pytest.approx(norm.ppf(share), rel=1e-13, abs=1e-15)
    assert _engine.normal_cdf(_engine.normal_quantile(share)) == pytest.approx(share, rel=1e-11)


def test_sharpe_tests_of_known_numbers():
    """Hand-worked: daily SR 0.1, skewness -1, kurtosis 5, 500 bars."""
    scale = math.sqrt(1 + 0.1 + 0.01)
    psr = _engine.probabilistic_sharpe(0.1, -1.0, 5.0, 500, 0.0)
    assert psr == pytest.approx(_engine.normal_cdf(0.1 * math.sqrt(499) / scale), rel=1e-14)
    bars = _engine.minimum_track_record(0.1, -1.0, 5.0, 500, 0.0, 0.95)
    assert bars == pytest.approx(1 + scale**2 * (1.6448536269514722 / 0.1) ** 2, rel=1e-12)
    # That many bars are just enough.
    assert (
        _engine.probabilistic_sharpe(0.1, -1.0, 5.0, 302, 0.0)
        > 0.95
        > (_engine.probabilistic_sharpe(0.1, -1.0, 5.0, 301, 0.0))
    )
    assert _engine.minimum_track_record(-0.1, -1.0, 5.0, 500, 0.0, 0.95) == math.inf
    assert math.isnan(_engine.probabilistic_sharpe(math.nan, 0.0, 3.0, 1, 0.0))


@pytest.mark.parametrize("seed", SEEDS)
def test_deflated_sharpe_and_overfitting_agree_with_ffn(seed):
    ffn = pytest.importorskip("ffn")
    import pandas as pd

    returns = noise(480, 12, seed) + 0.0004
    table = pd.DataFrame(returns, index=pd.bdate_range("2020-01-01", periods=480))
    ratios = returns.mean(0) / returns.std(0, ddof=1)
    sharpe, skewness, kurtosis, count = _engine.sharpe_sample(returns[:, 3].copy(), 0.0)
    threshold = _engine.expected_largest_sharpe(float(ratios.std(ddof=1)), 12)
    ours = _engine.probabilistic_sharpe(sharpe, skewness, kurtosis, count, threshold)
    theirs = ffn.core.calc_deflated_sharpe_ratio(
        table[3], ratios, nperiods=252, annualized_trials=False
    )
    # Its moments are corrected for bias, ours are those of the formula.
    assert ours == pytest.approx(theirs, abs=2e-3)
    found = _engine.backtest_overfitting(*_engine.block_sums(returns, 8))
    assert found[0] == ffn.core.calc_prob_backtest_overfitting(table, n_blocks=8)


def test_overfitting_agrees_with_a_plain_loop_over_all_halvings():
    returns = np.ascontiguousarray(noise(331, 7, seed=5))
    returns[:, 6] = returns[:, 2]  # copies of one trial share their rank
    blocks = np.array_split(returns, 10)
    expected = []
    for inside in itertools.combinations(range(10), 5):
        one = np.concatenate([blocks[i] for i in inside])
        other = np.concatenate([blocks[i] for i in range(10) if i not in inside])
        score, judged = (part.mean(0) / part.std(0, ddof=1) for part in (one, other))
        best = int(np.argmax(np.round(score, 12)))
        rank = (
            np.sum(judged < judged[best] - 1e-12)
            + (np.sum(np.abs(judged - judged[best]) < 1e-12) + 1) / 2
        )
        expected.append((math.log(rank / (8 - rank)), score[best], judged[best]))
    expected = np.array(sorted(expected))
    found = _engine.backtest_overfitting(*_engine.block_sums(returns, 10))
    assert np.array(sorted(zip(*found[3:], strict=True))) == pytest.approx(expected, abs=1e-9)
    assert found[0] == np.mean(expected[:, 0] <= 0)
    assert found[1] == np.mean(expected[:, 2] < 0)
    assert found[2] == pytest.approx(np.polyfit(expected[:, 1], expected[:, 2], 1)[0])


@pytest.mark.parametrize(("phi", "rows"), [(0.0, 60), (0.4, 400), (-0.3, 900), (0.8, 250)])
def test_the_block_length_is_that_of_arch(phi, rows):
    bootstrap = pytest.importorskip("arch.bootstrap")
    for seed in SEEDS:
        values = autoregressive(rows, phi, seed)
        theirs = bootstrap.optimal_block_length(values)["stationary"].iloc[0]
        ours = _engine.automatic_block_length(values)
        assert ours == pytest.approx(max(theirs, 1.0), rel=1e-9)


@pytest.mark.parametrize("block", [1.0, 7.5, 60.0])
def test_the_bootstrap_spreads_as_arch_does(block):
    bootstrap = pytest.importorskip("arch.bootstrap")
    returns = autoregressive(600, 0.3, 1) * 0.01 + 0.0005
    draws = _engine.bootstrap_figures(returns, 252.0, 0.0, 4000, block, 3)

    def figures(values):
        wealth = np.cumprod(1 + values)
        top = np.maximum.accumulate(np.maximum(wealth, 1.0))
        return np.array(
            [
                values.mean() / values.std(ddof=1) * math.sqrt(252),
                values.std(ddof=1) * math.sqrt(252),
                wealth[-1] ** (252 / values.size) - 1,
                (wealth / top).min() - 1,
            ]
        )

    theirs = bootstrap.StationaryBootstrap(block, returns, seed=1).apply(figures, 1500)
    error = 4 * theirs.std(0) * math.sqrt(1 / 1500 + 1 / 4000)
    assert np.all(np.abs(draws[:, :4].mean(0) - theirs.mean(0)) < error)
    assert draws[:, :4].std(0) == pytest.approx(theirs.std(0), rel=0.1)
    # The series itself, by the same code.
    assert _engine.path_figures(returns, 252.0, 0.0)[:4] == pytest.approx(figures(returns))


def test_draws_depend_on_the_seed_alone():
    returns = noise(300, seed=2)
    one = _engine.bootstrap_figures(returns, 252.0, 0.0, 50, 9.0, 7, threads=1)
    many = _engine.bootstrap_figures(returns, 252.0, 0.0, 50, 9.0, 7, threads=3)
    assert one.tobytes() == many.tobytes()
    assert _engine.bootstrap_figures(returns, 252.0, 0.0, 20, 9.0, 7).tobytes() == (
        one[:20].tobytes()
    )
    assert not np.array_equal(
        one, _engine.bootstrap_figures(returns, 252.0, 0.0, 50, 9.0, 8, threads=1)
    )
    # The numbers themselves: every machine draws these.
    known = _engine.draw_paths(np.arange(300) / 300.0, np.array([1, 2, 3]), NONE, 2, 9.0, 7)[0]
    assert (300 * known[:, 0] - 300).round().tolist() == [292.0, 7.0]
    # Paired: a second series sees the blocks of the first.
    both = _engine.bootstrap_figures(2 * returns, 252.0, 0.0, 50, 9.0, 7)
    assert both[:, 0] == pytest.approx(one[:, 0], rel=1e-9)


def test_intervals_of_known_draws():
    draws = np.arange(1001.0)
    interval = _engine.bootstrap_interval
    none = np.empty(0)
    assert interval(draws, 400.0, 0.9, "percentile", none) == pytest.approx((50.0, 950.0))
    assert interval(draws, 400.0, 0.9, "basic", none) == pytest.approx((-150.0, 750.0))
    # No bias and no skewness: the corrected interval is the plain one.
    level = interval(draws, 500.5, 0.9, "bca", np.array([-1.0, 0.0, 1.0]))
    assert level == pytest.approx((50.0, 950.0), abs=2)
    bootstrap = pytest.importorskip("arch.bootstrap")
    values = np.random.default_rng(4).lognormal(size=80)
    other = bootstrap.IIDBootstrap(values, seed=2)
    theirs = other.conf_int(np.mean, 4000, method="bca")[:, 0]
    means = other.apply(np.mean, 4000)[:, 0]
    jackknife = (values.sum() - values) / 79
    assert interval(means, values.mean(), 0.95, "bca", jackknife) == pytest.approx(
        tuple(theirs), rel=0.05
    )


@pytest.mark.parametrize("skill", [0.0, 0.0009])
def test_superiority_agrees_with_arch(skill):
    bootstrap = pytest.importorskip("arch.bootstrap")
    table = noise(500, 30, seed=8)
    table[:, 4] += skill
    table[:, 9] -= 0.004  # clearly worse: it must not matter to the consistent p-value
    theirs = bootstrap.SPA(np.zeros(500), -table, block_size=5, reps=3000, seed=1)
    theirs.compute()
    _, lower, consistent, upper, reality = _engine.superiority_test(table, 3000, 5.0, 1)
    found = {"lower": lower, "consistent": consistent, "upper": upper}
    for name, value in theirs.pvalues.items():
        error = 4 * math.sqrt(0.5 * value * (1 - value) / 750) + 0.01
        assert found[name] == pytest.approx(value, abs=error), name
    assert lower <= consistent <= upper
    assert 0.0 <= reality <= 1.0
    deviations = _engine.bootstrap_deviations(table, 5.0)
    means = _engine.bootstrap_figures(table[:, 4].copy(), 1.0, 0.0, 4000, 5.0, 1)
    spread = (means[:, 0] * means[:, 1]).std() * math.sqrt(500)  # Sharpe times volatility
    assert deviations[4] == pytest.approx(spread, rel=0.06)


def test_only_the_models_with_skill_are_found_superior():
    table = noise(800, 40, seed=3)
    table[:, [5, 11]] += 0.003
    assert list(_engine.superior_models(table, 0.05, 500, 4.0, 0)) == [5, 11]
    assert list(_engine.superior_models(noise(800, 40, seed=3), 0.05, 500, 4.0, 0)) == []


def test_effective_trials_between_copies_and_independence():
    one = noise(4000, seed=1)
    copies = np.ascontiguousarray(np.column_stack([one, 2 * one, one + 1e-3, np.zeros(4000)]))
    assert _engine.effective_trials(copies) == pytest.approx(1.0)
    assert _engine.effective_trials(noise(4000, 5, 1)) == pytest.approx(5.0, rel=0.01)
    wide = noise(20, 60, 1)
    values = np.linalg.eigvalsh(np.corrcoef(wide.T))
    assert _engine.effective_trials(wide) == pytest.approx(values.sum() ** 2 / (values**2).sum())


def test_autocorrelation_in_the_ratio_and_in_the_mean():
    returns = autoregressive(3000, 0.3, 4)
    rho = [np.sum((c := returns - returns.mean())[k:] * c[: c.size - k]) / (c @ c) for k in (1, 2)]
    expected = 252 / math.sqrt(252 + 2 * (251 * rho[0] + 250 * rho[1]))
    assert _engine.autocorrelated_scale(returns, 252.0, 2) == pytest.approx(expected)
    assert _engine.autocorrelated_scale(returns, 252.0, 0) == pytest.approx(math.sqrt(252))
    api = pytest.importorskip("statsmodels.api")
    fitted = api.OLS(returns, np.ones(3000)).fit(cov_type="HAC", cov_kwds={"maxlags": 9})
    assert _engine.mean_t_statistic(returns, 9) == pytest.approx(float(fitted.tvalues[0]))


def test_drawn_paths_hold_what_they_say():
    wealth, deepest, longest = _engine.draw_paths(
        np.array([0.1, -0.5, 0.0]), np.array([0, 3, 6]), np.array([2, 6]), 200, 3.0, 1
    )
    assert wealth.shape == (200, 3)
    first = _engine.draw_paths(np.array([0.1, -0.5, 0.0]), NONE, np.array([2]), 200, 3.0, 1)
    assert np.array_equal(first[1][:, 0], deepest[:, 0])  # a path begins as a longer one does
    assert np.array_equal(first[2][:, 0], longest[:, 0])
    assert np.all(deepest[:, 1] <= deepest[:, 0])
    deepest, longest = deepest[:, 1], longest[:, 1]
    assert np.all(wealth[:, 0] == 1.0)
    assert set(np.round(deepest, 12)) <= {0.0, *np.round([0.5**k - 1 for k in range(1, 7)], 12)} | {
        round(1.1**j * 0.5**k - 1, 12) for j in range(6) for k in range(1, 7)
    }
    assert np.all((longest >= 0) & (longest <= 6))
    assert np.all((deepest == 0) == (longest == 0))


@pytest.mark.parametrize(
    ("call", "text"),
    [
        (lambda: _engine.bootstrap_figures(np.array([np.nan]), 252.0, 0.0, 5, 1.0, 0), "missing"),
        (lambda: _engine.bootstrap_figures(noise(5), 252.0, 0.0, 5, 0.5, 0), "between 1 and"),
        (lambda: _engine.bootstrap_figures(noise(5), 252.0, 0.0, 5, 6.0, 0), "between 1 and"),
        (lambda: _engine.superiority_test(noise(1, 2), 5, 1.0, 0), "two rows"),
        (lambda: _engine.backtest_overfitting(*_engine.block_sums(noise(9, 2), 3)), "even"),
        (lambda: _engine.backtest_overfitting(*_engine.block_sums(noise(90, 2), 22)), "2 to 20"),
        (lambda: _engine.block_sums(noise(5, 2), 6), "one row for each block"),
        (lambda: _engine.draw_paths(noise(5), np.array([4, 3]), NONE, 1, 1.0, 0), "must ascend"),
    ],
)
def test_what_cannot_be_is_said(call, text):
    with pytest.raises(ValueError, match=text):
        call()


def test_the_undefined_is_nan():
    nan = math.isnan
    assert nan(_engine.sharpe_sample(np.full(10, 0.01), 0.0)[0])
    assert nan(_engine.sharpe_sample(np.array([0.1]), 0.0)[0])
    assert nan(_engine.superiority_test(np.zeros((10, 2)), 5, 1.0, 0)[0])
    assert nan(_engine.backtest_overfitting(*_engine.block_sums(noise(10, 1)[:, None], 2))[0])
    assert nan(_engine.effective_trials(np.zeros((10, 2))))
    assert nan(_engine.expected_largest_sharpe(0.1, 0.5))
    assert nan(_engine.mean_t_statistic(np.full(10, 0.01), 2))
    assert _engine.expected_largest_sharpe(0.1, 1.0) == 0.0
    assert _engine.automatic_block_length(np.full(50, 0.01)) == 1.0


@pytest.mark.slow
def test_without_skill_the_p_values_are_uniform_and_the_intervals_cover():
    """Calibration: 1,600 worlds of noise with a known truth."""
    worlds = 1600
    psr, spa, covered, overfit = [], [], 0, []
    for seed in range(worlds):
        returns = noise(750, 4, seed=10_000 + seed)
        sample = _engine.sharpe_sample(returns[:, 0].copy(), 0.0)
        psr.append(_engine.probabilistic_sharpe(*sample, 0.0))
        if seed < worlds // 4:
            spa.append(_engine.superiority_test(returns, 300, 2.0, seed)[2])
        draws = _engine.bootstrap_figures(
            returns[:, 0].copy(), 252.0, 0.0, 999, 1.0, seed, moments_only=True
        )
        observed = sample[0] * math.sqrt(252)
        low, high = _engine.bootstrap_interval(
            draws[:, 0].copy(), observed, 0.95, "percentile", np.empty(0)
        )
        covered += low < 0.0 < high
        if seed < 60:
            overfit.append(_engine.backtest_overfitting(*_engine.block_sums(returns, 10))[0])
    for values in (psr, spa):  # Kolmogorov and Smirnov's distance, 1 % critical value
        grid = np.arange(1, len(values) + 1) / len(values)
        assert np.max(np.abs(np.sort(values) - grid)) < 1.63 / math.sqrt(len(values))
    assert 0.93 <= covered / worlds <= 0.97
    assert np.mean(overfit) == pytest.approx(0.5, abs=0.06)
