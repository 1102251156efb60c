"""The page as a text: nothing of the user's is markup, nothing is fetched, and it stays small."""

import base64
import html
import json
import os
import re
import time
import zlib
from html.parser import HTMLParser

import pandas as pd
import pytest
from dashboard_reports import HOSTILE, bare_report

from corvex.core.dashboard import generate_html
from corvex.core.dashboard.embed import pack_json, safe_json
from corvex.core.dashboard.page import plotly_script
from corvex.core.dashboard.page import report_page as page


class Reader(HTMLParser):
    """Collects the elements, and the text of each script by its id or type."""

    def __init__(self, text):
        super().__init__()
        self.tags, self.scripts, self.headings, self.open = [], {}, [], None
        self.feed(text)
        self.close()

    def handle_starttag(self, tag, attrs):
        self.tags.append((tag, dict(attrs)))
        self.open = tag
        if tag == "script":
            self.name = dict(attrs).get("id") or dict(attrs)["type"]

    def handle_endtag(self, tag):
        self.open = None

    def handle_data(self, data):
        if self.open == "script":
            self.scripts[self.name] = self.scripts.get(self.name, "") + data
        elif self.open in ("h1", "title"):
            self.headings.append(data)


def unpacked(text):
    return json.loads(zlib.decompress(base64.b64decode(text), -15))


def test_hostile_names_are_text_and_nothing_else(simulated):
    plain = Reader(generate_html(bare_report(simulated.creturn), title="x"))
    read = Reader(generate_html(simulated, title=HOSTILE))
    assert [tag for tag, _ in read.tags] == [tag for tag, _ in plain.tags]
    assert "".join(read.headings) == HOSTILE * 2
    assert json.loads(read.scripts["facts"])["meta"]["name"] == HOSTILE
    assert not re.search("[<>&\u2028\u2029]", read.scripts["facts"])
    labels = unpacked(read.scripts["series"])["trades"]["assets"]
    assert any(label.startswith(HOSTILE) for label in labels)


def test_the_policy_names_the_scripts_and_nothing_is_fetched(simulated):
    read = Reader(generate_html(simulated))
    policy = next(a["content"] for _, a in read.tags if a.get("http-equiv"))
    assert page._source_hash(read.scripts["module"]) in policy
    assert plotly_script.plotly_script().source_hash in policy
    assert policy.startswith("default-src 'none';")
    assert not [a for _, a in read.tags if "src" in a or a.get("href", "#")[0] != "#"]
    assert not [name for _, a in read.tags for name in a if name.startswith("on")]


def test_the_frame_carries_the_page(simulated):
    (tag, attributes), *others = Reader(
        generate_html(simulated, with_iframe=True, title="<&>")
    ).tags
    assert (tag, others) == ("iframe", [])
    assert attributes["title"] == "<&>"
    assert attributes["sandbox"].split() == ["allow-scripts", "allow-downloads", "allow-modals"]
    assert Reader(attributes["srcdoc"]).headings == ["<&>", HOSTILE]


def test_ten_years_and_ten_thousand_trades_stay_small(many_trades):
    text = generate_html(many_trades)
    assert len(text.encode()) <= 2_500_000
    assert unpacked(Reader(text).scripts["series"])["trades"]["count"] == 10_000


def test_the_chart_script_loses_its_wrapper_and_keeps_its_licence():
    # A new form of the wrapper does no harm: the script then travels whole and starts slower.
    source = plotly_script._source().read_text(encoding="utf-8")
    script = plotly_script._unwrapped(source)
    assert script.startswith(source[: source.index("*/") + 2])
    assert '"use strict";var Plotly=(function(){' in script[:1000]
    assert len(source) - 500 < len(script) < len(source)
    assert plotly_script._unwrapped(script) == script


def test_the_chart_script_is_compressed_once_and_made_anew_when_damaged(tmp_path, monkeypatch):
    monkeypatch.setattr(plotly_script, "get_tmp_dir", lambda: str(tmp_path))
    source = plotly_script._source()
    monkeypatch.setattr(plotly_script, "_compress", counted := CountedCompress())
    status = source.stat()
    for name, age in (("plotly-old.b85", 1e7), ("plotly-other.b85", 1e5)):
        (tmp_path / name).write_text("script")
        os.utime(tmp_path / name, (time.time() - age,) * 2)
    for content in (None, "", "sha256-x\n", "no hash\ntext\n"):
        plotly_script._packed.cache_clear()
        for kept in tmp_path.glob("plotly-[0-9]*"):
            kept.write_text(content)
        assert plotly_script._packed(source, status.st_size, status.st_mtime_ns) == counted.packed
    plotly_script._packed.cache_clear()
    plotly_script.plotly_script()
    assert counted.calls == 4
    kept = sorted(entry.name for entry in tmp_path.iterdir())
    assert len(kept) == 2  # and the one that another version used lately
    assert kept[1] == "plotly-other.b85"
    plotly_script._packed.cache_clear()


class CountedCompress:
    calls = 0
    packed = plotly_script.PackedScript("sha256-abc=", "text")

    def __call__(self, script):
        self.calls += 1
        return self.packed


def test_json_for_pages_has_no_sign_that_html_reads():
    data = {"<!--": ["</script>", "&lt;", "\u2028", "\x00\ud800", 1.5, None]}
    text = safe_json(data)
    assert not re.search("[<>&\u2028\x00]", text)
    assert json.loads(text)["<!--"][:3] == data["<!--"][:3]
    assert unpacked(pack_json(data)) == json.loads(text)
    assert html.escape(text, quote=False) == text
    with pytest.raises(ValueError, match="Out of range float"):
        safe_json(float("nan"))


def test_every_figure_has_a_label_and_a_definition_in_both_languages():
    known = json.loads(page._texts())
    english, chinese = known["texts"]["en"], known["texts"]["zh-Hant"]
    assert english.keys() == chinese.keys()
    for key in english:
        fields = re.findall(r"\{\w+\}", english[key])
        assert sorted(fields) == sorted(re.findall(r"\{\w+\}", chinese[key])), key
    used = set(re.findall(r"""\bt\("(\w+)\"""", page.page_script()))
    assert used <= english.keys()
    curve = pd.Series([1.0, 1.1, 1.2], index=pd.bdate_range("2024-01-01", periods=3))
    report = bare_report(curve, curve**2)
    report.trades = pd.DataFrame({"return": [0.1], "exit_date": curve.index[:1]})
    stats = json.loads(Reader(generate_html(report)).scripts["facts"])["stats"]
    shown = {key for part in stats.values() for key in part}
    assert len(shown) > 60
    for key in shown | {name for view in known["views"].values() for name in view}:
        figure = known["figures"][key]
        assert all(len(figure[language]) == 2 for language in ("en", "zh-Hant")), key
        assert figure["group"] in known["groups"], key
