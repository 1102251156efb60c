// The page that sets several reports side by side.

import { rankedCurves } from "./curves.js";
import { byId, el, replaceContent, select } from "./dom.js";
import { figure, number, percent, whole } from "./format.js";
import { renderFooter, renderTools } from "./heading.js";
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

/** One column for each report, after a first one that heads the rows. */
function perReport(first, text) {
  return [first, ...facts.names.map((name, i) => ({ label: name, number: true, text: (row) => text(row, i) }))];
}

/** More reports than this are ranked, a row for each, and shown so many at a time in the charts. */
const MOST = 10;
const areMany = () => facts.names.length > MOST;
const ranked = () => (areMany() ? facts.order : [...facts.names.keys()]);

/** The first column of a table with a row for each report: its rank and its name. */
const rankedName = () => ({ label: t("run_name"), text: (i) => `${facts.order.indexOf(i) + 1} · ${facts.names[i]}` });

/** A choice of ten reports by their ranks; `choose` gets their places. None where all fit. */
function rankChoice(choose) {
  if (!areMany()) return null;
  const starts = Array.from({ length: Math.ceil(facts.order.length / MOST) }, (_, k) => k * MOST);
  const options = starts.map((start) => [String(start), `${start + 1}–${Math.min(start + MOST, facts.order.length)}`]);
  return select(t("compare_ranks"), options, "0", (start) =>
    choose(facts.order.slice(Number(start), Number(start) + MOST)),
  );
}

function renderFigures() {
  const { periods, riskfree } = facts.meta;
  const keys = Object.keys(facts.figures);
  const note = el("p", { class: "note" }, t("compare_convention", { periods, riskfree: percent(riskfree, 1) }));
  if (areMany()) {
    const columns = [
      rankedName(),
      ...keys.map((key) => ({ label: defined(key), number: true, text: (i) => figure(key, facts.figures[key][i]) })),
    ];
    return [
      table(t("s_figures"), columns, facts.order, { className: "figures ranked" }),
      el("p", { class: "note" }, t("compare_ranked")),
      note,
    ];
  }
  const columns = perReport({ label: t("item"), node: (key) => defined(key) }, (key, i) =>
    figure(key, facts.figures[key][i]),
  );
  return [table(t("s_figures"), columns, keys, { className: "figures" }), note];
}

function renderYears() {
  const cell = ({ values }, i) => (values[i] === null ? t("missing") : number(values[i] * 100));
  const years = [...facts.years].reverse();
  const columns = areMany()
    ? [rankedName(), ...years.map((year) => ({ label: yearLabel(year), number: true, text: (i) => cell(year, i) }))]
    : perReport({ label: t("year"), text: yearLabel }, cell);
  return [
    table(t("s_years"), columns, areMany() ? facts.order : years, { className: areMany() ? "ranked" : "" }),
    el("p", { class: "note" }, t("compare_years_note")),
  ];
}

function renderCorrelation() {
  const place = el("div");
  const show = (chosen) => {
    const columns = [
      areMany() ? rankedName() : { label: t("run_name"), text: (i) => facts.names[i] },
      ...chosen.map((j) => ({
        label: areMany() ? String(facts.order.indexOf(j) + 1) : facts.names[j],
        number: true,
        text: (i) => number(facts.correlation[i][j]),
      })),
    ];
    replaceContent(place, table(t("s_correlation"), columns, chosen, { className: areMany() ? "ranked" : "" }));
  };
  show(ranked().slice(0, MOST));
  return [
    el("div", { class: "controls" }, rankChoice(show)),
    place,
    el("p", { class: "note" }, t("compare_correlation_note")),
  ];
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
  const shown = rankedCurves(series, {
    alt: t("compare_alt", facts.meta),
    names: facts.names.map((name, i) => (areMany() ? `${facts.order.indexOf(i) + 1} · ${name}` : name)),
    told: facts.names,
    chosen: ranked().slice(0, MOST),
  });
  shown.controls.append(rankChoice(shown.choose) ?? "");
  return shown.content;
}

function renderCompared(series) {
  const { start, end, years, days } = facts.meta;
  replaceContent(byId("subtitle"), t("compare_subtitle", { start, end, days: whole(days), years: number(years, 1) }));
  renderTools(() => renderWhole(renderCompared, series));
  const renderRest = renderSections(COMPARED, series);
  return () => {
    renderRest();
    renderFooter();
  };
}

await startPage(renderCompared);
