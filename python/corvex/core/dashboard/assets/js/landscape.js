// How a figure depends on the parameters: heat map, neighbours, and all parameters side by side.

import { chart, chartText, colours, isNarrow, line, redraw } from "./charts.js";
import { el, replaceContent, select } from "./dom.js";
import { figure, share, whole } from "./format.js";
import {
  besideRun,
  figureChoice,
  isLessBetter,
  isOrdered,
  meanOf,
  neighbourRuns,
  rankedRuns,
  runBook,
  told,
  varying,
} from "./runs.js";
import { facts } from "./store.js";
import { table } from "./table.js";
import { figureText, t, unitOf } from "./text.js";

const MOST_TEXTS = 340; // cells in which a number can be read
const MOST_POINTS = 2500;
const MOST_LINES = 600;
const BEST = 10;

const tickFormat = (key) => (unitOf(key) === "fraction" ? "~%" : "~g");

/** The values of a parameter as ticks at 0, 1, 2, ...: not more than there is room for. */
function valueTicks({ texts }, room) {
  const every = Math.ceil(texts.length / room);
  const places = texts.map((_, i) => i).filter((i) => i % every === 0);
  const short = (text) => ([...text].length > 18 ? `${[...text].slice(0, 17).join("")}…` : text);
  return { tickmode: "array", tickvals: places, ticktext: places.map((i) => chartText(short(texts[i]))) };
}

const parameterOptions = (axes) => axes.map(({ name, at }) => [String(at), name]);

export function renderHeatmap(series) {
  const axes = varying();
  if (!axes.length) return null;
  const book = runBook(series);
  const ordered = [...axes].sort((a, b) => isOrdered(b) - isOrdered(a));
  const [x, y] = [ordered[0], ordered[1] ?? null];
  const state = { x, y, key: facts.figure, cells: "mean", where: new Map() };
  const node = chart(t("sweep_heatmap_alt"), 420, () => (state.y ? heatFigure(book, state) : oneFigure(book, state)));
  const place = el("div", { class: "controls" });
  const show = () => {
    // The choices change with each other; the one in use keeps the focus.
    const used = [...place.querySelectorAll("select")].indexOf(document.activeElement);
    replaceContent(place, ...heatControls(axes, state, show));
    place.querySelectorAll("select")[used]?.focus();
    redraw(node);
  };
  show();
  const note = axes.length > 1 ? "sweep_heatmap_note" : "sweep_one_note";
  return [place, node, el("p", { class: "note" }, t(note))];
}

function heatControls(axes, state, show) {
  const again = (change) => {
    Object.assign(state, change);
    show();
  };
  const byPlace = (value) => axes.find(({ at }) => String(at) === value);
  const turn = (own, other) => (value) => {
    const chosen = byPlace(value);
    // The axes are never the same parameter: choosing the other's swaps them.
    again(chosen.at === state[other].at ? { [own]: chosen, [other]: state[own] } : { [own]: chosen });
  };
  const key = figureChoice(state.key, (value) => again({ key: value }));
  if (axes.length === 1) return [key];
  const others = axes.filter(({ at }) => at !== state.x.at && at !== state.y.at);
  const filters = others.map((parameter) => {
    const options = [["", t("sweep_all")], ...parameter.texts.map((text, code) => [String(code), text])];
    return select(parameter.name, options, String(state.where.get(parameter.at) ?? ""), (value) => {
      if (value === "") state.where.delete(parameter.at);
      else state.where.set(parameter.at, Number(value));
      show();
    });
  });
  const cells = ["mean", "best", "worst"].map((name) => [name, t(`sweep_cells_${name}`)]);
  return [
    select(t("sweep_x"), parameterOptions(axes), String(state.x.at), turn("x", "y")),
    select(t("sweep_y"), parameterOptions(axes), String(state.y.at), turn("y", "x")),
    key,
    others.length ? select(t("sweep_cells"), cells, state.cells, (value) => again({ cells: value })) : null,
    ...filters,
  ];
}

