// What every page does: its sections one after the other, links to them, languages and printing.

import { byId, el, replaceContent } from "./dom.js";
import { drawAll, forgetCharts, redrawAll, unpackLibrary } from "./charts.js";
import { listenForDefinitions } from "./statistics.js";
import { canUnpack, readSeries } from "./store.js";
import { currentLanguage, setLanguage, t } from "./text.js";

function section([name, render, needsSeries], series) {
  if (needsSeries && !series) return null;
  const content = contentOf(render, series);
  if (content === null) return null;
  return el("section", { id: name, "aria-labelledby": `h-${name}` },
    el("h2", { id: `h-${name}` }, t(`s_${name}`)), content);
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

/** Each of `all` is [name, function that renders it, whether it needs the curves]. */
export function renderSections(all, series) {
  const sections = all.map((one) => section(one, series)).filter(Boolean);
  replaceContent(byId("content"), canUnpack() ? null : el("p", { class: "state bad" }, t("no_charts")), sections);
  const links = sections.map((node) =>
    el("li", {}, el("a", { href: `#${node.id}` }, t(`n_${node.id}`))));
  byId("contents").setAttribute("aria-label", t("contents"));
  replaceContent(byId("contents"), el("ul", {}, links));
}

function listenForPrint() {
  addEventListener("beforeprint", () => {
    document.documentElement.setAttribute("data-print", "");
    if (window.Plotly) redrawAll();
  });
  addEventListener("afterprint", () => {
    document.documentElement.removeAttribute("data-print");
    redrawAll();
  });
}

/** `render(series)` fills the page; it is called again when the language changes. */
export async function startPage(render) {
  setLanguage(currentLanguage());
  listenForDefinitions();
  listenForPrint();
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", redrawAll);
  if (canUnpack()) unpackLibrary();
  await renderWhole(render, canUnpack() ? await readSeries() : null);
}

export function renderWhole(render, series) {
  forgetCharts();
  document.body.removeAttribute("data-ready");
  render(series);
  return drawAll().then(() => document.body.setAttribute("data-ready", "true"));
}
