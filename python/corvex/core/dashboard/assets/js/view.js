// What part of some dates is looked at, and on which scale of values.

import { isNarrow } from "./charts.js";
import { choices } from "./dom.js";
import { dayOf, tickText } from "./format.js";
import { axisTicks } from "./maths.js";
import { t } from "./text.js";

const MONTHS_BACK = [
  ["1m", "1M", 1],
  ["6m", "6M", 6],
  ["1y", "1Y", 12],
  ["3y", "3Y", 36],
  ["5y", "5Y", 60],
  ["10y", "10Y", 120],
];

/**
 * A view of all of `series.days` on a logarithmic scale, the buttons that change it, and what makes
 * a chart that is zoomed change it too. `changed` is called after each change.
 */
export function datedView(series, changed) {
  const last = series.days.length - 1;
  const view = { first: 0, last, scale: "log" };
  const ranges = choices(t("range"), rangeOptions(series), "all", (value) => {
    [view.first, view.last] = rangeRows(series, value);
    changed();
  });
  const scales = ["log", "linear"].map((name) => [name, t(name)]);
  const scale = choices(t("scale"), scales, view.scale, (value) => {
    view.scale = value;
    changed();
  });
  function listen(plot) {
    plot.on("plotly_relayout", (event) => {
      const rows = rowsOfEvent(event, series, view);
      if (!rows) return;
      [view.first, view.last] = rows;
      ranges.press(rows[0] === 0 && rows[1] === last ? "all" : "");
      changed();
    });
  }
  return { view, ranges: ranges.group, scale: scale.group, listen };
}

function rangeOptions(series) {
  const days = series.days.at(-1) - series.days[0];
  const fitting = MONTHS_BACK.filter(([, , months]) => months * 30.4 < days);
  return [...fitting.map(([value, text]) => [value, text]), ["ytd", t("range_ytd")], ["all", t("range_all")]];
}

/** The first row is the last value not after the range's start: what it is rebased to. */
function rangeRows(series, value) {
  const last = series.days.length - 1;
  if (value === "all") return [0, last];
  const end = new Date(series.days[last] * 86400000);
  const start =
    value === "ytd"
      ? Date.UTC(end.getUTCFullYear() - 1, 11, 31)
      : monthsBefore(end, MONTHS_BACK.find(([name]) => name === value)[2]);
  return [rowNotAfter(series.days, start / 86400000), last];
}

function monthsBefore(end, months) {
  const [year, month, day] = [end.getUTCFullYear(), end.getUTCMonth() - months, end.getUTCDate()];
  const lastDay = new Date(Date.UTC(year, month + 1, 0)).getUTCDate();
  return Date.UTC(year, month, Math.min(day, lastDay));
}

function rowNotAfter(days, day) {
  let row = 0;
  while (row + 1 < days.length && days[row + 1] <= day) row++;
  return row;
}

function rowsOfEvent(event, series, view) {
  const last = series.days.length - 1;
  if (event["xaxis.autorange"] || event["xaxis2.autorange"]) return [0, last];
  const axis = ["xaxis", "xaxis2"].find((name) => `${name}.range[0]` in event);
  const range = axis ? [event[`${axis}.range[0]`], event[`${axis}.range[1]`]] : event["xaxis.range"];
  if (!range) return "yaxis.autorange" in event ? [view.first, view.last] : null;
  const [first, end] = range.map((value) => rowNotAfter(series.days, dayOf(String(value))));
  return end > first ? [first, end] : [Math.max(end - 1, 0), Math.max(end, 1)];
}

/** It follows what is in view, so it is not zoomed itself. */
export function valueAxis(low, high, scale) {
  const [a, b] = scale === "log" ? [Math.log10(low), Math.log10(high)] : [low, high];
  const margin = (b - a || Math.abs(b) * 0.01 || 1) * 0.05;
  const range = [a - margin, b + margin];
  const ticks = axisTicks(...(scale === "log" ? range.map((power) => 10 ** power) : range), scale);
  return {
    domain: [0.34, 1],
    type: scale,
    title: { text: isNarrow() ? "" : t("value") },
    range,
    tickmode: "array",
    tickvals: ticks,
    ticktext: ticks.map(tickText),
    fixedrange: true,
  };
}
