// Every statistic, with its definition on pointing, on focus and on touch.

import { byId, el } from "./dom.js";
import { facts } from "./store.js";
import { figureTable } from "./table.js";
import { t } from "./text.js";

const PERIOD = (frequency, unit) =>
  ["mean", "vol", "sharpe", "sortino", "skew", "kurt"].map((name) => `${frequency}_${name}`)
    .concat(`best_${unit}`, `worst_${unit}`);

const GROUPS = [
  ["g_return", ["total_return", "cagr", "win_day_perc", "win_month_perc", "win_year_perc",
                "twelve_month_win_perc", "avg_up_month", "avg_down_month"]],
  ["g_recent", ["mtd", "three_month", "six_month", "ytd", "one_year", "three_year", "five_year", "ten_year", "incep"]],
  ["g_risk", ["max_drawdown", "avg_drawdown", "avg_drawdown_days", "longest_drawdown_days", "time_under_water",
              "ulcer_index", "calmar", "tail_ratio", "omega"]],
  ["g_daily", PERIOD("daily", "day")],
  ["g_monthly", PERIOD("monthly", "month")],
  ["g_yearly", PERIOD("yearly", "year")],
];
const AGAINST_BENCHMARK = ["alpha", "beta", "correlation", "tracking_error", "information_ratio", "up_capture", "down_capture"];
const HELD = ["time_in_market", "mean_gross", "mean_net", "mean_count", "max_count"];

export function renderStatistics() {
  const { strategy, benchmark, relative } = facts.stats;
  const listed = new Set(GROUPS.flatMap(([, keys]) => keys));
  const others = Object.keys(strategy).filter((key) => !listed.has(key));
  const tables = GROUPS.map(([title, keys]) => figureTable(t(title), keys, strategy, benchmark));
  tables.push(figureTable(t("g_relative"), AGAINST_BENCHMARK, relative), facts.exposure && figureTable(t("exposure"), HELD, facts.exposure),
    figureTable(t("s_statistics"), others, strategy, benchmark));
  return [el("p", { class: "note" }, t("statistics_note")), el("div", { class: "pair" }, tables.filter(Boolean))];
}

/** One tip for all definitions: it follows the pointer's target or the focus, Escape hides it. */
export function listenForDefinitions() {
  const tip = byId("tip");
  const hide = () => { tip.hidden = true; };
  const show = (target) => {
    tip.textContent = target.dataset.definition;
    tip.hidden = false;
    const place = target.getBoundingClientRect();
    const left = Math.min(Math.max(place.left, 8), innerWidth - tip.offsetWidth - 8);
    const above = place.bottom + tip.offsetHeight + 12 > innerHeight;
    tip.style.left = `${left + scrollX}px`;
    tip.style.top = `${(above ? place.top - tip.offsetHeight - 6 : place.bottom + 6) + scrollY}px`;
  };
  const about = (event) => event.target.closest?.(".defined");
  for (const name of ["pointerover", "focusin", "click"]) {
    document.addEventListener(name, (event) => {
      const target = about(event);
      if (!target) return;
      target.setAttribute("aria-describedby", "tip");
      show(target);
    });
  }
  for (const name of ["pointerout", "focusout"]) document.addEventListener(name, (event) => about(event) && hide());
  document.addEventListener("keydown", (event) => event.key === "Escape" && hide());
}
