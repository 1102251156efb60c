// The trades: searched, sorted and paged, the way that one went, and all excursions.

import { downloadRows, orderedRows, pager, printedRows, sortHeader } from "./browse.js";
import { chart, chartText, colours, drawLater, line } from "./charts.js";
import { el, replaceContent, select } from "./dom.js";
import {
  amount,
  figure,
  isoDay,
  isoMinute,
  orMissing,
  percent,
  price,
  quantity,
  signedPercent,
  whole,
} from "./format.js";
import { countedFields } from "./maths.js";
import { facts } from "./store.js";
import { besideItself, defined, scrolling, table } from "./table.js";
import { figuresOf, has, t } from "./text.js";

const UNITS = {
  return: 1e-8,
  currency_return: 1e-8,
  position: 1e-5,
  mae: 1e-5,
  mfe: 1e-5,
  mfe_before_mae: 1e-5,
  max_drawdown: 1e-5,
};
const MANY = 2500;

/** The trade table as it travels, with readers for its cells. */
export function tradeBook(columns) {
  const date = columns.unit === "day" ? isoDay : isoMinute;
  const cell = (name, i) => columns[name]?.[i] ?? null;
  return {
    count: columns.count,
    has: (name) => name in columns,
    asset: (i) => columns.assets[columns.asset[i]],
    reason: (i) => columns.reasons?.[columns.reason[i]] ?? "",
    currency: (i) => columns.currencies?.[columns.currency[i]] ?? "",
    date: (name, i) => date(cell(name, i)),
    time: (name, i) => cell(name, i) ?? Infinity,
    value: (name, i) => (cell(name, i) === null ? null : cell(name, i) * (UNITS[name] ?? 1)),
    isOpen: (i) => cell("exit_date", i) === null,
  };
}

const reasonText = (reason) => (has(`reason_${reason}`) ? t(`reason_${reason}`) : reason);

function tradeColumns(book) {
  const dated = (name, label) => ({
    key: name,
    label,
    text: (i) => dateText(book, name, i),
    value: (i) => book.time(name, i),
  });
  const valued = (name, label, write) => ({
    key: name,
    label,
    number: true,
    text: (i) => write(book.value(name, i)),
    value: (i) => book.value(name, i),
  });
  const all = [
    { key: "asset", label: t("asset"), text: (i) => book.asset(i), value: (i) => book.asset(i).toLowerCase() },
    dated("entry_date", t("entry")),
    dated("exit_date", t("exit")),
    valued("return", t("return"), signedPercent),
    valued("currency_return", t("currency_return"), signedPercent),
    valued("position", t("weight"), (x) => percent(x, 1)),
    valued("period", t("bars"), whole),
    { key: "currency", label: t("quoted_in"), text: (i) => book.currency(i), value: (i) => book.currency(i) },
    valued("trade_price@entry_date", t("entry_price"), price),
    valued("trade_price@exit_date", t("exit_price"), price),
    valued("mae", t("mae"), percent),
    valued("mfe", t("mfe"), percent),
    {
      key: "reason",
      label: t("reason"),
      text: (i) => reasonText(book.reason(i)),
      value: (i) => book.reason(i),
      written: (i) => book.reason(i),
    },
  ];
  return all.filter(({ key }) => key === "asset" || book.has(key));
}

function dateText(book, name, i) {
  const date = book.date(name, i);
  if (date) return date;
  return name === "exit_date" && book.date("entry_date", i) ? t("open") : t("pending");
}

export function renderTrades(series) {
  if (!series.trades) return null;
  const book = tradeBook(series.trades);
  const columns = tradeColumns(book);
  const state = { search: "", status: "all", key: "entry_date", down: true, page: 0, rows: 25, chosen: null };
  if (!book.has("entry_date")) state.key = "return";
  const texts = [];
  const place = el("div");
  const status = el("p", { class: "found", role: "status" });
  const show = () => {
    state.chosen = null;
    const order = orderedRows(columns, matching(book, texts, state), state);
    const pages = Math.max(1, Math.ceil(order.length / state.rows));
    state.page = Math.min(Math.max(state.page, 0), pages - 1);
    replaceContent(status, t("found", { count: whole(order.length), all: whole(book.count) }));
    const from = state.page * state.rows;
    const to = Math.min(from + state.rows, order.length);
    replaceContent(
      place,
      tradeTable(columns, order.slice(from, to), state, show, choose),
      pager(t("s_trades"), pages, state, show),
      to - from < order.length ? printedRows(from + 1, to, order.length) : null,
    );
  };
  const choose = (i) => {
    state.chosen = state.chosen === i ? null : i;
    place.querySelector("tr.detail")?.remove();
    for (const row of place.querySelectorAll("tr[data-trade]")) {
      const isChosen = Number(row.dataset.trade) === state.chosen;
      row.classList.toggle("chosen", isChosen);
      row.querySelector("button").setAttribute("aria-expanded", String(isChosen));
      if (isChosen) row.after(detailRow(columns.length, place.clientWidth, tradeDetail(book, series.paths, i)));
    }
    drawLater(place.querySelector("tr.detail .chart"));
  };
  show();
  return [
    figuresOfTrades(),
    controls(book, columns, state, texts, show),
    status,
    place,
    el("p", { class: "note" }, `${t("trades_note")} ${t(`prices_${facts.meta.prices}`)} ${t("trades_hint")}`),
    facts.account?.currency ? el("p", { class: "note" }, t("trades_currency")) : null,
    ...summaries(),
  ];
}

