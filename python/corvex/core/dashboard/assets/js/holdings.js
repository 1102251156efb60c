// What is held, what comes with the next rebalance, and how fresh that is.

import { moneyText } from "./account.js";
import { chart, colours, line } from "./charts.js";
import { el } from "./dom.js";
import { amount, dayOf, isoDay, percent, quantity, signedPercent } from "./format.js";
import { facts } from "./store.js";
import { table } from "./table.js";
import { has, t } from "./text.js";

export function renderHoldings(series) {
  return [freshness(), dates(), holdingsTable(), exposureChart(series?.exposure)].flat();
}

function freshness() {
  const { historical, next_trading_date: next } = facts.freshness;
  if (historical) return el("p", { class: "state" }, t("historical"));
  if (!next) return null;
  // The session may lie anywhere in its day, so a whole day is left before the page calls it over.
  const days = Math.floor(Date.now() / 86400000) - dayOf(next);
  return days <= 1
    ? el("p", { class: "state good" }, t("fresh", { date: next }))
    : el("p", { class: "state bad" }, t("stale", { date: next, days }));
}

function dates() {
  const names = ["data_through", "next_trading_date", "current_rebalance", "next_rebalance", "planned_rebalance"];
  const known = names.filter((name) => facts.freshness[name]);
  return el(
    "dl",
    { class: "dates" },
    known.map((name) => el("div", {}, el("dt", {}, t(name)), el("dd", {}, facts.freshness[name]))),
  );
}

const actionText = (action) => (action === null ? "" : has(`action_${action}`) ? t(`action_${action}`) : action);

function holdingsTable() {
  const { rows, cash, next_cash: nextCash, source, cash_money: money, money_date: date } = facts.holdings;
  if (!rows.length) return el("p", {}, t("no_holdings"));
  const coming = rows[0].next !== null;
  const largest = Math.max(...rows.flatMap((row) => [row.weight, row.next ?? 0]).map(Math.abs)) || 1;
  const columns = [
    { label: t("asset"), text: (row) => row.asset },
    { label: t("weight_now"), number: true, node: (row) => weightBar(row, row.weight, largest) },
  ];
  if (coming) {
    columns.push(
      { label: t("weight_next"), number: true, node: (row) => weightBar(row, row.next, largest) },
      { label: t("change"), number: true, text: (row) => signedPercent(row.next - row.weight) },
    );
  }
  if (money !== null) {
    columns.push(
      { label: t("shares"), number: true, text: (row) => (row.shares == null ? "" : quantity(row.shares)) },
      { label: moneyText(), number: true, text: (row) => (row.money == null ? "" : amount(row.money)) },
    );
  }
  if (rows.some((row) => row.action)) columns.push({ label: t("action"), text: (row) => actionText(row.action) });
  if (rows.some((row) => row.entry)) {
    columns.push(
      { label: t("entered"), text: (row) => row.entry ?? "" },
      { label: t("open_return"), number: true, text: (row) => (row.entry ? signedPercent(row.return) : "") },
    );
  }
  const foot = [{ asset: t("cash"), weight: cash, next: nextCash, action: null, isCash: true, money }];
  return [
    table(t("s_holdings"), columns, rows, { foot }),
    el("p", { class: "note" }, t(source === "position" ? "holdings_position" : "holdings_note")),
    money === null ? null : el("p", { class: "note" }, t("holdings_money", { date })),
  ];
}

function weightBar(row, weight, largest) {
  if (row.isCash) return percent(weight);
  const size = (Math.abs(weight) / largest) * 100;
  return el("span", { class: weight < 0 ? "bar short" : "bar", style: `--size:${size.toFixed(2)}%` }, percent(weight));
}

function exposureChart(exposure) {
  if (!exposure) return [];
  const x = exposure.days.map(isoDay);
  const isShort = exposure.net.some((net, i) => Math.abs(net - exposure.gross[i]) > 1e-6);
  const build = () => {
    const c = colours();
    const step = (name, y, colour, more) =>
      line(name, x, y, colour, { line: { color: colour, shape: "hv", width: 1.4 }, ...more });
    const data = [step(t("gross"), exposure.gross, c.own, { hovertemplate: "%{y:.1%}" })];
    if (isShort) data.push(step(t("net"), exposure.net, c.live, { hovertemplate: "%{y:.1%}" }));
    data.push(step(t("holdings_count"), exposure.count, c.market, { yaxis: "y2", hovertemplate: "%{y}" }));
    return {
      data,
      layout: {
        xaxis: { type: "date", anchor: "y2", hoverformat: "%Y-%m-%d" },
        yaxis: { domain: [0.5, 1], tickformat: ".0%", rangemode: "tozero", title: { text: t("gross") } },
        yaxis2: { domain: [0, 0.4], rangemode: "tozero", title: { text: t("holdings_count") } },
      },
    };
  };
  return [el("h3", {}, t("exposure")), chart(t("exposure_alt"), 300, build)];
}
