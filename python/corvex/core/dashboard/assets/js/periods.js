// Crises, best and worst periods, and the live part.

import { el } from "./dom.js";
import { figure, isoDay, percent, signedPercent } from "./format.js";
import { benchmarkLabel } from "./heading.js";
import { facts } from "./store.js";
import { defined, table } from "./table.js";
import { t } from "./text.js";

/** The columns of a return beside the benchmark's; only the first without a benchmark. */
function besideBenchmark() {
  const columns = [{ label: t("strategy"), number: true, text: (row) => signedPercent(row.strategy) }];
  if (facts.stats.benchmark) {
    columns.push(
      { label: benchmarkLabel(), number: true, text: (row) => signedPercent(row.benchmark) },
      {
        label: t("difference"),
        number: true,
        text: (row) => signedPercent(row.benchmark === null ? null : row.strategy - row.benchmark),
      },
    );
  }
  return columns;
}

export function renderPeriods() {
  const parts = [];
  if (facts.crises.length) parts.push(crisisTable(), el("p", { class: "note" }, t("crises_note")));
  const lists = [
    ["worst_months", facts.extremes.monthly.worst],
    ["best_months", facts.extremes.monthly.best],
    ["worst_days", facts.extremes.daily.worst],
    ["best_days", facts.extremes.daily.best],
  ];
  const tables = lists
    .filter(([, rows]) => rows.length)
    .map(([key, rows]) =>
      table(t(key), [{ label: t("period"), text: (row) => row.label }, ...besideBenchmark()], rows),
    );
  if (tables.length) parts.push(el("div", { class: "pair" }, tables));
  return parts.length ? parts : null;
}

function crisisTable() {
  return table(
    t("s_periods"),
    [
      { label: t("crisis"), text: (row) => t(`crisis_${row.key}`) },
      { label: t("from"), text: (row) => row.start },
      { label: t("to"), text: (row) => row.end },
      ...besideBenchmark(),
      { label: t("inside_drawdown"), number: true, text: (row) => percent(row.drawdown) },
    ],
    facts.crises,
  );
}

export function renderLive() {
  if (!facts.live) return null;
  const { parts, start } = facts.live;
  const names = Object.keys(parts);
  if (!names.length) return null;
  const keys = Object.keys(parts[names[0]]).filter(
    (key) => key !== "from" && key !== "to" && names.some((name) => parts[name][key] !== null),
  );
  const columns = [
    { label: t("item"), node: (key) => defined(key) },
    ...names.map((name) => ({
      label: `${t(`part_${name}`)} (${parts[name].from} – ${parts[name].to})`,
      number: true,
      text: (key) => figure(key, parts[name][key]),
    })),
  ];
  return [table(t("s_live"), columns, keys), el("p", { class: "note" }, t("live_note", { date: isoDay(start) }))];
}
