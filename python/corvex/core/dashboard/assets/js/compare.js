// The page that sets several reports side by side.

import { byId, choices, el, replaceContent } from "./dom.js";
import { chart, colours, line, redraw } from "./charts.js";
import { gain, rangeOptions, rangeRows, rowsOfEvent, valueAxis } from "./equity.js";
import { figure, isoDay, number, percent, signedPercent, whole } from "./format.js";
import { renderFooter, renderTools } from "./heading.js";
import { drawdowns, rebased } from "./maths.js";
import { yearLabel } from "./returns.js";
import { renderSections, renderWhole, startPage } from "./sections.js";
import { facts } from "./store.js";
import { defined, table } from "./table.js";
import { marketName, t } from "./text.js";

const COMPARED = [
  ["figures", renderFigures, false],
  ["equity", renderCurves, true],
  ["years", renderYears, false],
  ["correlation", renderCorrelation, false],
  ["runs", renderRuns, false],
];
const COLOURS = ["own", "loss", "live", "market", "text"];
const DASHES = ["solid", "dash", "dot", "dashdot"];

/** One column for each report, after a first one that heads the rows. */
function perReport(first, text) {
  return [first, ...facts.names.map((name, i) => ({ label: name, number: true, text: (row) => text(row, i) }))];
}

function renderFigures() {
  const { periods, riskfree } = facts.meta;
  const rows = Object.keys(facts.figures);
  const columns = perReport({ label: t("item"), node: (key) => defined(key) },
    (key, i) => figure(key, facts.figures[key][i]));
  return [table(t("s_figures"), columns, rows, { className: "figures" }),
          el("p", { class: "note" }, t("compare_convention", { periods, riskfree: percent(riskfree, 1) }))];
}

function renderYears() {
  const columns = perReport({ label: t("year"), text: yearLabel },
    ({ values }, i) => (values[i] === null ? t("missing") : number(values[i] * 100)));
  return [table(t("s_years"), columns, [...facts.years].reverse()),
          el("p", { class: "note" }, t("compare_years_note"))];
}

function renderCorrelation() {
  const columns = perReport({ label: t("run_name"), text: (row) => facts.names[row] },
    (row, i) => number(facts.correlation[row][i]));
  return [table(t("s_correlation"), columns, [...facts.names.keys()]),
          el("p", { class: "note" }, t("compare_correlation_note"))];
}

function renderRuns() {
  const columns = [
    { label: t("run_name"), text: (run) => run.name },
    { label: t("run_period"), text: (run) => t("run_span", run) },
    { label: t("run_market"), text: (run) => marketName(run.market) },
    { label: t("run_trades"), number: true, text: (run) => whole(run.trades) },
    { label: t("run_fee"), number: true, text: (run) => percent(run.fee_ratio, 3) },
    { label: t("run_tax"), number: true, text: (run) => percent(run.tax_ratio, 3) },
  ];
  return table(t("s_runs"), columns, facts.runs);
}

function renderCurves(series) {
  const last = series.days.length - 1;
  const view = { first: 0, last, scale: "log" };
  const dates = series.days.map(isoDay);
  const falls = series.curves.map(drawdowns);
  const told = el("p", { class: "view", "aria-live": "polite" });
  const node = chart(t("compare_alt", facts.meta), 560,
    () => curvesFigure(series.curves, dates, falls, view), listen);
  const ranges = choices(t("range"), rangeOptions(series), "all", (value) => {
    [view.first, view.last] = rangeRows(series, value);
    show();
  });
  const scale = choices(t("scale"), [["log", t("log")], ["linear", t("linear")]], view.scale,
    (value) => { view.scale = value; show(); });
  function show() {
    tell();
    redraw(node);
  }
  function tell() {
    const returns = series.curves.map((curve, i) =>
      `${facts.names[i]} ${signedPercent(gain(curve, view.first, view.last))}`);
    replaceContent(told, t("compare_view",
      { start: dates[view.first], end: dates[view.last], returns: returns.join(" · ") }));
  }
  function listen(plot) {
    plot.on("plotly_relayout", (event) => {
      const rows = rowsOfEvent(event, series, view);
      if (!rows) return;
      [view.first, view.last] = rows;
      ranges.press(rows[0] === 0 && rows[1] === last ? "all" : "");
      show();
    });
  }
  tell();
  return [el("div", { class: "controls" }, ranges.group, scale.group), told, node,
          el("p", { class: "note" }, t("compare_zoom"))];
}

function curvesFigure(curves, dates, falls, { first, last, scale }) {
  const palette = colours();
  const values = curves.map((curve) => rebased(curve, first));
  const style = (i, width) => ({ width, color: palette[COLOURS[i % COLOURS.length]],
                                 dash: DASHES[Math.floor(i / COLOURS.length) % DASHES.length] });
  const data = facts.names.flatMap((name, i) => [
    line(name, dates, values[i], "", { line: style(i, 1.6), legendgroup: String(i), hovertemplate: "%{y:,.1f}" }),
    line(`${name} · ${t("drawdown")}`, dates, falls[i], "", { line: style(i, 1), legendgroup: String(i),
      yaxis: "y2", showlegend: false, hovertemplate: "%{y:.2%}" }),
  ]);
  const seen = (lists) => lists.flatMap((list) => list.slice(first, last + 1)).filter((y) => y !== null);
  const shown = seen(values).filter((y) => scale === "linear" || y > 0);
  const least = (numbers) => numbers.reduce((a, b) => Math.min(a, b), Infinity);
  const most = (numbers) => numbers.reduce((a, b) => Math.max(a, b), -Infinity);
  return { data, layout: {
    xaxis: { type: "date", range: [dates[first], dates[last]], anchor: "y2", hoverformat: "%Y-%m-%d" },
    yaxis: valueAxis(least(shown), most(shown), scale),
    yaxis2: { domain: [0, 0.28], title: { text: t("drawdown") }, tickformat: ".0%", anchor: "x",
              range: [Math.min(least(seen(falls)) * 1.08, -0.001), 0], fixedrange: true },
  } };
}

function renderCompared(series) {
  const { start, end, years, days } = facts.meta;
  replaceContent(byId("subtitle"),
    t("compare_subtitle", { start, end, days: whole(days), years: number(years, 1) }));
  renderTools(() => renderWhole(renderCompared, series));
  const renderRest = renderSections(COMPARED, series);
  return () => {
    renderRest();
    renderFooter();
  };
}

await startPage(renderCompared);
