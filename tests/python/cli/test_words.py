"""What the commands say: their help, the summary in both languages, names of strangers."""

import os
import re
import subprocess
import sys
from pathlib import Path
from typing import Annotated, Literal

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.cli.command_words import read_words
from corvex.cli.declared import Argument, Option, read_parameters
from corvex.cli.report_tables import print_table
from corvex.cli.saved import labels_of, target_file, title_of
from corvex.plaintext import PlainStream, printable
from corvex.significance.words import rows

EVIL = "A\x1b]52;c;ZXZpbA==\x07\x1b[2J\u202e\x9b1\u2028\r\nvalid"


@pytest.fixture
def saved(tmp_path):
    """Save a report with names that try to steer the terminal."""
    dates = pd.bdate_range("2023-01-02", periods=90)
    steps = np.random.default_rng(2).normal(0.001, 0.03, (90, 2)).cumsum(axis=0)
    prices = pd.DataFrame(50 * np.exp(steps), dates, [EVIL, "B"])
    report = corvex.simulate(
        prices.rank(axis=1) >= 2, prices, resample="ME", market="us_stock", fee_ratio=0.001,
        benchmark=prices["B"].rename(EVIL), name=EVIL, live_performance_start=dates[60],
    )  # fmt: skip
    report.to_pickle(str(tmp_path / "r.pkl"))
    prices.iloc[-1].rename_axis("asset").to_frame("price").reset_index().to_parquet("p.parquet")
    return report


def test_help_wraps_at_words_and_shows_no_types(run, monkeypatch):
    monkeypatch.setenv("COLUMNS", "80")
    status, out, _ = run("--help")
    assert run("-h")[:2] == (status, out)
    assert run("show", "-h") == run("show", "--help")
    commands = re.findall(r"^  ([a-z]+)  ", out.partition("Commands:")[2], re.M)
    assert (status, len(commands) >= 10, "..." in out.partition("Commands:")[2]) == (0, True, False)
    for command in commands:
        status, out, _ = run(command, "--help")
        assert status == 0
        assert not re.search(r"<|Path|-$", out, re.M)
        assert max(map(len, out.splitlines())) <= 80
    monkeypatch.setenv("COLUMNS", "40")
    assert max(map(len, run("show", "--help")[1].splitlines())) <= 40


def test_help_and_version_load_no_pandas():
    code = "import sys, corvex.cli as c; c.run(['--help']); print(*sys.modules)"
    out = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True)
    assert not {"pandas", "numpy", "rich", "requests"} & set(out.stdout.split())
    code = "import corvex, pandas; pandas.Series([1.0, 2.0]).rebase(); print(dir(corvex))"
    out = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True)
    assert set(corvex.__all__) < set(eval(out.stdout))
    assert not {"importlib", "annotations", "Any"} & set(eval(out.stdout))


def test_summary_agrees_with_the_statistics_in_both_languages(run, saved, monkeypatch):
    stats, market = saved.get_stats(riskfree_rate=0.05), saved.get_benchmark_stats(0.05)
    chinese = run("show", "r.pkl", "--lang", "zh_TW", "--riskfree", "0.05")[1]
    english = run("show", "r.pkl", "--riskfree", "0.05", "--html", "p.html")[1]
    assert '"riskfree":0.05,' in Path("p.html").read_text(encoding="utf-8")
    ratio = saved.get_metrics(riskfree_rate=0.05)["ratio"]["sharpeRatio"]
    assert f" {ratio:.2f} " in run("show", "r.pkl", "--riskfree", "0.05", "--metrics")[1]
    for text, label in ((chinese, "年複合成長率 (CAGR)"), (english, "CAGR")):
        rows = {line[:20].split("  ")[0]: line.split() for line in text.splitlines() if line}
        assert rows[label][-2:] == [f"{stats['cagr']:.2%}", f"{market['cagr']:.2%}"]
        sharpe = [f"{figures['daily_sharpe']:.2f}" for figures in (stats, market)]
        assert any(line.split()[-2:] == sharpe for line in text.splitlines())
        assert stats["drawdown_details"][0]["valley"] in text
    monkeypatch.setenv("LC_ALL", "zh_TW.UTF-8")
    assert "最大回撤" in run("show", "r.pkl")[1]
    fixed = saved.to_text(name=printable(EVIL)).partition("📋")[0]
    assert run("show", "r.pkl", "--text")[1].startswith(fixed)
    assert repr(saved) == f"<Report {EVIL!r}: 2023-01-31 to 2023-05-05, CAGR {stats['cagr']:.2%}>"
    assert repr(saved) in repr(saved.metrics)
    assert repr(object.__new__(corvex.Report)).startswith("<corvex.core.report.Report object")
    assert "must be one of en, zh-Hant, got 'fr'" in run("show", "r.pkl", "--lang", "fr")[2]


def test_confidence_is_told_in_both_languages_and_left_out_of_the_page(run, saved, tmp_path):
    for language in ("en", "zh-Hant"):
        status, out, _ = run("show", "r.pkl", "--confidence", "--trials", 7, "--lang", language)
        told = rows(corvex.confidence(corvex.Report.from_pickle("r.pkl"), 7), language)
        assert (status, len(told) > 4) == (0, True)
        for _, text in told:
            assert "".join(text.split()) in "".join(out.split())
    run("show", "r.pkl", "--html", "with.html")
    run("show", "r.pkl", "--html", "without.html", "--no-confidence")
    with_, without = (
        '"confidence":null' not in (tmp_path / name).read_text(encoding="utf-8")
        for name in ("with.html", "without.html")
    )
    assert (with_, without) == (True, False)


