"""The namespace, the order of loading, the helpers."""

import datetime
import importlib
import json
import os
import re
import subprocess
import sys
import textwrap
from importlib.machinery import EXTENSION_SUFFIXES

import numpy as np
import pandas as pd
import pytest

NAMES = """
    Iterable iter_modules cached_property lru_cache pd np importlib datetime string random base64
    socket html time math json gzip sys re os corvex get_token data ffn_core logger requests Market
    get_market_by_name TWMarket get_tmp_dir default_serialize generate_html Metrics to_wire_trades
    firestore_rest interpret_legacy_upload_response post_legacy_upload_pyodide_no_cors
    resolve_upload_name pickle copy CustomUnpickler query_data_int64 query_data_int32 CustomEncoder
    is_in_vscode daily_return safe_division calc_cagr server_port REPORT_SCHEMA_VERSION
    REPORT_PAYLOAD_SCHEMA_VERSION REPORT_EXECUTION_SCHEMA_VERSION REPORT_HOLDINGS_SCHEMA_VERSION
    LEGACY_AUTH_GET_STRATEGY_URL LEGACY_WRITE_DATABASE_URL STATS_METRIC_ALIASES
    _force_legacy_upload find_latest_file _safe_utc_timestamp _safe_iso_datetime
    _parse_iso_datetime ReportExecution start_server check_environment Report
""".split()

ALIASES = """cagr annualReturn max_drawdown maxDrawdown avg_drawdown avgDrawdown avg_drawdown_days
    avgDrawdownDays daily_sharpe sharpeRatio daily_sortino sortinoRatio calmar calmarRatio daily_vol
    volatility twelve_month_win_perc m12WinRate""".split()


def run_in_host(code):
    paths = f"import sys; sys.path[:] = {sys.path!r}\n"
    command = [sys.executable, "-S", "-c", paths + textwrap.dedent(code)]
    environment = {**os.environ, "LC_ALL": "C.UTF-8"}
    done = subprocess.run(
        command, capture_output=True, text=True, timeout=300, check=False, env=environment
    )
    assert done.returncode == 0, done.stderr
    return done.stdout


def test_namespace_holds_the_agreed_names_in_order_of_loading_and_no_others(module):
    own = [name for name in vars(module) if not (name.startswith("__") and name.endswith("__"))]
    assert own == NAMES
    assert module.__file__.endswith(tuple(EXTENSION_SUFFIXES))
    assert module.server_port is None
    assert module._force_legacy_upload is False
    versions = {name: value for name, value in vars(module).items() if "SCHEMA_VERSION" in name}
    assert list(versions.values()) == [
        f"report.{kind}v1" for kind in ("", "payload.", "execution.", "holdings.")
    ]
    assert module.ReportExecution.SCHEMA_VERSION == module.REPORT_EXECUTION_SCHEMA_VERSION
    for address, end in (("AUTH_GET_STRATEGY", "auth_get_strategy"), ("WRITE_DATABASE", "write_d")):
        assert re.match(f"https://.*/{end}", getattr(module, f"LEGACY_{address}_URL"))
    aliases = list(zip(ALIASES[::2], ALIASES[1::2], strict=True))
    assert list(module.STATS_METRIC_ALIASES.items()) == aliases


@pytest.mark.parametrize(
    ("address", "host"),
    [("", "https://cloud.corvex.example"), ("http://127.0.0.1:8/a/", "http://127.0.0.1:8/a")],
)
def test_only_a_safe_address_of_the_legacy_service_is_taken(address, host):
    output = run_in_host(f"""
        import os, warnings
        warnings.simplefilter("error")
        for address in ("http://h.example", "ftp://h", "https://", {address!r}):
            os.environ["CORVEX_LEGACY_URL"] = address
            try:
                import corvex.core.report as module
                print(module.LEGACY_WRITE_DATABASE_URL)
            except UserWarning as warning:
                print("warned")
        """)
    assert output.split() == ["warned"] * 3 + [f"{host}/write_database"]


def test_a_missing_sibling_fails_at_its_own_import_and_the_next_try_starts_afresh():
    """A member is taken away: the load must get just that far, and no further."""
    output = run_in_host("""
        import corvex.markets.tw, corvex.utils
        for host, name in ((corvex, "get_token"), (corvex.utils, "get_tmp_dir"),
                           (corvex.utils, "logger"), (corvex.markets.tw, "TWMarket")):
            kept = vars(host).pop(name)
            try:
                import corvex.core.report
            except ImportError as error:
                print(name in error.msg)
            assert "corvex.core.report" not in sys.modules
            setattr(host, name, kept)
        import corvex.core.report
        print(corvex.core.report.Report.__name__)
        """)
    assert output.split() == ["True"] * 4 + ["Report"]


def test_second_initialisation_is_refused_and_reload_does_nothing(module):
    assert importlib.reload(module) is module
    del sys.modules[module.__name__]
    try:
        with pytest.raises(RuntimeError) as refused:
            importlib.import_module(module.__name__)
    finally:
        sys.modules[module.__name__] = module
    assert str(refused.value) == (
        "Module 'report' has already been imported. Re-initialisation is not supported."
    )
    assert module.safe_division(1, 2) == 0.5


