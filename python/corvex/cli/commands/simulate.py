"""``corvex simulate``: weights and prices from files, simulated."""

from __future__ import annotations

from pathlib import Path
from typing import Annotated, Literal

from corvex.cli.declared import Argument, Option
from corvex.cli.parameters import (
    Confidence,
    Html,
    Lang,
    MarketName,
    MaxSize,
    Out,
    Prices,
    RiskFree,
    Text,
    Trials,
    Width,
)
from corvex.cli.saved import title_of

__all__ = ["simulate"]


def simulate(
    weights: Annotated[
        Path,
        Argument(
            help="CSV, workbook or Parquet: dates, and an asset's weights in each other column, or"
            " true and false to share equally among the true."
        ),
    ],
    prices: Prices,
    resample: Annotated[
        str | None,
        Option(
            help="When to rebalance, such as D, W-FRI, ME or QE; whenever the weights change by"
            " default."
        ),
    ] = None,
    resample_offset: Annotated[
        str | None, Option(help="How much later than that, such as 2D.")
    ] = None,
    trade_at: Annotated[
        Literal["close", "open", "high", "low", "ohlc"], Option(help="Where orders fill.")
    ] = "close",
    fee: Annotated[
        float | None,
        Option(
            "--fee",
            "--fee-ratio",
            help="Fee on each side, a fraction of the traded value; the market's by default.",
        ),
    ] = None,
    tax: Annotated[
        float | None,
        Option("--tax", "--tax-ratio", help="Tax on sales, a fraction; the market's by default."),
    ] = None,
    slippage: Annotated[
        float,
        Option(
            "--slippage",
            "--slippage-ratio",
            help="How much worse than the price orders fill, a fraction.",
        ),
    ] = 0.0,
    stop_loss: Annotated[
        float | None, Option(help="Sell what lost this fraction of its first fill price.")
    ] = None,
    take_profit: Annotated[
        float | None, Option(help="Sell what won this fraction of its first fill price.")
    ] = None,
    trail_stop: Annotated[
        float | None, Option(help="Sell what fell by this fraction from its best price.")
    ] = None,
    touched_exit: Annotated[
        bool,
        Option("--touched-exit", help="Stops fill within the session; needs high and low prices."),
    ] = False,
    stop_cooldown: Annotated[
        int, Option(min=0, help="How many rebalances a stopped asset stays out of.")
    ] = 0,
    position_limit: Annotated[
        float | None, Option(help="The largest absolute weight of one asset.")
    ] = None,
    leverage: Annotated[bool, Option("--leverage", help="Let weights sum to more than 1.")] = False,
    account: Annotated[
        Path | None,
        Option(
            help="TOML or JSON with the terms of an account: capital, cash_rate, lot_size, min_fee"
            " and more."
        ),
    ] = None,
    start: Annotated[str | None, Option(help="First date of the run.")] = None,
    end: Annotated[str | None, Option(help="Last date of the run.")] = None,
    live_start: Annotated[
        str | None, Option(help="From when on the strategy has been traded live.")
    ] = None,
    benchmark: Annotated[
        str | None, Option(help="A file, or a built-in sample; the market's by default.")
    ] = None,
    market: MarketName = None,
    name: Annotated[
        str | None, Option(help="Name of the strategy; the weights file's by default.")
    ] = None,
    out: Out = None,
    html: Html = None,
    width: Width = None,
    text: Text = False,
    lang: Lang = None,
    riskfree: RiskFree = None,
    confidence: Confidence = None,
    trials: Trials = None,
    max_size: MaxSize = 200,
) -> None:
    """Simulate a table of weights and report on it.

    The weights of a date are filled on the first session after it. Rows hold until the next one.
    """
    from corvex.cli.given_inputs import account_of, benchmark_of, prices_of, weights_of
    from corvex.cli.shown import Delivery
    from corvex.cli.summary import language

    title = name or title_of(weights)
    delivery = Delivery(
        title=title, lang=language(lang), width=width, text=text, riskfree=riskfree,
        confidence=confidence, trials=trials, out=out, html=html,
    ).check()  # fmt: skip
    table = weights_of(weights, max_size)
    given = prices_of(prices, max_size)
    beside = None if benchmark is None else benchmark_of(benchmark, max_size)
    terms = None if account is None else account_of(account, max_size)
    import corvex

    delivery.deliver(
        corvex.simulate(
            table, given, resample=resample, resample_offset=resample_offset, trade_at=trade_at,
            fee_ratio=fee, tax_ratio=tax, slippage_ratio=slippage, stop_loss=stop_loss,
            take_profit=take_profit, trail_stop=trail_stop, touched_exit=touched_exit,
            stop_cooldown=stop_cooldown, position_limit=position_limit, leverage=leverage,
            start=start, end=end, market=market, benchmark=beside,
            live_performance_start=live_start, name=title, account=terms,
        )
    )  # fmt: skip
