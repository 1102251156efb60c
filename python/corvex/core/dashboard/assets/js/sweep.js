// The page of a sweep: what was tried, the best of it, and how much of that is luck.

import { settingText } from "./activity.js";
import { downloadRows, orderedRows, pager, printedRows, sortHeader } from "./browse.js";
import { chart, chartText, colours, isNarrow, redraw, upright } from "./charts.js";
import { renderConfidence, titled } from "./confidence.js";
import { rankedCurves } from "./curves.js";
import { byId, el, replaceContent, select } from "./dom.js";
import { figure, number, percent, share, whole } from "./format.js";
import { headline, renderFooter, renderTools } from "./heading.js";
import { renderHeatmap, renderParallel, renderPlateau } from "./landscape.js";
import {
  besideRun,
  figureChoice,
  isLessBetter,
  isOrdered,
  middleOf,
  neighbourRuns,
  rankedRuns,
  runBook,
  told,
  varying,
} from "./runs.js";
import { renderSections, renderWhole, startPage } from "./sections.js";
import { facts } from "./store.js";
import { defined, scrolling, table } from "./table.js";
import { figureText, has, marketName, t, unitOf, views } from "./text.js";

const SWEPT = [
  ["tried", renderTried, true],
  ["ranking", renderRanking, true],
  ["heatmap", renderHeatmap, true],
  ["plateau", renderPlateau, true],
  ["parallel", renderParallel, true],
  ["spread", renderSpread, true],
  ["best_curves", renderBestCurves, true],
  ["confidence", renderSearchConfidence, true],
  ["fixed", renderFixed, false],
  ["errors", renderErrors, false],
];

const note = (text) => el("p", { class: "note" }, text);

function renderTried(series) {
  const book = runBook(series);
  const known = rankedRuns(book, facts.figure);
  const { runs, failed, riskfree, periods } = facts.meta;
  const { luck, overfitting } = facts;
  const beside = [
    failed ? t("sweep_without", { count: whole(failed) }) : null,
    luck?.effective ? t("sweep_independent", { count: number(luck.effective, 1) }) : null,
  ];
  const cards = [headline(t("sweep_tried"), whole(runs), beside.filter(Boolean).join("; "))];
  if (known.length) {
    const values = known.map((i) => book.value(facts.figure, i));
    const label = figureText(facts.figure)[0];
    const middle = figure(facts.figure, middleOf(values));
    cards.push(headline(t("sweep_best", { figure: label }), figure(facts.figure, values[0]), book.describe(known[0])));
    cards.push(headline(t("sweep_median", { figure: label }), middle));
  }
  if (luck) {
    cards.push(
      headline(t("sweep_expected"), number(luck.expected), t("sweep_expected_of", { count: whole(luck.trials) })),
    );
    cards.push(headline(t("sweep_positive"), percent(luck.positive, 0)));
  }
  if (overfitting) cards.push(headline(defined("pbo"), percent(overfitting.pbo, 1)));
  const convention = periods === null ? "" : t("sweep_convention", { periods, riskfree: percent(riskfree, 1) });
  return [
    el("dl", { class: "cards" }, cards),
    ...warnings(series, book, known).map(([kind, text]) => el("p", { class: `state ${kind}` }, text)),
    convention ? note(convention) : null,
  ];
}

/** What a reader is to know before trusting the best run. */
function warnings(series, book, known) {
  const { luck, overfitting } = facts;
  const { runs, carried, failed } = facts.meta;
  const lines = [];
  if (!known.length) lines.push(["bad", t("sweep_none")]);
  if (luck) {
    const values = { count: whole(luck.trials), expected: number(luck.expected), best: number(luck.best) };
    lines.push([luck.best > luck.expected ? "" : "bad", t("sweep_luck", values)]);
  } else if (known.length === 1) lines.push(["", t("sweep_single")]);
  if (overfitting) {
    lines.push([overfitting.pbo >= 0.5 ? "bad" : "", t("sweep_pbo", { pbo: percent(overfitting.pbo, 1) })]);
  }
  if (known.length) lines.push(...aboutBest(series, book, known));
  if (failed) lines.push(["bad", t("sweep_failed", { failed: whole(failed), runs: whole(runs) })]);
  if (carried < runs) lines.push(["", t("sweep_carried", { carried: whole(carried), runs: whole(runs) })]);
  return lines;
}