def test_divisions_and_growth_guard_against_nothing(module):
    assert [module.safe_division(5, d) for d in (0, None, "", 2)] == [0, 0, 0, 2.5]
    days = pd.to_datetime(["2023-01-01", "2024-01-01"])
    growth = module.calc_cagr(pd.Series([0.1, 0.1], index=days))
    assert growth == pytest.approx(1.21 ** (365.25 / 365) - 1, rel=1e-14)
    same_day = pd.Series([0.1, 0.1], index=pd.to_datetime(["2024-01-01 09:00", "2024-01-01 10:00"]))
    assert module.calc_cagr(same_day) == 0
    with pytest.raises(IndexError):
        module.calc_cagr(pd.Series(dtype=float, index=pd.DatetimeIndex([])))


def test_daily_return_keeps_the_last_value_of_days_with_data(module):
    times = pd.to_datetime(["2024-01-01 09:00", "2024-01-01 15:00", "2024-01-04 09:00"])
    returns = module.daily_return(pd.Series([1.0, 2.0, 3.0], index=times))
    assert str(returns.to_dict()) == str({times[0].normalize(): np.nan, times[2].normalize(): 0.5})


def test_latest_file_is_matched_from_the_start_of_its_name(module, tmp_path, monkeypatch):
    ages = {"report_1.pkl": 1, "report.html": 3, "old_report.pkl": 9, "report_2.pkl": 3}
    for name in ages:
        (tmp_path / name).touch()
    monkeypatch.setattr(os.path, "getctime", lambda path: ages[os.path.basename(path)])
    monkeypatch.setattr(os, "listdir", lambda directory: list(ages))
    assert module.find_latest_file(tmp_path, "report") == "report.html"
    assert module.find_latest_file(directory=tmp_path, pattern="old") == "old_report.pkl"
    with pytest.raises(FileNotFoundError, match="^No file found matching pattern 'x.*'$"):
        module.find_latest_file(tmp_path, "x.*")


def test_dates_go_out_and_come_back(module):
    aware = datetime.datetime(2024, 1, 2, 3, tzinfo=datetime.UTC)
    for value in (aware, pd.Timestamp(aware)):
        assert module._safe_utc_timestamp(value) == aware.timestamp()
        assert module._safe_iso_datetime(value) == "2024-01-02T03:00:00+00:00"
        back = module._parse_iso_datetime(module._safe_iso_datetime(value))
        assert back == aware
        assert type(module._parse_iso_datetime(value)) is datetime.datetime
    assert module._parse_iso_datetime(aware) is aware
    for nothing in (None, "2024-01-02", datetime.date(2024, 1, 2), 5):
        assert module._safe_utc_timestamp(nothing) is module._safe_iso_datetime(nothing) is None
    epoch = datetime.datetime(1970, 1, 1, tzinfo=datetime.UTC)
    assert module._parse_iso_datetime(0) == module._parse_iso_datetime(False) == epoch
    assert module._parse_iso_datetime(np.float64(0.5)).microsecond == 500_000
    assert module._parse_iso_datetime("2024-01-02") == datetime.datetime(2024, 1, 2)
    assert module._parse_iso_datetime(None) is None
    with pytest.raises(ValueError, match=r"^Unsupported datetime value: \['x'\]$"):
        module._parse_iso_datetime(["x"])
    with pytest.raises(ValueError, match="Invalid isoformat string"):
        module._parse_iso_datetime("soon")


def test_encoder_converts_int64_alone(module):
    assert json.dumps({"a": np.int64(3)}, cls=module.CustomEncoder) == '{"a": 3}'
    for value in (np.int32(1), pd.Timestamp(0), np.zeros(1)):
        with pytest.raises(TypeError, match="is not JSON serializable"):
            json.dumps(value, cls=module.CustomEncoder)


def test_front_ends_are_told_from_the_environment(module, monkeypatch):
    for name in [n for n in os.environ if re.search("VSCODE|JPY_|JUPYTERHUB_|COLAB_", n)]:
        monkeypatch.delenv(name)
    assert module.check_environment() is None
    monkeypatch.setenv("vscode_pid", "VSCODE")
    assert module.is_in_vscode() is False
    for variable, front_end in (
        *(("JPY_PARENT_PID", "Jupyter Notebook"), ("JUPYTERHUB_SERVICE_PREFIX", "Jupyter Lab")),
        *(("VSCODE_PID", "VSCode"), ("COLAB_GPU", "Google Colab")),
    ):
        monkeypatch.setenv(variable, "")
        assert module.check_environment() == front_end
    assert module.is_in_vscode() is True


def test_preview_server_serves_the_temporary_folder_on_this_machine_only():
    output = run_in_host("""
        import os, socket, tempfile, threading, time, urllib.request
        folder = os.path.realpath(tempfile.mkdtemp())
        open(os.path.join(folder, "page.html"), "w").write("hello")
        import corvex.core.report as report
        report.get_tmp_dir = lambda: folder
        before = set(threading.enumerate())
        assert report.start_server() is None
        thread, = set(threading.enumerate()) - before
        for _ in range(100):
            try:
                url = f"http://127.0.0.1:{report.server_port}/page.html"
                page = urllib.request.urlopen(url, timeout=5)
                break
            except OSError:
                time.sleep(0.05)
        strange = urllib.request.Request(url, headers={"Host": "strange.example"})
        try:
            urllib.request.urlopen(strange, timeout=5)
        except urllib.error.HTTPError as error:
            print(error.code)
        print(page.read().decode(), os.getcwd() == folder, type(report.server_port).__name__)
        sys.stdout.flush()
        os._exit(0)
        """)
    assert output.splitlines()[-2:] == ["421", "hello True int"]
