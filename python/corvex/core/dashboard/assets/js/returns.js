// Returns by year and month.

import { chart, chartText, colours, isNarrow } from "./charts.js";
import { choices, el, replaceContent } from "./dom.js";
import { number } from "./format.js";
import { benchmarkLabel } from "./heading.js";
import { facts } from "./store.js";
import { table } from "./table.js";
import { monthNames, t } from "./text.js";

export function renderReturns() {
  const { years } = facts.returns;
  const place = el("div");
  const views = { strategy: own, benchmark: (row) => row.benchmark, difference };
  const show = (name) => replaceContent(place, monthTable(name, views[name]));
  show("strategy");
  const parts = [chart(t("yearly_alt"), 260, () => yearFigure(years))];
  if (years.some((row) => row.benchmark)) {
    const options = ["strategy", "benchmark", "difference"].map((name) => [name, t(name)]);
    parts.push(el("div", { class: "controls" }, choices(t("show"), options, "strategy", show).group));
  }
  return [...parts, place, el("p", { class: "note" }, t("returns_note"))];
}

const own = (row) => row;

/** As many years as have room beside each other. */
function spacedTicks(years) {
  const every = Math.ceil(years.length / (isNarrow() ? 8 : 24));
  const shown = years.filter((_, i) => (years.length - 1 - i) % every === 0);
  return { tickvals: shown, ticktext: shown };
}

function difference(row) {
  if (!row.benchmark) return null;
  const minus = (a, b) => (a === null || b === null ? null : a - b);
  return {
    months: row.months.map((value, i) => minus(value, row.benchmark.months[i])),
    total: minus(row.total, row.benchmark.total),
  };
}

export function yearLabel(row) {
  const parts = [
    row.from && t("from_date", { date: row.from.slice(5) }),
    row.to && t("to_date", { date: row.to.slice(5) }),
  ].filter(Boolean);
  return parts.length ? `${row.year} (${parts.join(", ")})` : String(row.year);
}

function monthTable(name, pick) {
  const rows = facts.returns.years.map((row) => ({ ...row, shown: pick(row) }));
  const largest = Math.max(...rows.flatMap((row) => row.shown?.months ?? []).map((x) => Math.abs(x ?? 0)));
  const columns = [{ label: t("year"), text: yearLabel }];
  const monthColumn = (month, i) => ({
    label: month,
    number: true,
    shade: (row) => shade(row.shown?.months[i], Math.min(largest, 0.12)),
    node: (row) => monthCell(row, i),
  });
  columns.push(...monthNames().map(monthColumn));
  columns.push({
    label: t("whole_year"),
    number: true,
    shade: (row) => shade(row.shown?.total, 0.4),
    node: (row) => el("strong", {}, cellText(row.shown?.total)),
  });
  return table(`${t("s_returns")} · ${name === "benchmark" ? benchmarkLabel() : t(name)}`, columns, rows.reverse(), {
    className: "months",
  });
}

const cellText = (value) => (value === null || value === undefined ? "" : number(value * 100, 1));

function monthCell(row, i) {
  const month = `${row.year}-${String(i + 1).padStart(2, "0")}`;
  const text = cellText(row.shown?.months[i]);
  return facts.returns.partial.includes(month) ? el("em", {}, text) : text;
}

/** A tint behind the number: blue for gains, orange for losses, stronger for larger ones. */
function shade(value, full) {
  if (value === null || value === undefined || !full) return null;
  const part = Math.round(Math.min(Math.abs(value) / full, 1) * 42);
  return `background:color-mix(in srgb, var(--${value < 0 ? "loss" : "gain"}) ${part}%, transparent)`;
}

function yearFigure(years) {
  const c = colours();
  const x = years.map((row) => String(row.year));
  const label = years.map(yearLabel);
  const bars = (name, y, colour) => ({
    type: "bar",
    name: chartText(name),
    x,
    y,
    marker: { color: colour },
    customdata: label,
    hovertemplate: "%{y:.2%}",
  });
  const data = [
    bars(
      t("strategy"),
      years.map((row) => row.total),
      c.own,
    ),
  ];
  if (years.some((row) => row.benchmark)) {
    data.push(
      bars(
        benchmarkLabel(),
        years.map((row) => row.benchmark?.total ?? null),
        c.market,
      ),
    );
  }
  return {
    data,
    layout: {
      xaxis: { type: "category", tickmode: "array", ...spacedTicks(x) },
      yaxis: { tickformat: ".0%" },
      bargap: 0.25,
      barmode: "group",
    },
  };
}
