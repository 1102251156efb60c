// The curve of the value with its drawdown, and the largest drawdowns.

import { chart, colours, line, redraw, upright } from "./charts.js";
import { el, replaceContent } from "./dom.js";
import { dayOf, isoDay, percent, signedPercent, whole } from "./format.js";
import { benchmarkLabel } from "./heading.js";
import { drawdowns, gain, rebased } from "./maths.js";
import { facts } from "./store.js";
import { table } from "./table.js";
import { t } from "./text.js";
import { datedView, valueAxis } from "./view.js";

export function renderEquity(series) {
  const last = series.days.length - 1;
  const dates = series.days.map(isoDay);
  const falls = { own: drawdowns(series.strategy), market: series.benchmark && drawdowns(series.benchmark) };
  const told = el("p", { class: "view", "aria-live": "polite" });
  const alt = t("equity_alt", {
    start: dates[0],
    end: dates[last],
    total: percent(facts.stats.strategy.total_return),
    drawdown: percent(facts.stats.strategy.max_drawdown),
  });
  const { view, ranges, scale, listen } = datedView(series, show);
  view.marks = true;
  const node = chart(alt, 520, () => equityFigure(series, dates, falls, view), listen);
  const marks = el(
    "label",
    { class: "check" },
    el("input", {
      type: "checkbox",
      checked: true,
      onchange: (event) => {
        view.marks = event.target.checked;
        show();
      },
    }),
    t("mark_drawdowns"),
  );

  function show() {
    tellView(told, series, dates, falls, view);
    redraw(node);
  }
  tellView(told, series, dates, falls, view);
  const controls = el("div", { class: "controls" }, ranges, scale, facts.drawdowns.length ? marks : null);
  return [controls, told, node, el("p", { class: "note" }, t("zoom_hint"))];
}

function tellView(node, series, dates, falls, { first, last }) {
  const market = series.benchmark && gain(series.benchmark, first, last);
  const key = series.benchmark ? "in_view_both" : "in_view";
  replaceContent(
    node,
    t(key, {
      start: dates[first],
      end: dates[last],
      strategy: signedPercent(gain(series.strategy, first, last)),
      benchmark: signedPercent(market),
      drawdown: percent(Math.min(...falls.own.slice(first, last + 1))),
    }),
  );
}

function equityFigure(series, dates, falls, view) {
  const c = colours();
  const own = rebased(series.strategy, view.first);
  const market = series.benchmark && rebased(series.benchmark, view.first, own);
  const data = [];
  if (market) {
    data.push(line(benchmarkLabel(), dates, market, c.market, { hovertemplate: "%{y:,.1f}" }));
  }
  data.push(line(t("strategy"), dates, own, c.own, { hovertemplate: "%{y:,.1f}" }));
  const below = { yaxis: "y2", showlegend: false, hovertemplate: "%{y:.2%}" };
  if (falls.market) {
    data.push(
      line(`${benchmarkLabel()} · ${t("drawdown")}`, dates, falls.market, c.market, {
        ...below,
        line: { color: c.market, width: 1 },
      }),
    );
  }
  data.push(
    line(`${t("strategy")} · ${t("drawdown")}`, dates, falls.own, c.loss, {
      ...below,
      fill: "tozeroy",
      fillcolor: c.shade,
    }),
  );
  return { data, layout: equityLayout(series, dates, [own, market], falls, view) };
}

function equityLayout(_series, dates, curves, falls, view) {
  const { first, last, scale } = view;
  const inView = curves
    .filter(Boolean)
    .flatMap((y) => y.slice(first, last + 1))
    .filter((y) => y !== null && (scale === "linear" || y > 0));
  const [low, high] = [Math.min(...inView), Math.max(...inView)];
  const deepest = Math.min(
    ...[falls.own, falls.market]
      .filter(Boolean)
      .flatMap((y) => y.slice(first, last + 1))
      .filter((y) => y !== null),
  );
  const xaxis = { type: "date", range: [dates[first], dates[last]], anchor: "y2", hoverformat: "%Y-%m-%d" };
  return {
    xaxis,
    hovermode: "x unified",
    yaxis: valueAxis(low, high, scale),
    yaxis2: {
      domain: [0, 0.28],
      title: { text: t("drawdown") },
      tickformat: ".0%",
      anchor: "x",
      range: [Math.min(deepest * 1.08, -0.001), 0],
      fixedrange: true,
    },
    ...marks(view, dates),
  };
}

function marks(view, dates) {
  const c = colours();
  const shapes = [],
    annotations = [];
  if (view.marks) {
    facts.drawdowns.slice(0, 5).forEach((fall, i) => {
      const end = shadedUntil(fall, dates);
      if (end)
        shapes.push({
          type: "rect",
          xref: "x",
          yref: "paper",
          x0: fall.start,
          x1: end,
          y0: 0,
          y1: 1,
          fillcolor: c.shade,
          opacity: 0.45,
          line: { width: 0 },
          layer: "below",
        });
      annotations.push(mark(fall.valley, 0.3, `${i + 1}`, c.text));
    });
  }
  for (const { test_start: start } of facts.walk?.windows ?? []) shapes.push(upright(start, c.live, 1, "dot"));
  if (facts.live) {
    const start = isoDay(facts.live.start);
    shapes.push(upright(start, c.live, 2, "dash"));
    const isLate =
      facts.live.start - dayOf(dates[view.first]) > (dayOf(dates[view.last]) - dayOf(dates[view.first])) / 2;
    annotations.push({
      ...mark(start, 1, t("live_from", { date: start }), c.live),
      xanchor: isLate ? "right" : "left",
    });
  }
  return { shapes, annotations };
}

/** A shade over most of the chart tells nothing: a long drawdown is shaded while it deepens, or not. */
function shadedUntil(fall, dates) {
  const most = (dayOf(dates.at(-1)) - dayOf(dates[0])) / 3;
  const isShort = (end) => dayOf(end) - dayOf(fall.start) <= most;
  return [fall.end ?? dates.at(-1), fall.valley].find(isShort) ?? null;
}

const mark = (x, y, text, colour) => ({
  x,
  y,
  xref: "x",
  yref: "paper",
  yanchor: y === 1 ? "top" : "middle",
  text,
  showarrow: false,
  font: { size: 11, color: colour },
});

export function renderDrawdowns() {
  const rows = facts.drawdowns.map((row, i) => ({ ...row, rank: i + 1 }));
  if (!rows.length) return [el("p", {}, t("no_drawdowns"))];
  const columns = [
    { label: t("rank"), number: true, text: (row) => String(row.rank) },
    { label: t("depth"), number: true, text: (row) => percent(row.depth) },
    { label: t("peak"), text: (row) => row.start },
    { label: t("valley"), text: (row) => row.valley },
    { label: t("recovered"), node: recovered },
    { label: t("fall_days"), number: true, text: (row) => whole(row.fall) },
    { label: t("recovery_days"), number: true, text: (row) => whole(row.recovery) },
    {
      label: t("length_days"),
      number: true,
      text: (row) => (row.end ? whole(row.length) : t("so_far", { days: whole(row.length) })),
    },
  ];
  if (facts.stats.benchmark) {
    columns.push({ label: t("benchmark_same"), number: true, text: (row) => percent(row.benchmark) });
  }
  return [table(t("s_drawdowns"), columns, rows), el("p", { class: "note" }, t("drawdowns_note"))];
}

const recovered = (row) =>
  row.end ?? el("strong", { class: "open", title: t("still_open_long", { date: facts.meta.end }) }, t("still_open"));
