// Liquidity, costs, turnover, and what the run assumed.

import { accountChart, accountDates, moneyText } from "./account.js";
import { el } from "./dom.js";
import { amount, percent, quantity, share, whole } from "./format.js";
import { benchmarkLabel } from "./heading.js";
import { facts } from "./store.js";
import { besideItself, defined, table } from "./table.js";
import { has, marketName, t } from "./text.js";

export function renderLiquidity() {
  const found = facts.liquidity;
  if (!found) return null;
  const parts = [];
  if (found.turnover.length) {
    parts.push(
      table(
        t("traded_value"),
        [
          { label: t("fills"), text: (row) => t(`fill_${row.fill}`) },
          { label: t("count"), number: true, text: (row) => whole(row.fills) },
          { label: t("median_value"), number: true, text: (row) => whole(row.median) },
          { label: t("low_value"), number: true, text: (row) => whole(row.low) },
        ],
        found.turnover,
      ),
    );
  }
  if (found.capacity.length) {
    parts.push(
      table(
        t("capacity_caption"),
        [
          { label: t("capacity_share"), text: (row) => share(row.share) },
          { label: t("capacity"), number: true, text: (row) => whole(row.capital) },
        ],
        found.capacity,
      ),
    );
  }
  const ratios = Object.keys(found.ratios);
  if (ratios.length) {
    parts.push(
      table(
        t("fills"),
        [
          { label: t("item"), node: (key) => defined(key) },
          { label: t("setting_value"), number: true, text: (key) => percent(found.ratios[key], 1) },
        ],
        ratios,
      ),
    );
  }
  return [
    el("div", { class: "pair" }, parts),
    found.turnover.length ? el("p", { class: "note" }, t("liquidity_note")) : null,
  ];
}

export function renderCosts(series) {
  return [
    el("div", { class: facts.account ? "" : "pair" }, costTable(), turnoverFigure()),
    accountChart(series?.account),
    activityTable(),
  ].flat();
}

const PAID = ["fees", "tax", "slippage", "impact", "financing", "borrow"];
const RECEIVED = ["interest", "dividends", "currency"];

/** What was paid by kind, and below the total what was received; of an account also in money. */
function costTable() {
  const { costs, account } = facts;
  const rates = { fees: costs.fee_ratio, tax: costs.tax_ratio, slippage: costs.slippage_ratio };
  const row = (kind) => [kind, rates[kind], costs[kind], account?.kinds[kind]];
  const rows = PAID.map(row).filter(([, rate, sum]) => (rate ?? null) !== null || sum);
  const known = costs.total !== null;
  const columns = [
    { label: t("cost_kind"), text: ([kind]) => t(kind) },
    { label: t("rate"), number: true, text: ([, rate]) => rateText(rate) },
  ];
  if (known) columns.push({ label: t("paid"), number: true, text: ([, , sum]) => percent(sum) });
  if (account) {
    columns.push(
      { label: moneyText(), number: true, text: ([, , , of]) => amount(of.money) },
      { label: t("drag"), number: true, text: ([, , , of]) => percent(of.yearly) },
    );
  }
  const foot = known ? [["cost_total", undefined, costs.total, account?.total]] : [];
  if (account) foot.push(...RECEIVED.map(row).filter(([, , sum]) => sum));
  return el("div", {}, table(t("costs_paid"), columns, rows, { foot }));
}

const rateText = (rate) => (rate == null ? "" : settingText({ value: rate, fraction: typeof rate === "number" }));

function turnoverFigure() {
  const { turnover, total } = facts.costs;
  const figure =
    turnover === null
      ? null
      : el(
          "dl",
          { class: "dates" },
          el("div", {}, el("dt", {}, defined("turnover")), el("dd", {}, percent(turnover, 0))),
        );
  return el(
    "div",
    {},
    figure,
    total === null ? null : el("p", { class: "note" }, t("costs_note")),
    facts.account ? el("p", { class: "note" }, t("drag_note")) : null,
    accountDates(),
  );
}

function activityTable() {
  if (!facts.activity.length) return [];
  const columns = [
    { label: t("year"), text: (row) => row.year },
    { label: t("yearly_turnover"), number: true, text: (row) => percent(row.turnover, 0) },
  ];
  if (facts.activity.some((row) => row.entered !== null)) {
    columns.push(
      { label: t("fill_entry"), number: true, text: (row) => whole(row.entered) },
      { label: t("fill_exit"), number: true, text: (row) => whole(row.left) },
    );
  }
  const rows = [...facts.activity].reverse();
  return [besideItself(t("turnover_by_year"), columns, rows), el("p", { class: "note" }, t("yearly_turnover_note"))];
}

export function settingText({ value, fraction }) {
  if (typeof value === "boolean") return t(value ? "yes" : "no");
  if (fraction) return share(value);
  if (typeof value === "number") return quantity(value);
  if (has(`value_${value}`)) return t(`value_${value}`);
  return String(value);
}

export function renderAssumptions() {
  const { market, freq, bar, periods, riskfree, days } = facts.meta;
  const rows = [
    ["market", marketName(market)],
    ["benchmark", facts.stats.benchmark ? benchmarkLabel() : null],
    ...facts.assumptions.map((setting) => [setting.key, settingText(setting)]),
    ["freq", freq],
    ["bar", bar],
    ["days", whole(days)],
    ["periods", periods],
    ["riskfree", share(riskfree)],
  ];
  const columns = [
    { label: t("setting"), text: ([key]) => t(`a_${key}`) },
    { label: t("setting_value"), text: ([, value]) => String(value) },
  ];
  return [
    table(
      t("s_assumptions"),
      columns,
      rows.filter(([, value]) => value != null),
      { className: "narrow" },
    ),
    el("p", { class: "note" }, t("timing")),
  ];
}
