// The runs of a sweep: their parameters, figures and neighbours.

import { select } from "./dom.js";
import { figure } from "./format.js";
import { facts } from "./store.js";
import { figureText, t } from "./text.js";

/** The parameters that vary, each with its place in the series. */
export const varying = () =>
  facts.parameters.map((parameter, at) => ({ ...parameter, at })).filter(({ texts }) => texts.length > 1);

/** Numbers, dates and lengths of time have an order in which one may step. */
export const isOrdered = ({ ranks }) => ranks.filter((rank) => rank !== null).length > 1;

/** The runs as they travel, with readers for their cells. */
export function runBook(series) {
  const failed = new Map(series.failed);
  const shown = varying();
  const text = ({ texts, at }, i) => texts[series.codes[at][i]];
  return {
    count: facts.meta.carried,
    code: ({ at }, i) => series.codes[at][i],
    text,
    value: (name, i) => series.values[name]?.[i] ?? null,
    error: (i) => (failed.has(i) ? series.errors[failed.get(i)] : null),
    hasErrors: failed.size > 0,
    describe: (i) => shown.map((parameter) => `${parameter.name}=${text(parameter, i)}`).join(", ") || t("sweep_run"),
  };
}

export const isLessBetter = (key) => facts.less.includes(key);

/** The runs that have a figure, the best first; ties stand in the grid's order. */
export function rankedRuns(book, key) {
  const sign = isLessBetter(key) ? 1 : -1;
  const known = Array.from({ length: book.count }, (_, i) => i).filter((i) => book.value(key, i) !== null);
  return known.sort((i, j) => sign * (book.value(key, i) - book.value(key, j)) || i - j);
}

export const figureChoice = (chosen, choose) =>
  select(
    t("sweep_figure"),
    facts.figures.map((key) => [key, figureText(key)[0]]),
    chosen,
    choose,
  );

const MOST_NEAREST = 2500; // each is compared with all others

/**
 * The neighbours of each run: those one step away or, where most runs have none since they are no grid,
 * those that lie nearest.
 */
export function neighbourRuns(series, count) {
  const stepped = steppedRuns(series, count);
  const alone = stepped.filter((places) => !places.length).length;
  if (2 * alone <= count || count > MOST_NEAREST) return { beside: stepped, isNearest: false };
  return { beside: nearestRuns(series, count), isNearest: true };
}

/** For each run as many others as it would have on a grid; parameters without an order are the same. */
function nearestRuns(series, count) {
  const axes = varying();
  const ordered = axes.filter(isOrdered);
  const groups = new Map();
  const points = Array.from({ length: count }, (_, i) => {
    const code = ({ at }) => series.codes[at][i];
    const rank = (axis) => axis.ranks[code(axis)] ?? null;
    const key = axes.map((axis) => (rank(axis) === null ? code(axis) : "")).join(",");
    if (!groups.has(key)) groups.set(key, []);
    groups.get(key).push(i);
    // By rank: values may lie close together here and far apart there.
    return { key, at: ordered.map((axis) => (rank(axis) ?? 0) / (axis.ranks.length - 1)) };
  });
  const square = (value) => value * value;
  const distance = (i, j) => points[i].at.reduce((sum, value, axis) => sum + square(value - points[j].at[axis]), 0);
  return points.map(({ key }, i) =>
    groups
      .get(key)
      .filter((j) => j !== i)
      .map((j) => [distance(i, j), j])
      .sort((one, other) => one[0] - other[0] || one[1] - other[1])
      .slice(0, 2 * ordered.length)
      .map(([, j]) => j),
  );
}

/** For each run those that lie one step away in one ordered parameter, all others being equal. */
function steppedRuns(series, count) {
  const axes = varying();
  const keyOf = (codes) => codes.join(",");
  const codesOf = (i) => axes.map(({ at }) => series.codes[at][i]);
  const places = new Map();
  for (let i = count - 1; i >= 0; i--) places.set(keyOf(codesOf(i)), i);
  return Array.from({ length: count }, (_, i) => {
    const own = codesOf(i);
    const beside = axes.flatMap(({ ranks }, axis) =>
      [-1, 1].map((step) => {
        const code = own[axis] + step;
        // Values with an order stand before those without, so that a step is the next code.
        if (ranks[own[axis]] === null || (ranks[code] ?? null) === null) return undefined;
        return places.get(keyOf(own.with(axis, code)));
      }),
    );
    return beside.filter((place) => place !== undefined);
  });
}

/** The mean and the worst of what a run's neighbours show; null without any that has the figure. */
export function besideRun(book, beside, key) {
  const values = beside.map((place) => book.value(key, place)).filter((value) => value !== null);
  if (!values.length) return null;
  const worst = isLessBetter(key) ? Math.max(...values) : Math.min(...values);
  return { mean: meanOf(values), worst, count: values.length };
}

export const meanOf = (values) => values.reduce((sum, value) => sum + value, 0) / values.length;

export const middleOf = (values) => {
  const ordered = [...values].sort((a, b) => a - b);
  const half = Math.floor(ordered.length / 2);
  return ordered.length % 2 ? ordered[half] : (ordered[half - 1] + ordered[half]) / 2;
};

/** A figure with its name. */
export const told = (key, value) => `${figureText(key)[0]} ${figure(key, value)}`;
