// The money of a run that kept an account.

import { chart, colours, line } from "./charts.js";
import { el } from "./dom.js";
import { amount, isoDay, percent } from "./format.js";
import { facts } from "./store.js";
import { t } from "./text.js";

/** What money is called, with its currency where there are several. */
export const moneyText = () => (facts.account.currency ? `${t("money")} (${facts.account.currency})` : t("money"));

/** From what to what the money grew. */
export function accountDates() {
  if (!facts.account) return null;
  const { start, flows, end, money_weighted: weighted } = facts.account;
  const rows = [
    ["account_start", start, amount],
    ["account_flows", flows, amount],
    ["account_end", end, amount],
    ["account_weighted", weighted, percent],
  ].filter(([, value]) => value !== null);
  return el(
    "dl",
    { class: "dates" },
    rows.map(([key, value, text]) => el("div", {}, el("dt", {}, t(key)), el("dd", {}, text(value)))),
  );
}

export function accountChart(money) {
  if (!money) return [];
  const x = money.days.map(isoDay);
  const build = () => {
    const c = colours();
    const curve = (key, colour, more) =>
      key in money ? [line(t(`account_${key}`), x, money[key], colour, { hovertemplate: "%{y:,.0f}", ...more })] : [];
    return {
      data: [
        curve("equity", c.own),
        curve("long", c.market),
        curve("short", c.loss),
        curve("cash", c.live),
        curve("paid", c.loss, { yaxis: "y2", line: { color: c.loss, width: 1.6, dash: "dot" } }),
        curve("received", c.live, { yaxis: "y2", line: { color: c.live, width: 1.6, dash: "dot" } }),
      ].flat(),
      layout: {
        xaxis: { type: "date", anchor: "y2", hoverformat: "%Y-%m-%d" },
        yaxis: { domain: [0.4, 1], tickformat: "~s", title: { text: moneyText() } },
        yaxis2: { domain: [0, 0.3], tickformat: "~s", rangemode: "tozero" },
      },
    };
  };
  return [el("h3", {}, t("account_money")), chart(t("account_alt"), 380, build)];
}