/** Whether the best run stands alone, and whether the grid ends there. */
function aboutBest(series, book, known) {
  const key = facts.figure;
  const lines = [];
  const neighbours = neighbourRuns(series, book.count);
  const beside = besideRun(book, neighbours.beside[known[0]], key);
  if (beside) {
    const best = book.value(key, known[0]);
    const values = known.map((i) => book.value(key, i));
    const rank = values.filter((value) => (isLessBetter(key) ? value < beside.mean : value > beside.mean)).length;
    const isAlone = rank / values.length > 0.25;
    const texts = { figure: told(key, best), mean: figure(key, beside.mean), count: whole(beside.count) };
    const words = neighbours.isNearest
      ? [t("sweep_alone_near", texts), t("sweep_among_near", texts)]
      : [t("sweep_alone", texts), t("sweep_among", texts)];
    lines.push(isAlone ? ["bad", words[0]] : ["", words[1]]);
  }
  for (const parameter of varying().filter(isOrdered)) {
    const ranks = parameter.ranks.filter((rank) => rank !== null);
    const rank = parameter.ranks[book.code(parameter, known[0])];
    if (ranks.length > 2 && (rank === 0 || rank === ranks.length - 1)) {
      lines.push(["", t("sweep_edge", { name: parameter.name, value: book.text(parameter, known[0]) })]);
    }
  }
  return lines;
}

// -- the table of all runs ---------------------------------------------------------------------

function runColumns(book, key) {
  const shown = varying();
  const figures = [...new Set([key, ...views.swept])].filter((name) => facts.figures.includes(name));
  const columns = shown.map((parameter) => ({
    key: `parameter-${parameter.at}`,
    head: parameter.name,
    label: parameter.name,
    text: (i) => book.text(parameter, i),
    value: (i) => book.code(parameter, i),
  }));
  if (!columns.length) columns.push({ key: "run", label: t("sweep_run"), text: (i) => String(i + 1), value: (i) => i });
  columns.push(
    ...figures.map((name) => ({
      key: name,
      label: figureText(name)[0],
      title: figureText(name)[1] || null,
      number: true,
      text: (i) => figure(name, book.value(name, i)),
      value: (i) => book.value(name, i),
    })),
  );
  if (book.hasErrors) {
    const error = (i) => book.error(i) ?? "";
    columns.push({ key: "error", label: t("sweep_error"), text: error, value: (i) => book.error(i), long: true });
  }
  return columns;
}

function renderRanking(series) {
  const book = runBook(series);
  const state = {
    search: "",
    by: facts.figure,
    key: facts.figure,
    down: !isLessBetter(facts.figure),
    page: 0,
    rows: 25,
  };
  const place = el("div");
  const status = el("p", { class: "found", role: "status" });
  const found = () => orderedRows(runColumns(book, state.by), runsFound(book, state.search), state);
  const show = () => {
    const columns = runColumns(book, state.by);
    const order = found();
    const pages = Math.max(1, Math.ceil(order.length / state.rows));
    state.page = Math.min(Math.max(state.page, 0), pages - 1);
    const from = state.page * state.rows;
    const to = Math.min(from + state.rows, order.length);
    replaceContent(status, t("sweep_found", { count: whole(order.length), all: whole(book.count) }));
    replaceContent(
      place,
      runTable(columns, order.slice(from, to), state, show),
      pager(t("s_ranking"), pages, state, show),
      to - from < order.length ? printedRows(from + 1, to, order.length) : null,
    );
  };
  const again = (change) => {
    Object.assign(state, change, { page: 0 });
    show();
  };
  show();
  const search = el("input", {
    type: "search",
    id: "run-search",
    placeholder: t("sweep_search_hint"),
    oninput: (event) => again({ search: event.target.value }),
  });
  const sizes = [10, 25, 50, 100].map((n) => [String(n), String(n)]);
  const save = () => downloadRows("runs.csv", runColumns(book, state.by), found());
  return [
    el(
      "div",
      { class: "controls" },
      el("label", { class: "field" }, el("span", {}, t("sweep_search")), search),
      figureChoice(state.by, (key) => again({ by: key, key, down: !isLessBetter(key) })),
      select(t("per_page"), sizes, String(state.rows), (value) => again({ rows: Number(value) })),
      el("button", { type: "button", onclick: save }, t("download")),
    ),
    status,
    place,
  ];
}

/** A word such as "top=5" finds this value alone where there is one, else whatever begins so. */
function runsFound(book, search) {
  const shown = varying();
  const tests = search
    .toLowerCase()
    .split(/\s+/)
    .filter(Boolean)
    .map((word) => {
      const [name, value] = word.split(/=(.*)/s);
      const parameter = shown.find((one) => one.name.toLowerCase() === name);
      const code = parameter?.texts.findIndex((text) => text.toLowerCase() === value) ?? -1;
      if (code >= 0) return (i) => book.code(parameter, i) === code;
      return (i) => `${book.describe(i)} ${book.error(i) ?? ""}`.toLowerCase().includes(word);
    });
  return Array.from({ length: book.count }, (_, i) => i).filter((i) => tests.every((test) => test(i)));
}

