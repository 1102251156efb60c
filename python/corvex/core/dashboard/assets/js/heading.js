// The name, the period, the market and the headline figures.

import { byId, choices, el, replaceContent } from "./dom.js";
import { figure, number, percent } from "./format.js";
import { facts } from "./store.js";
import { defined } from "./table.js";
import { currentLanguage, languages, marketName, setLanguage, t, views } from "./text.js";

export const benchmarkLabel = () => facts.meta.benchmark ?? t("benchmark");

export function renderTop(change) {
  const { start, end, years, market } = facts.meta;
  const period = t("subtitle", { start, end, years: number(years, 1), market: marketName(market) });
  const beside = facts.stats.benchmark ? ` · ${t("against", { benchmark: benchmarkLabel() })}` : "";
  replaceContent(byId("subtitle"), period + beside);
  renderTools(change);
}

/** The language's and the printer's buttons; `change` is called after another language was chosen. */
export function renderTools(change) {
  const { group } = choices("Language · 語言", languages, currentLanguage(), (code) => {
    setLanguage(code);
    change();
  });
  for (const button of group.children) button.lang = button.dataset.value;
  const print = el("button", { type: "button", class: "print", onclick: () => window.print() }, t("print"));
  replaceContent(byId("tools"), group, print);
  for (const node of document.querySelectorAll("[data-text]")) node.textContent = t(node.dataset.text);
}

export function renderSummary() {
  const { strategy, benchmark, relative } = facts.stats;
  const cards = views.headlines.map((key) => card(key, strategy[key], benchmark?.[key]));
  cards.push(...views.headlines_relative.filter((key) => key in relative).map((key) => card(key, relative[key])));
  if (facts.stats.trades) cards.push(card("win_rate", facts.stats.trades.win_rate));
  return [el("dl", { class: "cards" }, cards), drawdownNow(), notes()];
}

const card = (key, own, market) =>
  headline(defined(key), figure(key, own), market === undefined ? null : `${benchmarkLabel()} ${figure(key, market)}`);

/** A large value under its label, and what stands beside it. */
export const headline = (label, value, beside = null) =>
  el(
    "div",
    {},
    el("dt", {}, label),
    el("dd", { class: "big", style: `--length:${value.length}` }, value),
    beside ? el("dd", { class: "beside" }, beside) : null,
  );

function drawdownNow() {
  const { drawdown, peak } = facts.now;
  if (drawdown === null) return null;
  const text = drawdown < 0 ? t("drawdown_now", { depth: percent(-drawdown), peak }) : t("at_high");
  return el("p", { class: "state" }, text);
}

function notes() {
  const { periods, riskfree, start, end, benchmark_from: from, benchmark_to: to } = facts.meta;
  const lines = [t("convention", { periods, riskfree: percent(riskfree, 1) })];
  if (!facts.stats.benchmark) lines.push(t("no_benchmark"));
  if (from || to) lines.push(t("benchmark_span", { start: from ?? start, end: to ?? end }));
  if (facts.stats.benchmark) lines.push(...benchmarkNotes());
  lines.push(...facts.meta.notes.map((note) => note[currentLanguage()] ?? note.en ?? note));
  return lines.map((line) => el("p", { class: "note" }, line));
}

function benchmarkNotes() {
  const { benchmark_default: isDefault, price_index: isPriceIndex, benchmark_money: money } = facts.meta;
  return [
    isDefault && t("benchmark_default", { benchmark: benchmarkLabel() }),
    isPriceIndex && t("benchmark_price_index", { benchmark: benchmarkLabel() }),
    money && t(money.from ? "benchmark_converted" : "benchmark_as_quoted", { benchmark: benchmarkLabel(), ...money }),
  ].filter(Boolean);
}

export function renderFooter() {
  const generated = facts.meta.generated.replace("T", " ").replace("+00:00", " UTC");
  replaceContent(byId("footer"), t("footer", { version: facts.meta.version, generated }));
}
