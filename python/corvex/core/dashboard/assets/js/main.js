// Puts the page together.

import { renderAssumptions, renderCosts, renderLiquidity } from "./activity.js";
import { renderConfidence } from "./confidence.js";
import { renderDrawdowns, renderEquity } from "./equity.js";
import { renderFooter, renderSummary, renderTop } from "./heading.js";
import { renderHoldings } from "./holdings.js";
import { renderLive, renderPeriods } from "./periods.js";
import { renderReturns } from "./returns.js";
import { renderDistribution, renderRolling } from "./risk.js";
import { renderSections, renderWhole, startPage } from "./sections.js";
import { renderStatistics } from "./statistics.js";
import { renderExcursions, renderTrades } from "./trades.js";
import { renderWalk } from "./walk.js";

// In the order in which a reader asks. The second part tells whether the curves are needed.
const SECTIONS = [
  ["summary", renderSummary, false],
  ["equity", renderEquity, true],
  ["walk", renderWalk, false],
  ["returns", renderReturns, false],
  ["rolling", renderRolling, true],
  ["drawdowns", renderDrawdowns, false],
  ["distribution", renderDistribution, false],
  ["confidence", renderConfidence, false],
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

function render(series) {
  renderTop(() => renderWhole(render, series));
  const renderRest = renderSections(SECTIONS, series);
  return () => {
    renderRest();
    renderFooter();
  };
}

await startPage(render);