function runTable(columns, rows, state, show) {
  const head = el(
    "tr",
    {},
    columns.map((column) => sortHeader("run-table", column, state, show)),
  );
  const kind = ({ number: isNumber, long }) => (isNumber ? "num" : long ? "long" : null);
  const body = rows.map((i) =>
    el(
      "tr",
      {},
      columns.map((column, at) =>
        el(at ? "td" : "th", { scope: at ? null : "row", class: kind(column) }, column.text(i)),
      ),
    ),
  );
  return scrolling(
    t("s_ranking"),
    el(
      "table",
      { id: "run-table", class: "browsed" },
      el("caption", {}, t("s_ranking")),
      el("thead", {}, head),
      el("tbody", {}, body),
    ),
  );
}

// -- pictures ----------------------------------------------------------------------------------

function renderSpread(series) {
  const book = runBook(series);
  if (rankedRuns(book, facts.figure).length < 3) return null;
  const state = { key: facts.figure };
  const node = chart(t("sweep_spread_alt"), 320, () => spreadFigure(book, state.key));
  const choice = figureChoice(state.key, (key) => {
    state.key = key;
    redraw(node);
  });
  return [el("div", { class: "controls" }, choice), node, note(t("sweep_spread_note"))];
}

function spreadFigure(book, key) {
  const c = colours();
  const values = rankedRuns(book, key).map((i) => book.value(key, i));
  const [low, high] = [Math.min(...values), Math.max(...values)];
  const bins = high > low ? Math.min(Math.max(Math.round(2 * Math.cbrt(values.length)), 5), 40) : 1;
  const width = (high - low) / bins || Math.abs(low) * 0.1 || 1;
  const start = high > low ? low : low - width / 2;
  const counts = Array(bins).fill(0);
  for (const value of values) counts[Math.min(Math.floor((value - start) / width), bins - 1)] += 1;
  const edge = (i) => figure(key, start + i * width);
  const bar = {
    type: "bar",
    x: counts.map((_, i) => start + (i + 0.5) * width),
    y: counts,
    width,
    customdata: counts.map((_, i) => `${edge(i)} … ${edge(i + 1)}`),
    marker: { color: c.own, opacity: 0.75 },
    hovertemplate: "%{customdata}: %{y}<extra></extra>",
  };
  const marked = [
    [middleOf(values), t("sweep_median_mark"), c.text, 1],
    [values[0], t("sweep_best_mark"), c.loss, 0.9],
  ];
  const middle = (low + high) / 2;
  return {
    data: [bar],
    layout: {
      bargap: 0.03,
      hovermode: "x",
      xaxis: { title: { text: chartText(figureText(key)[0]) }, tickformat: unitOf(key) === "fraction" ? "~%" : "~g" },
      yaxis: { title: { text: t("sweep_runs") } },
      margin: { l: 72, r: 16, t: 12, b: 48 },
      shapes: marked.map(([x, , color]) => upright(x, color)),
      annotations: marked.map(([x, text, color, y]) => ({
        x,
        y,
        xref: "x",
        yref: "paper",
        text: chartText(`${text} ${figure(key, x)}`),
        showarrow: false,
        xanchor: x > middle ? "right" : "left",
        xshift: x > middle ? -4 : 4,
        yanchor: "top",
        font: { size: 11, color },
      })),
    },
  };
}

function renderBestCurves(series) {
  if (!facts.curves.length) return null;
  const book = runBook(series);
  const runs = facts.curves.map(({ run }) => run).filter((run) => run !== undefined);
  const differing = varying().filter((parameter) => new Set(runs.map((i) => book.code(parameter, i))).size > 1);
  const nameOf = (i) => differing.map((parameter) => `${parameter.name}=${book.text(parameter, i)}`).join(", ");
  const benchmark = ({ benchmark: name }) => `${t("benchmark")} ${name ?? ""}`.trim();
  const names = facts.curves.map((curve, at) =>
    "run" in curve ? [String(at + 1), nameOf(curve.run)].filter(Boolean).join(" · ") : benchmark(curve),
  );
  const short = facts.curves.map((curve, at) => ("run" in curve ? `#${at + 1}` : benchmark(curve)));
  const alt = t("compare_alt", facts.meta);
  // Eleven lines of names would leave a phone no room for the curves.
  const legend = isNarrow() ? short : names;
  const shown = rankedCurves(series, { alt, names: legend, told: short, chosen: [...facts.curves.keys()] });
  const label = figureText(facts.figure)[0];
  return [...shown.content, note(t("sweep_curves_note", { figure: label }))];
}

