// Several curves over the same dates, each at 100 where the view begins, with their drawdowns.

import { chart, colours, line, redraw } from "./charts.js";
import { el, replaceContent } from "./dom.js";
import { isoDay, signedPercent } from "./format.js";
import { drawdowns, gain, rebased } from "./maths.js";
import { t } from "./text.js";
import { datedView, valueAxis } from "./view.js";

const COLOURS = ["own", "loss", "live", "market", "text"];
const DASHES = ["solid", "dash", "dot", "dashdot"];
const LONGEST = 44;

/**
 * `series` holds { days, curves }; `names` are those of the legend, `told` those beside the returns,
 * `chosen` the places of the curves to begin with. Gives { content, controls, choose }: what to show,
 * where more controls may go, and a function that shows other places.
 */
export function rankedCurves(series, { alt, names, told: plainNames, chosen }) {
  const { view, ranges, scale, listen } = datedView(series, show);
  const dates = series.days.map(isoDay);
  const falls = series.curves.map(drawdowns);
  const told = el("p", { class: "view", "aria-live": "polite" });
  const node = chart(alt, 560, () => curvesFigure(chosen, names, series.curves, dates, falls, view), listen);
  function show() {
    tell();
    redraw(node);
  }
  function tell() {
    const returns = chosen.map(
      (i) => `${plainNames[i]} ${signedPercent(gain(series.curves[i], view.first, view.last))}`,
    );
    replaceContent(
      told,
      t("compare_view", { start: dates[view.first], end: dates[view.last], returns: returns.join(" · ") }),
    );
  }
  tell();
  const controls = el("div", { class: "controls" }, ranges, scale);
  const choose = (places) => {
    chosen = places;
    show();
  };
  return { content: [controls, told, node, el("p", { class: "note" }, t("compare_zoom"))], controls, choose };
}

/** A name as the legend shows it, not longer than a line. */
const shortened = (name) => ([...name].length > LONGEST ? `${[...name].slice(0, LONGEST - 1).join("")}…` : name);

function curvesFigure(chosen, names, curves, dates, falls, { first, last, scale }) {
  const palette = colours();
  const values = chosen.map((i) => rebased(curves[i], first));
  const below = chosen.map((i) => falls[i]);
  const style = (i, width) => ({
    width,
    color: palette[COLOURS[i % COLOURS.length]],
    dash: DASHES[Math.floor(i / COLOURS.length) % DASHES.length],
  });
  const data = chosen
    .map((place) => shortened(names[place]))
    .flatMap((name, i) => [
      line(name, dates, values[i], "", { line: style(i, 1.6), legendgroup: String(i), hovertemplate: "%{y:,.1f}" }),
      line(`${name} · ${t("drawdown")}`, dates, below[i], "", {
        line: style(i, 1),
        legendgroup: String(i),
        yaxis: "y2",
        showlegend: false,
        hovertemplate: "%{y:.2%}",
      }),
    ]);
  const seen = (lists) => lists.flatMap((list) => list.slice(first, last + 1)).filter((y) => y !== null);
  const shown = seen(values).filter((y) => scale === "linear" || y > 0);
  const least = (numbers) => numbers.reduce((a, b) => Math.min(a, b), Infinity);
  const most = (numbers) => numbers.reduce((a, b) => Math.max(a, b), -Infinity);
  return {
    data,
    layout: {
      xaxis: { type: "date", range: [dates[first], dates[last]], anchor: "y2", hoverformat: "%Y-%m-%d" },
      yaxis: valueAxis(least(shown), most(shown), scale),
      yaxis2: {
        domain: [0, 0.28],
        title: { text: t("drawdown") },
        tickformat: ".0%",
        anchor: "x",
        range: [Math.min(least(seen(below)) * 1.08, -0.001), 0],
        fixedrange: true,
      },
    },
  };
}
