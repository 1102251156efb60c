"""Cutting the charts' script: what is called stays, and a form not known stays whole."""

import re
from importlib.metadata import version

import pytest

from corvex.core.dashboard.page import plotly_script
from corvex.core.dashboard.page.bundle import without_unused

UNUSED = [f"t{i}" for i in range(30)]
LIST = ",".join(f"{name}()" for name in ["bar", "heat", *UNUSED])


def passes_on(name, kind):
    return (
        f'var {name}_=W((e,t)=>{{t.exports={{moduleType:"trace",name:"{kind}"}};{name}_b()}});'
        f"var {name}=W((e,t)=>{{t.exports={name}_()}});"
        f"var {name}_b=W((e,t)=>{{}});"
    )


BUNDLE = (
    '"use strict";var Plotly=(()=>{'
    "var N=(e,t)=>()=>(e&&(t=e(e=0)),t);"
    "var W=(e,t)=>()=>(t||e((t={exports:{}}).exports,t),t.exports);"
    'var core=W((e,t)=>{(colour(),shown(of)).mix;t.exports="map()"});'
    "var text=W((e,t)=>{});function mix(){}var of={};var colour=N(()=>{more()});"
    "var more=W((e,t)=>{});"
    "var map=W((e,t)=>{});function tile(){}var tiles=N(()=>{});"
    + passes_on("bar", "bar")
    + passes_on("heat", "heatmap")
    + "".join(passes_on(name, name) for name in UNUSED)
    + f"var entry=W((e,t)=>{{var r=core();r.register([{LIST}]);t.exports=r}});return entry();}})();"
)


def test_what_is_called_stays_with_what_stands_beside_it():
    cut = without_unused(BUNDLE, ("heatmap",))
    modules = re.findall(r"var (\w+)=W\(", cut)
    # A call in a text counts: it keeps more than needed, never less.
    assert modules == ["core", "text", "more", "map", "heat_", "heat", "heat_b", "entry"]
    # What nothing stands beside is marked to be run at once.
    assert "var more=W(((e,t)=>{}));" in cut
    assert "var text=W((e,t)=>{});function mix(){}var of={};" in cut
    assert ".register([heat(),])" in cut
    assert cut.endswith("return entry();})();")


@pytest.mark.parametrize(
    ("old", "new"),
    [
        ("var W=(e,t)=>()=>(t||", "var W=(e,t)=>()=>(t??"),  # another wrapper
        ('name:"heatmap"', 'label:"heatmap"'),  # a kind that is not found
        ("return entry()", "return core()"),  # something else is run
        ("var map=W(", "var core=W("),  # a name that stands for two modules
        ("r.register(", "r.add("),
    ],
)
def test_a_bundle_of_another_form_stays_whole(old, new):
    other = BUNDLE.replace(old, new)
    assert other != BUNDLE
    assert without_unused(other, ("heatmap",)) == other


def test_the_installed_script_is_cut():
    source = plotly_script._source().read_text(encoding="utf-8")
    assert len(without_unused(source, plotly_script._KINDS)) < len(source) / 3, (
        f"plotly {version('plotly')} bundles its script in a new way: it is carried whole, which"
        " makes a page twice as large and slower to start. The module bundle is to learn it"
    )