// -- skill or luck -----------------------------------------------------------------------------

function renderSearchConfidence(series) {
  const { confidence, overfitting, luck } = facts;
  if (!confidence && !overfitting && !luck) return null;
  const book = runBook(series);
  const about =
    confidence && confidence.run !== null ? t("sweep_confidence_about", { run: book.describe(confidence.run) }) : null;
  return [
    about && el("p", {}, about),
    ...(confidence ? renderConfidence() : [luckTable(), note(t("sweep_confidence_less"))]),
    overfitting && ranksOutside(overfitting),
    note(t("sweep_confidence_limits")),
  ].filter(Boolean);
}

/** What the figures of the runs alone tell. */
function luckTable() {
  const { luck, overfitting } = facts;
  const rows = [
    luck && [t("sweep_tried"), whole(luck.trials)],
    luck && [t("sweep_expected"), number(luck.expected)],
    overfitting && [defined("pbo"), percent(overfitting.pbo, 1)],
  ].filter(Boolean);
  const columns = [
    { label: t("item"), node: ([label]) => label },
    { label: t("confidence_says"), text: ([, text]) => text },
  ];
  return table(t("s_confidence"), columns, rows, { className: "sentences" });
}

function ranksOutside({ pbo, counts, edges }) {
  const build = () => {
    const c = colours();
    const total = counts.reduce((sum, count) => sum + count, 0);
    const bar = {
      type: "bar",
      x: counts.map((_, i) => (edges[i] + edges[i + 1]) / 2),
      y: counts.map((count) => count / total),
      width: edges[1] - edges[0],
      marker: { color: counts.map((_, i) => (edges[i + 1] <= 0.5 ? c.loss : c.own)), opacity: 0.75 },
      hovertemplate: "%{y:.1%}<extra></extra>",
    };
    return {
      data: [bar],
      layout: {
        bargap: 0.05,
        hovermode: "x",
        margin: { l: 72, r: 16, t: 12, b: 48 },
        xaxis: { range: [0, 1], tickformat: ".0%", title: { text: t("sweep_rank_outside") } },
        yaxis: { tickformat: "~%", title: { text: t("sweep_halvings") } },
      },
    };
  };
  return el("div", {}, titled(t("sweep_outside"), chart(t("sweep_outside_alt", { pbo: percent(pbo, 1) }), 300, build)));
}

// -- what did not vary, and what went wrong ----------------------------------------------------

function renderFixed() {
  const settings = facts.assumptions.map((setting) => [`a_${setting.key}`, settingText(setting)]);
  const given = facts.fixed.map(([name, value]) => [`a_${name}`, fixedText(name, value), name]);
  const rows = [...given, ...settings, ["a_riskfree", share(facts.meta.riskfree)]];
  const columns = [
    { label: t("setting"), text: ([key, , name]) => (has(key) ? t(key) : (name ?? key)) },
    { label: t("setting_value"), text: ([, text]) => text },
  ];
  return [table(t("s_fixed"), columns, rows, { className: "narrow wrapped" }), note(t("sweep_fixed_note"))];
}

function fixedText(name, value) {
  if (typeof value === "boolean") return t(value ? "yes" : "no");
  return name === "market" ? marketName(value) : String(value);
}

function renderErrors() {
  if (!facts.errors.length) return null;
  const columns = [
    { label: t("sweep_error"), text: (row) => row.text },
    { label: t("sweep_runs"), number: true, text: (row) => whole(row.count) },
    { label: t("sweep_first"), text: (row) => row.first || t("missing") },
  ];
  return [table(t("s_errors"), columns, facts.errors, { className: "sentences" })];
}

function renderSwept(series) {
  const { start, end, runs } = facts.meta;
  const names = varying().map(({ name }) => name);
  const over = names.length ? t("sweep_over", { names: names.join(", ") }) : "";
  const period = start === null ? "" : ` · ${t("run_span", { start, end })}`;
  replaceContent(byId("subtitle"), `${t("sweep_subtitle", { runs: whole(runs) })}${over}${period}`);
  renderTools(() => renderWhole(renderSwept, series));
  const renderRest = renderSections(SWEPT, series);
  return () => {
    renderRest();
    renderFooter();
  };
}

await startPage(renderSwept);
