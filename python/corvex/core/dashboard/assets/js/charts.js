// Charts: the library is unpacked once; what is in sight is drawn first, the rest when idle.

import { byId, el } from "./dom.js";
import { canUnpack, fromBase85, inflate } from "./store.js";

const charts = [];
let library = null;

let source = null;

export function unpackLibrary() {
  const carried = byId("charts").textContent;
  source ??= (isElsewhere() ? fromAround(carried) : Promise.resolve(carried)).then((packed) =>
    inflate(fromBase85(packed)),
  );
  return source;
}

/** In a notebook one output carries the library for all; this page then has its hash alone. */
export const isElsewhere = () => byId("charts").textContent.startsWith("sha256-");

const PATIENCE = 2000;

/** Resolves when the library should have come, if it is not in the page itself. */
export const outOfPatience = () =>
  new Promise((resolve) => {
    if (isElsewhere()) setTimeout(resolve, PATIENCE);
  });

/** The page around this one may get the library later, so it is asked until it answers. */
function fromAround(name) {
  return new Promise((resolve) => {
    const ask = () => window.parent.postMessage({ corvexCharts: name }, "*");
    const again = setInterval(ask, PATIENCE / 4);
    addEventListener("message", (event) => {
      if (event.source !== window.parent || event.data?.corvexCharts !== name) return;
      clearInterval(again);
      byId("elsewhere")?.remove();
      resolve(event.data.text);
    });
    ask();
  });
}

/** Running the library takes long enough to be felt, so what is on the page is painted first. */
function plotly() {
  library ??= unpackLibrary().then(async (script) => {
    await painted();
    document.head.append(el("script", {}, script));
    return window.Plotly;
  });
  return library;
}

/**
 * A place for a chart. `build` gives { data, layout }, again whenever colours or sizes change;
 * `ready(node, Plotly)` is called once, after the first drawing.
 */
export function chart(alt, height, build, ready = null) {
  const node = el("div", { class: "chart", role: "figure", "aria-label": alt, style: `min-height:${height}px` });
  if (canUnpack()) charts.push({ node, height, build, ready, drawn: false });
  return node;
}

export function forgetCharts() {
  for (const { node, drawn } of charts) if (drawn) window.Plotly.purge(node);
  charts.length = 0;
}

// The buttons are named one by one: the library's own choice has one that would send the data away.
const CONFIG = {
  displaylogo: false,
  responsive: true,
  plotlyServerURL: "",
  showSendToCloud: false,
  modeBarButtons: [["toImage", "zoom2d", "pan2d", "zoomIn2d", "zoomOut2d", "resetScale2d"]],
};

/** Where nothing hovers the bar would always stand, on the names of the legend. */
const config = () => ({ ...CONFIG, displayModeBar: onTouch() || isNarrow() ? false : "hover" });

export function draw(entry) {
  const { data, layout } = entry.build();
  const full = { ...baseLayout(entry.height * (printing() ? 0.8 : 1), hasLegend(data, layout)), ...layout };
  for (const name of Object.keys(full).filter((key) => /^[xy]axis/.test(key))) {
    full[name] = { ...axisStyle(), ...full[name] };
  }
  if (printing()) [full.width, full.autosize] = [entry.node.clientWidth, false];
  window.Plotly.react(entry.node, data, full, config());
  entry.node.dataset.drawn = "true";
  if (!entry.drawn && entry.ready) entry.ready(entry.node);
  entry.drawn = true;
}

/** Draw a chart that came into the page after the others. */
export async function drawLater(node) {
  const entry = charts.find((one) => one.node === node);
  if (!entry) return;
  await plotly();
  await pause();
  if (!entry.drawn && node.isConnected) draw(entry);
}

export function redraw(node) {
  const entry = charts.find((one) => one.node === node);
  if (entry?.drawn) draw(entry);
}

export function redrawAll() {
  for (const entry of charts) if (entry.drawn || printing()) draw(entry);
}

const printing = () => document.documentElement.hasAttribute("data-print");

const pause = () =>
  new Promise((resolve) =>
    "requestIdleCallback" in window ? requestIdleCallback(resolve, { timeout: 100 }) : setTimeout(resolve),
  );

/** Until the browser has shown what is on the page; it shows nothing of a page in the background. */
const painted = () =>
  new Promise((resolve) => {
    requestAnimationFrame(() => setTimeout(resolve));
    setTimeout(resolve, 100);
  });

/** Draw every chart, those in sight first, without holding up the reader's input. */
export async function drawAll() {
  if (!canUnpack()) return;
  await plotly();
  for (let entry = nextChart(); entry; entry = nextChart()) {
    draw(entry);
    await pause();
  }
}

function nextChart() {
  const waiting = charts.filter((entry) => !entry.drawn && entry.node.isConnected);
  return waiting.find(({ node }) => isInSight(node)) ?? waiting[0];
}

function isInSight(node) {
  const { top, bottom } = node.getBoundingClientRect();
  return bottom > 0 && top < innerHeight;
}

export function colours() {
  const style = getComputedStyle(document.documentElement);
  const read = (name) => style.getPropertyValue(`--${name}`).trim();
  return {
    text: read("text"),
    soft: read("soft"),
    line: read("line"),
    grid: read("grid"),
    paper: read("paper"),
    own: read("own"),
    market: read("market"),
    gain: read("gain"),
    loss: read("loss"),
    shade: read("shade"),
    live: read("live"),
  };
}

export const isNarrow = () => innerWidth < 640;

const onTouch = () => matchMedia("(pointer: coarse)").matches;

const hasLegend = (data, layout) =>
  layout.showlegend !== false && data.filter((trace) => trace.showlegend !== false).length > 1;

/** The margins are about what labels and legend take: where these need more, a chart is drawn twice. */
function baseLayout(height, legend) {
  const { text, soft, paper, line } = colours();
  return {
    height,
    autosize: true,
    paper_bgcolor: "rgba(0,0,0,0)",
    plot_bgcolor: "rgba(0,0,0,0)",
    font: { family: "system-ui, sans-serif", size: 12, color: text },
    margin: { l: isNarrow() ? 52 : 72, r: 16, t: legend ? 52 : 12, b: 36 },
    hovermode: "x unified",
    dragmode: onTouch() ? false : "zoom",
    hoverlabel: { bgcolor: paper, bordercolor: line, font: { color: text } },
    legend: { orientation: "h", x: 0, y: 1.02, yanchor: "bottom", bgcolor: "rgba(0,0,0,0)" },
    // Of itself it takes a clear paper for a black one, and lays a dark block over what is below.
    modebar: { bgcolor: paper, color: soft, activecolor: text },
  };
}

function axisStyle() {
  const { grid, line } = colours();
  return {
    gridcolor: grid,
    linecolor: line,
    zerolinecolor: line,
    zerolinewidth: 1,
    automargin: true,
    fixedrange: onTouch(),
  };
}

/** Chart texts know some markup, so what may hold any text goes in with its signs escaped. */
export const chartText = (text) => text.replace(/[&<>]/g, (sign) => ({ "&": "&amp;", "<": "&lt;", ">": "&gt;" })[sign]);

export const line = (name, x, y, colour, more = {}) => ({
  type: "scatter",
  mode: "lines",
  name: chartText(name),
  x,
  y,
  line: { color: colour, width: 1.6 },
  ...more,
});

/** A line from the bottom to a part of the height. */
export const upright = (x, color, width = 2, dash = "solid", height = 1) => ({
  type: "line",
  xref: "x",
  yref: "paper",
  x0: x,
  x1: x,
  y0: 0,
  y1: height,
  line: { color, width, dash },
});