function searchText(book, i) {
  const dates = ["entry_date", "exit_date"].map((name) => book.date(name, i) ?? "");
  return [book.asset(i), ...dates, book.currency(i), book.reason(i), reasonText(book.reason(i))]
    .join(" ")
    .toLowerCase();
}

function matching(book, texts, { search, status }) {
  const words = search.toLowerCase().split(/\s+/).filter(Boolean);
  const tests = {
    all: () => true,
    open: book.isOpen,
    closed: (i) => !book.isOpen(i),
    won: (i) => book.value("return", i) > 0,
    lost: (i) => book.value("return", i) !== null && book.value("return", i) <= 0,
  };
  const textOf = (i) => (texts[i] ??= searchText(book, i));
  const result = [];
  for (let i = 0; i < book.count; i++) {
    if (tests[status](i) && words.every((word) => textOf(i).includes(word))) result.push(i);
  }
  return result;
}

function controls(book, columns, state, texts, show) {
  const again = (change) => {
    Object.assign(state, change, { page: 0 });
    show();
  };
  const search = el("input", {
    type: "search",
    id: "trade-search",
    placeholder: t("search_hint"),
    oninput: (event) => again({ search: event.target.value }),
  });
  const statuses = ["all", "closed", "open", "won", "lost"].map((name) => [name, t(`status_${name}`)]);
  const sizes = [10, 25, 50, 100].map((n) => [String(n), String(n)]);
  return el(
    "div",
    { class: "controls" },
    el("label", { class: "field" }, el("span", {}, t("search")), search),
    select(t("status"), statuses, state.status, (value) => again({ status: value })),
    select(t("per_page"), sizes, String(state.rows), (value) => again({ rows: Number(value) })),
    el(
      "button",
      {
        type: "button",
        onclick: () => downloadRows("trades.csv", columns, orderedRows(columns, matching(book, texts, state), state)),
      },
      t("download"),
    ),
  );
}

function tradeTable(columns, rows, state, show, choose) {
  const head = el(
    "tr",
    {},
    columns.map((column) => sortHeader("trade-table", column, state, show)),
  );
  const body = rows.map((i) =>
    el(
      "tr",
      { "data-trade": i, onclick: () => choose(i) },
      columns.map((column, at) =>
        at === 0
          ? el("th", { scope: "row" }, tradeButton(columns, i, choose))
          : el("td", { class: column.number ? "num" : null }, column.text(i)),
      ),
    ),
  );
  return scrolling(
    t("s_trades"),
    el(
      "table",
      { id: "trade-table", class: "browsed" },
      el("caption", {}, t("s_trades")),
      el("thead", {}, head),
      el("tbody", {}, body),
    ),
  );
}

function tradeButton(columns, i, choose) {
  const entry = columns.find(({ key }) => key === "entry_date")?.text(i) ?? "";
  return el(
    "button",
    {
      type: "button",
      class: "link",
      "aria-expanded": "false",
      title: t("select_trade", { asset: columns[0].text(i), entry }),
      onclick: (event) => {
        event.stopPropagation();
        choose(i);
      },
    },
    columns[0].text(i),
  );
}

/** Below the row of its trade; it stays in sight when the table is scrolled sideways. */
const detailRow = (span, width, content) =>
  el("tr", { class: "detail" }, el("td", { colspan: span }, el("div", { style: `width:${width - 24}px` }, content)));

