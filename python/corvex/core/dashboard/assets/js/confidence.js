// How far the result could have come about by chance.

import { chart, chartText, colours, line } from "./charts.js";
import { el } from "./dom.js";
import { number, percent, whole } from "./format.js";
import { facts } from "./store.js";
import { defined, table } from "./table.js";
import { currentLanguage, t } from "./text.js";
import { valueAxis } from "./view.js";

export function renderConfidence() {
  const found = facts.confidence;
  if (!found) return null;
  const columns = [
    { label: t("item"), node: ([key]) => defined(key) },
    { label: t("confidence_says"), text: ([, text]) => text },
  ];
  const how = { draws: whole(found.draws), returns: whole(found.returns), block: number(found.block, 1) };
  return [
    table(t("s_confidence"), columns, found.rows[currentLanguage()], { className: "sentences" }),
    el("div", { class: "pair" }, fan(found.fan, how), found.depths && depths(found.depths, how)),
    expected(found.drawdowns),
    el("p", { class: "note" }, t("confidence_note", how)),
    el("p", { class: "note" }, found.limits[currentLanguage()]),
  ];
}

export const titled = (title, content) => el("figure", {}, el("figcaption", {}, title), content);

function fan(found, how) {
  const alt = t("fan_alt", { ...how, low: growth(found.paths[0]), high: growth(found.paths.at(-1)) });
  return titled(
    t("fan"),
    chart(alt, 320, () => fanFigure(found)),
  );
}

const growth = (path) => number(100 * path.at(-1), 0);

function fanFigure({ days, paths, own }) {
  const c = colours();
  const of100 = (path) => path.map((value) => value && 100 * value);
  const outer = { line: { width: 0 }, showlegend: false, hoverinfo: "skip" };
  const band = (name, low, high, strength) => [
    line("", days, of100(low), c.market, outer),
    line(name, days, of100(high), c.market, {
      ...outer,
      showlegend: true,
      fill: "tonexty",
      fillcolor: `${c.market}${strength}`,
      line: { width: 0, color: c.market },
    }),
  ];
  const shown = { hovertemplate: "%{y:,.1f}" };
  const data = [
    ...band(t("fan_outer"), paths[0], paths[4], "30"),
    ...band(t("fan_inner"), paths[1], paths[3], "50"),
    line(t("fan_median"), days, of100(paths[2]), c.market, { ...shown, line: { color: c.market, dash: "dot" } }),
    line(t("strategy"), days, of100(own), c.own, shown),
  ];
  const values = [...paths, own].flat().filter((value) => value !== null);
  const [low, high] = [100 * Math.min(...values), 100 * Math.max(...values)];
  const scale = low > 0 ? "log" : "linear";
  const yaxis = { ...valueAxis(low, high, scale), domain: [0, 1], title: { text: t("fan_axis") } };
  return { data, layout: { xaxis: { type: "date", hoverformat: "%Y-%m-%d", range: [days[0], days.at(-1)] }, yaxis } };
}

function depths(found, how) {
  const alt = t("depths_alt", { ...how, depth: percent(found.own) });
  return titled(
    t("depths"),
    chart(alt, 320, () => depthsFigure(found)),
  );
}

function depthsFigure({ counts, edges, own }) {
  const c = colours();
  const isAsDeep = (i) => edges[i + 1] <= own;
  const bar = {
    type: "bar",
    x: counts.map((_, i) => (edges[i] + edges[i + 1]) / 2),
    y: counts,
    width: edges[1] - edges[0],
    customdata: counts.map((_, i) => `${percent(edges[i])} … ${percent(edges[i + 1])}`),
    marker: { color: counts.map((_, i) => (isAsDeep(i) ? c.loss : c.market)), opacity: 0.75 },
    hovertemplate: "%{customdata}: %{y}<extra></extra>",
  };
  const place = { xref: "x", yref: "paper", x: own };
  return {
    data: [bar],
    layout: {
      bargap: 0.03,
      hovermode: "x",
      xaxis: { tickformat: ".0%", hoverformat: ".2%" },
      yaxis: { title: { text: t("count") } },
      shapes: [{ ...place, type: "line", x0: own, x1: own, y0: 0, y1: 1, line: { color: c.own, width: 2 } }],
      annotations: [
        {
          ...place,
          y: 1,
          text: chartText(`${t("strategy")} ${percent(own)}`),
          showarrow: false,
          xanchor: own > (edges[0] + edges.at(-1)) / 2 ? "right" : "left",
          yanchor: "top",
          font: { size: 11, color: c.text },
        },
      ],
    },
  };
}

function expected(drawdowns) {
  const part = (label, text) => ({ label, number: true, text });
  const columns = [
    { label: t("horizon"), text: ({ years }) => t("horizon_years", { n: years }) },
    part(t("depth_50"), (row) => percent(row.depth_50)),
    part(t("depth_95"), (row) => percent(row.depth_95)),
    part(t("days_50"), (row) => whole(row.days_50)),
    part(t("days_95"), (row) => whole(row.days_95)),
  ];
  return el("div", {}, table(t("expected"), columns, drawdowns, { className: "narrow" }));
}
