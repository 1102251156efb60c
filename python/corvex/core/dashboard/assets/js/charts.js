// Charts: the library is unpacked once; what is in sight is drawn first, the rest when idle.

import { byId, el } from "./dom.js";
import { canUnpack, fromBase85, inflate } from "./store.js";
import { t } from "./text.js";

const charts = [];
let library = null;

export function plotly() {
  library ??= inflate(fromBase85(byId("charts").textContent)).then((source) => {
    document.head.append(el("script", {}, source));
    return window.Plotly;
  });
  return library;
}

/**
 * A place for a chart. `build` gives { data, layout }, again whenever colours or sizes change;
 * `ready(node, Plotly)` is called once, after the first drawing.
 */
export function chart(alt, height, build, ready = null) {
  const node = el("div", { class: "chart", role: "figure", "aria-label": alt,
                           style: `min-height:${height}px` });
  if (canUnpack()) charts.push({ node, height, build, ready, drawn: false });
  return node;
}

export function forgetCharts() {
  for (const { node, drawn } of charts) if (drawn) window.Plotly.purge(node);
  charts.length = 0;
}

const CONFIG = { displaylogo: false, responsive: true, displayModeBar: "hover",
  modeBarButtonsToRemove: ["lasso2d", "select2d", "autoScale2d"] };

export function draw(entry) {
  const { data, layout } = entry.build();
  const full = { ...baseLayout(entry.height), ...layout };
  for (const name of Object.keys(full)) {
    if (/^[xy]axis/.test(name)) full[name] = { ...axisStyle(), ...full[name] };
  }
  const printing = document.documentElement.hasAttribute("data-print");
  if (printing) [full.width, full.autosize] = [Math.min(entry.node.clientWidth || 680, 680), false];
  window.Plotly.react(entry.node, data, full, CONFIG);
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

const pause = () => new Promise((resolve) =>
  "requestIdleCallback" in window ? requestIdleCallback(resolve, { timeout: 100 }) : setTimeout(resolve));

/** Draw every chart, from the top of the page on, without holding up the reader's input. */
export async function drawAll() {
  if (!canUnpack()) return;
  await plotly();
  for (const entry of [...charts]) {
    if (!entry.drawn && charts.includes(entry)) draw(entry);
    await pause();
  }
}

export function colours() {
  const style = getComputedStyle(document.documentElement);
  const read = (name) => style.getPropertyValue(`--${name}`).trim();
  return { text: read("text"), soft: read("soft"), line: read("line"), grid: read("grid"),
           paper: read("paper"), own: read("own"), market: read("market"), gain: read("gain"),
           loss: read("loss"), shade: read("shade"), live: read("live") };
}

const onTouch = () => matchMedia("(pointer: coarse)").matches;

function baseLayout(height) {
  const { text, paper, line } = colours();
  return {
    height, autosize: true, paper_bgcolor: "rgba(0,0,0,0)", plot_bgcolor: "rgba(0,0,0,0)",
    font: { family: "system-ui, sans-serif", size: 12, color: text },
    margin: { l: 52, r: 16, t: 12, b: 36 }, hovermode: "x unified", dragmode: onTouch() ? false : "zoom",
    hoverlabel: { bgcolor: paper, bordercolor: line, font: { color: text } },
    legend: { orientation: "h", x: 0, y: 1.02, yanchor: "bottom", bgcolor: "rgba(0,0,0,0)" },
  };
}

function axisStyle() {
  const { grid, line } = colours();
  return { gridcolor: grid, linecolor: line, zerolinecolor: line, zerolinewidth: 1,
           automargin: true, fixedrange: onTouch() };
}

/** Chart texts know some markup, so what may hold any text goes in with its signs escaped. */
export const chartText = (text) =>
  text.replace(/[&<>]/g, (sign) => ({ "&": "&amp;", "<": "&lt;", ">": "&gt;" })[sign]);

export const line = (name, x, y, colour, more = {}) =>
  ({ type: "scatter", mode: "lines", name: chartText(name), x, y, line: { color: colour, width: 1.6 }, ...more });
