// Every statistic, with its definition on pointing, on focus and on touch.

import { byId, el } from "./dom.js";
import { facts } from "./store.js";
import { figureTable } from "./table.js";
import { figuresOf, groups, groupTitle, t } from "./text.js";

export function renderStatistics() {
  const { strategy, benchmark, relative } = facts.stats;
  const tables = groups.map((group) => {
    const keys = figuresOf(group);
    return (
      figureTable(groupTitle(group), keys, strategy, benchmark) ??
      figureTable(groupTitle(group), keys, { ...relative, ...facts.exposure })
    );
  });
  return [el("p", { class: "note" }, t("statistics_note")), el("div", { class: "pair" }, tables.filter(Boolean))];
}

/** One tip for all definitions: it follows the pointer's target or the focus, Escape hides it. */
export function listenForDefinitions() {
  const tip = byId("tip");
  const hide = () => {
    tip.hidden = true;
  };
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