/** The figure's values in each field of two parameters; of one for a single parameter. */
function cellValues(book, { x, y, key, where }) {
  const filters = [...where].filter(([at]) => at !== x.at && at !== y?.at);
  const cells = (y?.texts ?? [""]).map(() => x.texts.map(() => []));
  for (let i = 0; i < book.count; i++) {
    const value = book.value(key, i);
    if (value === null || filters.some(([at, code]) => book.code({ at }, i) !== code)) continue;
    cells[y ? book.code(y, i) : 0][book.code(x, i)].push(value);
  }
  return cells;
}

function summed(values, key, cells) {
  if (!values.length) return null;
  if (cells === "mean") return meanOf(values);
  return (cells === "best") === isLessBetter(key) ? Math.min(...values) : Math.max(...values);
}

function heatFigure(book, state) {
  const { x, y, key } = state;
  const cells = cellValues(book, state);
  const z = cells.map((row) => row.map((values) => summed(values, key, state.cells)));
  const numbers = z.map((row) => row.map((value) => (value === null ? "" : figure(key, value))));
  const hover = cells.map((row, j) =>
    row.map((values, i) => {
      const lines = [`${x.name} ${x.texts[i]}`, `${y.name} ${y.texts[j]}`, told(key, z[j][i])];
      if (values.length > 1) lines.push(t("sweep_runs_in", { count: whole(values.length) }));
      return lines.map(chartText).join("<br>");
    }),
  );
  const [wide, high] = [x.texts.length, y.texts.length];
  const readable = wide * high <= MOST_TEXTS && wide <= (isNarrow() ? 5 : 14);
  const heat = {
    type: "heatmap",
    z,
    text: numbers,
    customdata: hover,
    texttemplate: readable ? "%{text}" : "",
    hovertemplate: "%{customdata}<extra></extra>",
    hoverongaps: false,
    colorscale: "Cividis",
    reversescale: isLessBetter(key),
    xgap: 1,
    ygap: 1,
    colorbar: { tickformat: tickFormat(key), thickness: 12, outlinewidth: 0 },
  };
  const axis = (parameter, room) => ({
    title: { text: chartText(parameter.name) },
    showgrid: false,
    zeroline: false,
    range: [-0.5, parameter.texts.length - 0.5],
    ...valueTicks(parameter, room),
  });
  return {
    data: [heat],
    layout: {
      height: Math.min(Math.max(110 + 28 * high, 300), 720),
      hovermode: "closest",
      margin: { l: isNarrow() ? 52 : 72, r: 8, t: 12, b: 48 },
      xaxis: axis(x, isNarrow() ? 8 : 26),
      yaxis: axis(y, 22),
    },
  };
}

/** A single parameter: a line over values with an order, else a bar for each. */
function oneFigure(book, state) {
  const { x, key } = state;
  const c = colours();
  const values = cellValues(book, { ...state, y: null })[0].map((some) => summed(some, key, "mean"));
  const points = {
    x: values.map((_, i) => i),
    y: values,
    text: values.map((value, i) => [`${x.name} ${x.texts[i]}`, told(key, value)].map(chartText).join("<br>")),
    hovertemplate: "%{text}<extra></extra>",
  };
  const trace = isOrdered(x)
    ? line("", points.x, points.y, c.own, { ...points, mode: "lines+markers", marker: { color: c.own, size: 6 } })
    : { type: "bar", ...points, marker: { color: c.own } };
  return {
    data: [trace],
    layout: {
      hovermode: "closest",
      showlegend: false,
      margin: { l: 72, r: 16, t: 12, b: 48 },
      xaxis: { title: { text: chartText(x.name) }, ...valueTicks(x, isNarrow() ? 8 : 26) },
      yaxis: { title: { text: chartText(figureText(key)[0]) }, tickformat: tickFormat(key) },
    },
  };
}

