// Rolling risk, and the distribution of the returns.

import { chart, chartText, colours, drawLater, line, redraw, upright } from "./charts.js";
import { choices, el, replaceContent } from "./dom.js";
import { isoDay, percent, share, whole } from "./format.js";
import { benchmarkLabel } from "./heading.js";
import { changes, rollingBeta, rollingRisk } from "./maths.js";
import { facts } from "./store.js";
import { table } from "./table.js";
import { t } from "./text.js";

export function renderRolling(series) {
  const { periods, riskfree } = facts.meta;
  const options = [3, 6, 12, 36].filter((n) => (n / 12) * periods < series.days.length - 1);
  if (!options.length) return null;
  const state = { months: options.includes(12) ? 12 : options.at(-1) };
  const note = el("p", { class: "note" });
  const dates = series.days.map(isoDay);
  const size = () => Math.round((state.months / 12) * periods);
  const explain = () =>
    replaceContent(
      note,
      t(series.benchmark ? "rolling_note" : "rolling_note_alone", {
        days: size(),
        riskfree: percent(riskfree, 1),
        periods,
      }),
    );
  const node = chart(t("rolling_alt"), series.benchmark ? 480 : 340, () =>
    rollingFigure(series, dates, size(), periods, riskfree),
  );
  const { group } = choices(
    t("window"),
    options.map((n) => [String(n), t("window_months", { n })]),
    String(state.months),
    (value) => {
      state.months = Number(value);
      explain();
      redraw(node);
    },
  );
  explain();
  return [el("div", { class: "controls" }, group), node, note];
}

function rollingFigure(series, dates, size, periods, riskfree) {
  const c = colours();
  const own = changes(series.strategy);
  const risk = rollingRisk(own, size, periods, riskfree);
  const data = [];
  if (series.benchmark) {
    const market = changes(series.benchmark);
    const beside = rollingRisk(market, size, periods, riskfree);
    data.push(
      line(benchmarkLabel(), dates, beside.sharpe, c.market, { hovertemplate: "%{y:.2f}" }),
      line(benchmarkLabel(), dates, beside.volatility, c.market, {
        yaxis: "y2",
        showlegend: false,
        hovertemplate: "%{y:.1%}",
      }),
      line(t("beta"), dates, rollingBeta(own, market, size), c.own, {
        yaxis: "y3",
        showlegend: false,
        hovertemplate: "%{y:.2f}",
      }),
    );
  }
  data.push(
    line(t("strategy"), dates, risk.sharpe, c.own, { hovertemplate: "%{y:.2f}" }),
    line(t("strategy"), dates, risk.volatility, c.own, { yaxis: "y2", showlegend: false, hovertemplate: "%{y:.1%}" }),
  );
  const domains = series.benchmark
    ? [
        [0.7, 1],
        [0.36, 0.64],
        [0, 0.3],
      ]
    : [
        [0.54, 1],
        [0, 0.46],
      ];
  const layout = {
    xaxis: {
      type: "date",
      anchor: domains.length === 3 ? "y3" : "y2",
      hoverformat: "%Y-%m-%d",
      range: [dates[0], dates.at(-1)],
    },
    yaxis: { domain: domains[0], title: { text: t("sharpe") } },
    yaxis2: { domain: domains[1], title: { text: t("volatility") }, tickformat: ".0%", rangemode: "tozero" },
  };
  if (domains[2]) layout.yaxis3 = { domain: domains[2], title: { text: t("beta") } };
  return { data, layout };
}

export function renderDistribution() {
  const frequencies = Object.keys(facts.distribution);
  if (!frequencies.length) return null;
  const place = el("div");
  const show = (frequency) => replaceContent(place, distributionOf(frequency));
  show(frequencies[0]);
  const { group } = choices(
    t("frequency"),
    frequencies.map((name) => [name, t(name)]),
    frequencies[0],
    show,
  );
  return [frequencies.length > 1 ? el("div", { class: "controls" }, group) : null, place];
}

function distributionOf(frequency) {
  const found = facts.distribution[frequency];
  const [tail] = found.tails;
  const alt = t("distribution_alt", { var: percent(tail.strategy.var), cvar: percent(tail.strategy.cvar) });
  const node = chart(alt, 300, () => histogram(found));
  drawLater(node);
  return [node, tailTable(found), el("p", { class: "note" }, t("distribution_note", { count: whole(found.count) }))];
}

function tailTable(found) {
  const rows = found.tails.flatMap((tail) => ["var", "cvar"].map((kind) => ({ kind, tail })));
  const columns = [
    { label: t("item"), text: ({ kind, tail }) => t(kind, { level: share(1 - tail.share) }) },
    { label: t("strategy"), number: true, text: ({ kind, tail }) => percent(tail.strategy[kind]) },
  ];
  if (found.benchmark) {
    columns.push({ label: benchmarkLabel(), number: true, text: ({ kind, tail }) => percent(tail.benchmark?.[kind]) });
  }
  return table(t("tail"), columns, rows, { className: "figures narrow" });
}

function histogram(found) {
  const c = colours();
  const { edges } = found;
  const middles = edges.slice(1).map((edge, i) => (edge + edges[i]) / 2);
  const width = edges[1] - edges[0];
  const ranges = edges.slice(1).map((edge, i) => `${percent(edges[i])} … ${percent(edge)}`);
  const [{ strategy: tail }] = found.tails;
  const bars = (y, colour, more) => ({
    type: "bar",
    name: t("strategy"),
    x: middles,
    y,
    width,
    customdata: ranges,
    marker: { color: colour, opacity: 0.75 },
    hovertemplate: "%{customdata}: %{y}",
    ...more,
  });
  const isTail = (i) => edges[i + 1] <= tail.var;
  const data = [
    bars(
      found.strategy.map((n, i) => (isTail(i) ? null : n)),
      c.own,
    ),
    bars(
      found.strategy.map((n, i) => (isTail(i) ? n : null)),
      c.loss,
      { showlegend: false },
    ),
  ];
  if (found.benchmark) {
    data.push({
      type: "scatter",
      mode: "lines",
      name: chartText(benchmarkLabel()),
      x: middles,
      y: found.benchmark,
      line: { color: c.market, shape: "hvh", width: 1.4 },
      customdata: ranges,
      hovertemplate: "%{customdata}: %{y}",
    });
  }
  const at = (x, text, height) => ({
    shape: upright(x, c.text, 1.5, "dot", height),
    note: {
      x,
      y: height,
      xref: "x",
      yref: "paper",
      text: `${text} ${percent(x)}`,
      showarrow: false,
      xanchor: "right",
      yanchor: "top",
      font: { size: 11, color: c.text },
    },
  });
  const lines = [at(tail.var, "VaR 95%", 1), at(tail.cvar, "CVaR 95%", 0.86)];
  return {
    data,
    layout: {
      bargap: 0.03,
      barmode: "overlay",
      xaxis: { tickformat: ".1%", hoverformat: ".2%", range: found.view },
      yaxis: { title: { text: t("count") } },
      hovermode: "x",
      shapes: lines.map((one) => one.shape),
      annotations: lines.map((one) => one.note),
    },
  };
}
