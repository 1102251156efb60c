// What every page does: its sections one after the other, links to them, languages and printing.

import { drawAll, forgetCharts, outOfPatience, redrawAll, unpackLibrary } from "./charts.js";
import { byId, el, replaceContent } from "./dom.js";
import { listenForDefinitions } from "./statistics.js";
import { canUnpack, readSeries } from "./store.js";
import { currentLanguage, setLanguage, t } from "./text.js";

// The headline figures and the curve.
const SEEN_FIRST = 2;

function section([name, render, needsSeries], series) {
  if (needsSeries && !series) return null;
  const content = contentOf(render, series);
  if (content === null) return null;
  return el(
    "section",
    { id: name, "aria-labelledby": `h-${name}` },
    el("h2", { id: `h-${name}` }, t(`s_${name}`)),
    content,
  );
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

/**
 * Each of `all` is [name, function that renders it, whether it needs the curves]. Renders those that
 * a reader sees first, and returns a function that renders the others.
 */
export function renderSections(all, series) {
  const links = el("ul");
  byId("contents").setAttribute("aria-label", t("contents"));
  replaceContent(byId("contents"), links);
  replaceContent(byId("content"), canUnpack() ? null : el("p", { class: "state bad" }, t("no_charts")));
  const add = (some) => {
    const sections = some.map((one) => section(one, series)).filter(Boolean);
    byId("content").append(...sections);
    links.append(...sections.map((node) => el("li", {}, el("a", { href: `#${node.id}` }, t(`n_${node.id}`)))));
  };
  add(all.slice(0, SEEN_FIRST));
  return () => add(all.slice(SEEN_FIRST));
}

function listenForPrint() {
  addEventListener("beforeprint", () => {
    finish();
    document.documentElement.setAttribute("data-print", "");
    if (window.Plotly) redrawAll();
  });
  addEventListener("afterprint", () => {
    document.documentElement.removeAttribute("data-print");
    redrawAll();
  });
}

/**
 * `render(series)` fills the page's top and returns a function that fills the rest; it is called
 * again when the language changes.
 */
export async function startPage(render) {
  setLanguage(currentLanguage());
  listenForDefinitions();
  listenForPrint();
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", redrawAll);
  if (canUnpack()) unpackLibrary();
  await renderWhole(render, canUnpack() ? await readSeries() : null);
}

let turn = 0;
let unfinished = null;

function finish() {
  unfinished?.();
  unfinished = null;
}

/** The first chart is worth more than tables further down, so it is drawn before these are made. */
export async function renderWhole(render, series) {
  const own = ++turn;
  forgetCharts();
  document.body.removeAttribute("data-ready");
  unfinished = render(series);
  const drawn = drawAll().then(() => true);
  const isDrawn = await Promise.race([drawn, outOfPatience()]);
  if (own !== turn) return;
  finish();
  if (!isDrawn) byId("content").prepend(el("p", { id: "elsewhere", class: "state bad" }, t("charts_elsewhere")));
  await drawn;
  // The browser looked for the address's section before it was made.
  if (own === 1 && location.hash) byId(location.hash.slice(1))?.scrollIntoView();
  await drawAll();
  if (own === turn) document.body.setAttribute("data-ready", "true");
}