export function renderPlateau(series) {
  if (!varying().some(isOrdered)) return null;
  const book = runBook(series);
  const { beside, isNearest } = neighbourRuns(series, book.count);
  if (!beside.some((places) => places.length)) return [el("p", { class: "note" }, t("sweep_no_plateau"))];
  const state = { key: facts.figure };
  const rows = () =>
    rankedRuns(book, state.key)
      .map((i) => ({ i, own: book.value(state.key, i), ...besideRun(book, beside[i], state.key) }))
      .filter(({ count }) => count);
  const node = chart(t("sweep_plateau_alt"), 420, () => plateauFigure(book, rows(), state.key));
  const place = el("div");
  const show = () => {
    replaceContent(place, plateauTable(book, rows(), state.key));
    redraw(node);
  };
  const choice = figureChoice(state.key, (key) => {
    state.key = key;
    show();
  });
  show();
  const note = isNearest ? t("sweep_plateau_near") : t("sweep_plateau_note");
  return [el("div", { class: "controls" }, choice), node, el("p", { class: "note" }, note), place];
}

function plateauFigure(book, rows, key) {
  const c = colours();
  const shown = rows.slice(0, MOST_POINTS);
  const group = (some, colour, size) => ({
    type: "scatter",
    mode: "markers",
    marker: { color: colour, size, opacity: 0.7 },
    x: some.map(({ mean }) => mean),
    y: some.map(({ own }) => own),
    text: some.map(({ i, own, mean, count }) => {
      const lines = [book.describe(i), told(key, own), t("sweep_beside", { count, mean: figure(key, mean) })];
      return lines.map(chartText).join("<br>");
    }),
    hovertemplate: "%{text}<extra></extra>",
  });
  const all = shown.flatMap(({ own, mean }) => [own, mean]);
  const [low, high] = [Math.min(...all), Math.max(...all)];
  const diagonal = line(t("sweep_equal"), [low, high], [low, high], c.market, {
    hoverinfo: "skip",
    line: { color: c.market, dash: "dot", width: 1 },
  });
  const best = { ...group(shown.slice(0, BEST), c.loss, 9), name: t("sweep_best_ten") };
  const rest = { ...group(shown.slice(BEST), c.own, 6), name: t("sweep_others") };
  return {
    data: [diagonal, ...(rest.x.length ? [rest] : []), best],
    layout: {
      hovermode: "closest",
      margin: { l: 72, r: 16, t: 52, b: 48 },
      xaxis: { title: { text: t("sweep_beside_mean") }, tickformat: tickFormat(key) },
      yaxis: { title: { text: chartText(figureText(key)[0]) }, tickformat: tickFormat(key) },
    },
  };
}

/** Those that stand best together with their neighbours. */
function plateauTable(book, rows, key) {
  const sign = isLessBetter(key) ? 1 : -1;
  const height = ({ own, mean, count }) => (own + mean * count) / (count + 1);
  // One good neighbour is no plateau: those at the edge of what is known do not compete.
  const most = rows.reduce((largest, { count }) => Math.max(largest, count), 0);
  const wide = rows.filter(({ count }) => 2 * count >= most);
  const best = wide.sort((a, b) => sign * (height(a) - height(b)) || a.i - b.i).slice(0, BEST);
  const part = (label, text) => ({ label, number: true, text });
  const columns = [
    { label: t("sweep_run"), text: ({ i }) => book.describe(i) },
    part(figureText(key)[0], ({ own }) => figure(key, own)),
    part(t("sweep_beside_mean"), ({ mean }) => figure(key, mean)),
    part(t("sweep_beside_worst"), ({ worst }) => figure(key, worst)),
    part(t("sweep_beside_count"), ({ count }) => whole(count)),
  ];
  return table(t("sweep_plateaus"), columns, best, { className: "ranked" });
}

const SHARES = [0.01, 0.05, 0.1, 0.25];

