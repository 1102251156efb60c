// Parameters that were chosen in one window and used in the next.

import { chart, colours } from "./charts.js";
import { el } from "./dom.js";
import { figure, number, percent, whole } from "./format.js";
import { headline } from "./heading.js";
import { facts } from "./store.js";
import { table } from "./table.js";
import { figureText, t, unitOf } from "./text.js";

const chosenBy = () => (facts.walk.choose ? figureText(facts.walk.choose)[0] : t("walk_score"));

const scoreText = (value) => (facts.walk.choose ? figure(facts.walk.choose, value) : number(value, 4));

export function renderWalk() {
  if (!facts.walk) return null;
  const { windows, efficiency, stability } = facts.walk;
  const different = new Set(windows.map(({ chosen }) => JSON.stringify(chosen))).size;
  const means = ["inside", "outside"].map((part) => meanScore(windows.map((row) => row[part])));
  const cards = [
    [t("walk_windows"), whole(windows.length), ""],
    [t("walk_inside"), scoreText(means[0]), chosenBy()],
    [t("walk_outside"), scoreText(means[1]), chosenBy()],
    [t("walk_efficiency"), percent(efficiency, 0), t("walk_efficiency_of")],
    [t("walk_stability"), percent(stability, 0), t("walk_stability_of", { count: whole(different) })],
  ];
  return [
    el(
      "dl",
      { class: "cards" },
      cards.map((parts) => headline(...parts)),
    ),
    chart(t("walk_alt"), 280, () => walkFigure(windows)),
    choiceTable(windows),
    el("p", { class: "note" }, t("walk_note", { figure: chosenBy() })),
    el("p", { class: "note" }, t("walk_limits")),
  ];
}

function meanScore(values) {
  const known = values.filter((value) => value !== null);
  return known.length ? known.reduce((sum, value) => sum + value, 0) / known.length : null;
}

function walkFigure(windows) {
  const c = colours();
  const bars = (part, colour) => ({
    type: "bar",
    name: t(`walk_${part}`),
    x: windows.map(({ test_start: start }) => start),
    y: windows.map((row) => row[part]),
    text: windows.map((row) => scoreText(row[part])),
    textposition: "none",
    hovertemplate: "%{text}",
    marker: { color: colour },
  });
  const isShare = facts.walk.choose && unitOf(facts.walk.choose) === "fraction";
  return {
    data: [bars("inside", c.market), bars("outside", c.own)],
    layout: {
      barmode: "group",
      xaxis: { type: "category" },
      yaxis: { title: { text: chosenBy() }, tickformat: isShare ? "~%" : "~g" },
    },
  };
}

/** What a window chooses otherwise than the one before it is marked. */
function choiceTable(windows) {
  const rows = windows.map((row, at) => ({ ...row, before: windows[at - 1]?.chosen }));
  const span = (from, to) => t("run_span", { start: from, end: to });
  const columns = [
    { label: t("walk_test"), text: (row) => span(row.test_start, row.test_end) },
    { label: t("walk_train"), text: (row) => span(row.train_start, row.train_end) },
    ...facts.walk.parameters.map((name, at) => ({
      label: name,
      node: ({ chosen, before }) =>
        before && before[at] !== chosen[at] ? el("strong", {}, chosen[at]) : document.createTextNode(chosen[at]),
    })),
    { label: t("walk_inside"), number: true, text: (row) => scoreText(row.inside) },
    { label: t("walk_outside"), number: true, text: (row) => scoreText(row.outside) },
  ];
  return table(t("s_walk"), columns, rows);
}