function tradeDetail(book, paths, i) {
  const entry = dateText(book, "entry_date", i);
  const title = t("selected", { asset: book.asset(i), entry, exit: dateText(book, "exit_date", i) });
  const written = { shares: quantity, money: amount };
  const parts = ["return", "currency_return", "mae", "mfe", "max_drawdown", "shares", "money"]
    .filter((name) => book.has(name))
    .map((name) =>
      el(
        "div",
        {},
        el("dt", {}, t(name === "max_drawdown" ? "drawdown" : name)),
        el("dd", {}, (written[name] ?? percent)(book.value(name, i))),
      ),
    );
  const at = paths ? paths.trade.indexOf(i) : -1;
  return [
    el("h3", { id: "trade-title" }, title),
    el("dl", { class: "dates" }, parts),
    ...(at >= 0 ? pathChart(book, paths, at, i) : rangeBar(book, i)),
  ];
}

function pathChart(book, paths, at, i) {
  const start = paths.length.slice(0, at).reduce((sum, n) => sum + n, 0);
  const y = paths.values.slice(start, start + paths.length[at]).map((value) => (value === null ? null : value / 1e4));
  const x = y.map((_, j) => isoDay(paths.days[paths.row[at] + j]));
  const [mae, mfe] = ["mae", "mfe"].map((name) => book.value(name, i));
  const alt = t("path_alt", { mae: percent(mae), mfe: percent(mfe), return: percent(book.value("return", i)) });
  const build = () => {
    const c = colours();
    const level = (value, colour) => ({
      type: "line",
      xref: "paper",
      x0: 0,
      x1: 1,
      y0: value,
      y1: value,
      line: { color: colour, dash: "dash", width: 1.2 },
    });
    const shapes = [mae === null ? null : level(mae, c.loss), mfe === null ? null : level(mfe, c.gain)].filter(Boolean);
    const levels = [mae, mfe, 0, ...y].filter((value) => value !== null);
    const margin = (Math.max(...levels) - Math.min(...levels)) * 0.06 || 0.01;
    return {
      data: [
        line(t("return"), x, y, c.own, { mode: y.length < 60 ? "lines+markers" : "lines", hovertemplate: "%{y:.2%}" }),
      ],
      layout: {
        shapes,
        showlegend: false,
        xaxis: { type: "date", hoverformat: "%Y-%m-%d" },
        yaxis: { tickformat: ".1%", range: [Math.min(...levels) - margin, Math.max(...levels) + margin] },
      },
    };
  };
  return [chart(alt, 260, build), el("p", { class: "note" }, t("path_note"))];
}

/** From the worst to the best point of a trade whose closes are not in the page. */
function rangeBar(book, i) {
  const [mae, mfe, end] = ["mae", "mfe", "return"].map((name) => book.value(name, i) ?? 0);
  const [low, high] = [Math.min(mae, end, 0), Math.max(mfe, end, 0)];
  const part = (value) => `${(((value - low) / (high - low || 1)) * 100).toFixed(1)}%`;
  const alt = t("path_alt", { mae: percent(mae), mfe: percent(mfe), return: percent(end) });
  return [
    el("div", { class: "excursion", role: "img", "aria-label": alt, style: `--zero:${part(0)};--end:${part(end)}` }),
    el("p", { class: "note" }, t("no_path")),
  ];
}

function figuresOfTrades() {
  const own = facts.stats.trades;
  if (!own) return null;
  return el(
    "dl",
    { class: "cards small" },
    figuresOf("trades")
      .filter((key) => own[key] != null)
      .map((key) => el("div", {}, el("dt", {}, defined(key)), el("dd", {}, figure(key, own[key])))),
  );
}

function summaries() {
  return [
    ...(facts.assets?.rows.length > 1 ? assetTable() : []),
    facts.reasons.length ? el("div", { class: "pair" }, reasonTable()) : null,
  ];
}