def test_tables_speak_chinese_but_for_what_users_name(run, saved, tmp_path):
    english, chinese = (
        set(
            re.findall(
                r"\b[A-Za-z]+\b", run("show", "r.pkl", "--trades", "--live", "--lang", lang)[1]
            )
        )
        for lang in ("en", "zh-Hant")
    )
    words = set("asset entry exit reason question answer no next weights since".split())
    assert words <= english
    assert not words & chinese
    prices = corvex.data.sample("us_stocks").iloc[-300:]
    corvex.sweep(
        lambda prices, weight: prices.notna() * weight / 20, prices, signal={"weight": [0.5, 1.0]},
        market="us_stock", store=tmp_path / "s",
    )  # fmt: skip
    status, out, _ = run("show", tmp_path / "s", "--lang", "zh-Hant")
    assert (status, "：2 個組合中 daily_sharpe 最佳的 2 個" in out) == (0, True)
    assert re.search("weight .*夏普率 .*最大回撤", out)


def test_names_of_strangers_steer_no_terminal(run, saved):
    for arguments in (
        ["show", "r.pkl"],
        ["show", "r.pkl", "--text", "--metrics", "--trades", "--live"],
        ["compare", "r.pkl", "r.pkl"],
        ["orders", "r.pkl", "--capital", "10000", "--prices", "p.parquet"],
        ["export", "r.pkl", "--out", "r.json"],
        ["inspect", "r.json"],
        ["report", "r.json\x1b[2J"],
    ):
        status, out, err = run(*arguments)
        assert status == (arguments[0] == "report"), err
        assert not re.search(r"[\x00-\x08\x0b-\x1f\x7f-\x9f\u2028\u202e]", out + err)
    lines = run("inspect", "r.json")[1].splitlines()
    assert sum(line.startswith("valid") for line in lines) == 1


def test_names_are_no_markup_and_files_are_told_apart(capsys):
    print_table("[/x]", ["[b]head"], [["[i]cell"]])
    assert re.findall(r"\[\S+", capsys.readouterr().out) == ["[/x]", "[b]head", "[i]cell"]
    files = [Path(name) for name in ("v1.2.csv", "v1.3.csv.gz", os.fsdecode(b"\xff.pkl"), ".csv")]
    assert [title_of(file) for file in files] == ["v1.2", "v1.3", "\ufffd", ".csv"]
    assert labels_of(files[:3], [object()] * 3) == ["v1.2", "v1.3", "\ufffd"]
    assert target_file(Path(), "fast/slow.html") == Path("fast-slow.html").absolute()


def test_a_guarded_stream_keeps_lines_and_colours(capsys):
    PlainStream(sys.stdout).write("\x1b[36mline\x1b[0m\n\ttab\x1b[8mhidden\x1b[1;33mbold\x1b[2J")
    expected = "\x1b[36mline\x1b[0m\n\ttab\\x1b[8mhidden\x1b[1;33mbold\\x1b[2J"
    assert capsys.readouterr().out == expected


@pytest.mark.parametrize(
    ("line", "message"),
    [
        ("dance", "there is no command 'dance'"),
        ("shwo", "did you mean 'show'?"),
        ("--loud", "not known here: --loud"),
        ("show", "required: FILE"),
        ("show a.pkl b.pkl", "not known here: b.pkl"),
        ("show --htm p.html a.pkl", "not known here: --htm; did you mean --html?"),
        ("compare --trust --", "required: FILE..."),
        ("show a.pkl --width wide", "--width: must be a whole number, got 'wide'"),
        ("show a.pkl --width 5", "--width: must be at least 20, got '5'"),
        ("show a.pkl --riskfree high", "--riskfree: must be a number, got 'high'"),
        ("export a.pkl --out x --format zip", "must be one of payload, holdings,"),
        ("simulate w.csv", "required: --prices"),
        ("", "Usage: corvex [OPTIONS] COMMAND"),
    ],
)
def test_wrong_command_lines_say_what_is_accepted(run, line, message):
    status, out, err = run(*line.split())
    assert (status, out) == (2, "")
    assert message in err
    assert "Try 'corvex" in err or not line


def test_words_become_the_arguments_of_a_function(run, monkeypatch):
    def command(
        files: Annotated[list[Path], Argument(help="Files.")],
        rate: Annotated[float, Option("--rate", "--r", help="Rate.")] = 0.5,
        level: Annotated[Literal["low", "high"] | None, Option(help="Level.")] = None,
        pairs: Annotated[list[str] | None, Option("--pair", help="Pairs.")] = None,
        keep: Annotated[bool, Option(help="Keep.")] = True,
    ) -> None:
        raise {"stop": KeyboardInterrupt, "full": BrokenPipeError}[files[0].name]

    parameters = read_parameters(command)
    line = "a --rate -0.25 b --pair x=1 --level=high --pair y --no-keep -- -c"
    assert read_words(parameters, line.split()) == {
        "files": [Path("a"), Path("b"), Path("-c")], "rate": -0.25, "level": "high",
        "pairs": ["x=1", "y"], "keep": False,
    }  # fmt: skip
    assert read_words(parameters, ["a", "--r", "1"]) == {"files": [Path("a")], "rate": 1.0}
    assert read_words(parameters, ["--", "--r"]) == {"files": [Path("--r")]}
    monkeypatch.setattr("corvex.cli.application.load", lambda _: command)
    assert [run("show", file) for file in ("stop", "full")] == [(130, "", "\n"), (1, "", "")]