export function renderParallel(series) {
  const axes = varying();
  const book = runBook(series);
  if (axes.length < 2 || rankedRuns(book, facts.figure).length < 3) return null;
  const state = { key: facts.figure, share: 0.1 };
  const node = chart(t("sweep_parallel_alt"), 420, () => parallelFigure(book, axes, state));
  const again = (change) => {
    Object.assign(state, change);
    redraw(node);
  };
  const shares = SHARES.map((part) => [String(part), t("sweep_best_share", { share: share(part) })]);
  const lit = select(t("sweep_lit"), shares, String(state.share), (value) => again({ share: Number(value) }));
  return [
    el(
      "div",
      { class: "controls" },
      figureChoice(state.key, (key) => again({ key })),
      lit,
    ),
    node,
    el("p", { class: "note" }, t("sweep_parallel_note", { most: whole(MOST_LINES) })),
  ];
}

/** Every run is a line over all parameters, at the last axis stands its figure. */
function parallelFigure(book, axes, { key, share: part }) {
  const c = colours();
  const order = rankedRuns(book, key);
  const count = Math.max(1, Math.round(order.length * part));
  const lit = order.slice(0, Math.min(count, MOST_LINES));
  const rest = order.slice(count);
  const every = Math.max(1, Math.ceil(rest.length / (MOST_LINES - lit.length / 2)));
  const values = order.map((i) => book.value(key, i));
  const [low, high] = [Math.min(...values), Math.max(...values)];
  const spread = axes.map((parameter) => Math.max(parameter.texts.length - 1, 1));
  const heights = (i) => [
    ...axes.map((parameter, at) => book.code(parameter, i) / spread[at]),
    high > low ? (book.value(key, i) - low) / (high - low) : 0.5,
  ];
  // One trace for many lines, with a gap after each: a trace for each would take seconds.
  const lines = (runs, colour, width, opacity, hover) => ({
    type: "scatter",
    mode: "lines",
    opacity,
    line: { color: colour, width },
    x: runs.flatMap(() => [...axes.keys(), axes.length, null]),
    y: runs.flatMap((i) => [...heights(i), null]),
    text: runs.flatMap((i) =>
      Array(axes.length + 2).fill([book.describe(i), told(key, book.value(key, i))].map(chartText).join("<br>")),
    ),
    ...(hover ? { hovertemplate: "%{text}<extra></extra>" } : { hoverinfo: "skip" }),
  });
  const some = rest.filter((_, at) => at % every === 0);
  const ends = [figure(key, low), figure(key, high)];
  return {
    data: [lines(some, c.market, 0.7, 0.25, false), lines([...lit].reverse(), c.own, 1.5, 0.75, true)],
    layout: {
      showlegend: false,
      hovermode: "closest",
      margin: { l: 64, r: 72, t: 12, b: 48 },
      xaxis: {
        showgrid: false,
        zeroline: false,
        range: [-0.15, axes.length + 0.15],
        tickmode: "array",
        tickvals: [...axes.keys(), axes.length],
        ticktext: [...axes.map(({ name }) => chartText(name)), `<b>${chartText(figureText(key)[0])}</b>`],
        fixedrange: true,
      },
      yaxis: { visible: false, range: [-0.06, 1.06], fixedrange: true },
      shapes: [...axes, null].map((_, at) => ({
        type: "line",
        x0: at,
        x1: at,
        y0: 0,
        y1: 1,
        line: { color: c.line, width: 1 },
      })),
      annotations: [
        ...axes.flatMap((parameter, at) => axisTexts(parameter, at, spread[at], c)),
        ...ends.map((text, at) => axisText(axes.length, high > low ? at : 0.5, text, c)),
      ],
    },
  };
}

function axisTexts(parameter, at, spread, c) {
  const { tickvals, ticktext } = valueTicks(parameter, 12);
  return tickvals.map((code, i) => axisText(at, code / spread, ticktext[i], c));
}

const axisText = (x, y, text, c) => ({
  x,
  y,
  text,
  showarrow: false,
  xanchor: "left",
  xshift: 3,
  bgcolor: c.paper,
  opacity: 0.9,
  font: { size: 11, color: c.text },
});