function assetTable() {
  const { rows, others, costs, interest, rest, total, estimated, currency } = facts.assets;
  const columns = [
    { label: t("asset"), text: (row) => row.asset },
    { label: t("trades_count"), number: true, text: (row) => ("trades" in row ? whole(row.trades) : "") },
    { label: defined("win_rate"), number: true, text: (row) => ("trades" in row ? percent(row.win_rate, 1) : "") },
    { label: defined("expectancy"), number: true, text: (row) => ("trades" in row ? percent(row.mean) : "") },
  ];
  if (total === null) return [besideItself(t("by_asset"), columns, rows)];
  columns.push({ label: t("contribution"), number: true, text: (row) => signedPercent(row.sum) });
  if (currency !== null) {
    const text = (row) => ("currency" in row ? signedPercent(row.currency) : "");
    columns.push({ label: t("of_currency"), number: true, text });
  }
  const foot = [
    others && { asset: t("other_assets", { count: whole(others.count) }), ...others },
    interest === null ? null : { asset: t("interest"), sum: interest },
    rest === null ? null : { asset: t("other_moves"), sum: rest },
    { asset: t("cost_total_row"), sum: costs },
    { asset: t("total"), sum: total, ...(currency === null ? {} : { currency }) },
  ].filter(Boolean);
  const note = estimated ? `${t("by_asset_note")} ${t("by_asset_estimated")}` : t("by_asset_note");
  return [besideItself(t("by_asset"), columns, rows, { foot }), el("p", { class: "note" }, note)];
}

function reasonTable() {
  return el(
    "div",
    {},
    table(
      t("by_reason"),
      [
        { label: t("reason"), text: (row) => orMissing(reasonText(row.reason) || null) },
        { label: t("trades_count"), number: true, text: (row) => whole(row.trades) },
        { label: defined("win_rate"), number: true, text: (row) => percent(row.win_rate, 1) },
        { label: defined("expectancy"), number: true, text: (row) => percent(row.mean) },
      ],
      facts.reasons,
    ),
  );
}

export function renderExcursions(series) {
  if (!series.trades?.mae && !series.trades?.mfe) return null;
  const book = tradeBook(series.trades);
  const closed = Array.from({ length: book.count }, (_, i) => i).filter(
    (i) => !book.isOpen(i) && book.value("return", i) !== null,
  );
  if (!closed.length) return null;
  const plots = ["mae", "mfe"]
    .filter((name) => book.has(name))
    .map((name) =>
      el(
        "figure",
        {},
        el("figcaption", {}, t(`scatter_${name}`)),
        chart(t("scatter_alt"), 340, () => (closed.length > MANY ? density : scatter)(book, closed, name)),
      ),
    );
  const note = closed.length > MANY ? `${t("scatter_note")} ${t("density_note")}` : t("scatter_note");
  return [el("div", { class: "pair" }, plots), el("p", { class: "note" }, note)];
}

const excursionAxes = (name) => ({
  xaxis: { tickformat: "~%", title: { text: t(name) } },
  yaxis: { tickformat: "~%", title: { text: t("return") } },
});

/** So many points would each be an element of the page: they are counted in fields instead. */
function density(book, closed, name) {
  const c = colours();
  const { x, y, counts, outside } = countedFields(
    closed.map((i) => book.value(name, i) ?? 0),
    closed.map((i) => book.value("return", i)),
  );
  const { xaxis, yaxis } = excursionAxes(name);
  const counted = {
    type: "heatmap",
    x: x.middles,
    y: y.middles,
    z: counts.map((row) => row.map((n) => (n ? Math.log10(n) : null))),
    text: counts,
    colorscale: [
      [0, c.grid],
      [0.25, c.market],
      [1, c.own],
    ],
    showscale: false,
    hovertemplate: "%{text} · %{x:.1%} → %{y:.1%}<extra></extra>",
  };
  const rest = points(
    book,
    outside.map((at) => closed[at]),
    name,
    { color: c.loss, size: 5 },
  );
  return {
    data: [counted, { ...rest, showlegend: false }],
    layout: { hovermode: "closest", xaxis: { ...xaxis, range: x.view }, yaxis: { ...yaxis, range: y.view } },
  };
}

function scatter(book, closed, name) {
  const c = colours();
  const group = (label, rows, colour) => ({
    name: label,
    ...points(book, rows, name, { color: colour, size: closed.length > 1000 ? 4 : 6, opacity: 0.6 }),
  });
  const isWon = (i) => book.value("return", i) > 0;
  return {
    data: [
      group(t("won"), closed.filter(isWon), c.gain),
      group(
        t("lost"),
        closed.filter((i) => !isWon(i)),
        c.loss,
      ),
    ],
    layout: { hovermode: "closest", ...excursionAxes(name) },
  };
}

const points = (book, rows, name, marker) => ({
  type: "scatter",
  mode: "markers",
  marker,
  x: rows.map((i) => book.value(name, i)),
  y: rows.map((i) => book.value("return", i)),
  text: rows.map((i) => `${chartText(book.asset(i))} ${book.date("entry_date", i) ?? ""}`),
  hovertemplate: "%{text}<br>%{x:.2%} → %{y:.2%}<extra></extra>",
});
