// Puts the page together.

import { byId, el, replaceContent } from "./dom.js";
import { renderAssumptions, renderCosts, renderLiquidity } from "./activity.js";
import { drawAll, forgetCharts, redrawAll, unpackLibrary } from "./charts.js";
import { renderDrawdowns, renderEquity } from "./equity.js";
import { renderFooter, renderSummary, renderTop } from "./heading.js";
import { renderHoldings } from "./holdings.js";
import { renderLive, renderPeriods } from "./periods.js";
import { renderReturns } from "./returns.js";
import { renderDistribution, renderRolling } from "./risk.js";
import { listenForDefinitions, renderStatistics } from "./statistics.js";
import { canUnpack, readSeries } from "./store.js";
import { currentLanguage, setLanguage, t } from "./text.js";
import { renderExcursions, renderTrades } from "./trades.js";

// In the order in which a reader asks. The second part tells whether the curves are needed.
const SECTIONS = [
  ["summary", renderSummary, false],
  ["equity", renderEquity, true],
  ["returns", renderReturns, false],
  ["rolling", renderRolling, true],
  ["drawdowns", renderDrawdowns, false],
  ["distribution", renderDistribution, false],
  ["live", renderLive, false],
  ["holdings", renderHoldings, false],
  ["trades", renderTrades, true],
  ["excursions", renderExcursions, true],
  ["liquidity", renderLiquidity, false],
  ["costs", renderCosts, false],
  ["assumptions", renderAssumptions, false],
  ["periods", renderPeriods, false],
  ["statistics", renderStatistics, false],
];

function section([name, render, needsSeries], series) {
  if (needsSeries && !series) return null;
  const content = contentOf(render, series);
  if (content === null) return null;
  return el("section", { id: name, "aria-labelledby": `h-${name}` },
    el("h2", { id: `h-${name}` }, t(`s_${name}`)), content);
}

/** What one section cannot show must not take the others with it. */
function contentOf(render, series) {
  try {
    const content = render(series);
    return content === null ? null : [content].flat(2);
  } catch (error) {
    console.error(error);
    return [el("p", { class: "state bad" }, t("failed", { reason: error.message }))];
  }
}

function render(series) {
  forgetCharts();
  document.body.removeAttribute("data-ready");
  renderTop(() => render(series));
  const sections = SECTIONS.map((one) => section(one, series)).filter(Boolean);
  replaceContent(byId("content"), canUnpack() ? null : el("p", { class: "state bad" }, t("no_charts")), sections);
  const links = sections.map((node) =>
    el("li", {}, el("a", { href: `#${node.id}` }, t(`n_${node.id}`))));
  byId("contents").setAttribute("aria-label", t("contents"));
  replaceContent(byId("contents"), el("ul", {}, links));
  renderFooter();
  return drawAll().then(() => document.body.setAttribute("data-ready", "true"));
}

function listenForPrint() {
  addEventListener("beforeprint", () => {
    document.documentElement.setAttribute("data-print", "");
    if (window.Plotly) redrawAll();
  });
  addEventListener("afterprint", () => {
    document.documentElement.removeAttribute("data-print");
    redrawAll();
  });
}

setLanguage(currentLanguage());
listenForDefinitions();
listenForPrint();
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", redrawAll);
if (canUnpack()) unpackLibrary();
await render(canUnpack() ? await readSeries() : null);
