// Tables with headers that screen readers can follow.

import { el } from "./dom.js";
import { figure } from "./format.js";
import { figureText, t } from "./text.js";

/**
 * A table. Each column is { label, text(row), header, number, shade(row), node(row) }; the first
 * column heads its row unless `header` is false.
 */
export function table(caption, columns, rows, { foot = [], className = "" } = {}) {
  const head = el(
    "tr",
    {},
    columns.map((column) => el("th", { scope: "col", class: column.number ? "num" : null }, heading(column))),
  );
  const wholeTable = el(
    "table",
    { class: className },
    el("caption", {}, caption),
    el("thead", {}, head),
    el(
      "tbody",
      {},
      rows.map((row) => tableRow(columns, row)),
    ),
    foot.length
      ? el(
          "tfoot",
          {},
          foot.map((row) => tableRow(columns, row)),
        )
      : null,
  );
  return scrolling(caption, wholeTable);
}

/** A label may be an element, and the same columns may head two tables. */
const heading = ({ label }) => label.cloneNode?.(true) ?? label;

/** A wide table scrolls inside its own place, also by keyboard. */
export const scrolling = (label, content) =>
  el("div", { class: "scroll", tabindex: "0", role: "region", "aria-label": label }, content);

const ROWS_IN_ONE = 8;

/** A long narrow table would leave half of the page blank: it goes on beside itself. */
export function besideItself(caption, columns, rows, options = {}) {
  const half = rows.length > ROWS_IN_ONE ? Math.ceil(rows.length / 2) : rows.length;
  const parts = [rows.slice(0, half), rows.slice(half)].filter((part) => part.length);
  return el(
    "div",
    { class: "pair" },
    parts.map((part, i) => table(caption, columns, part, i === parts.length - 1 ? options : {})),
  );
}

export function tableRow(columns, row) {
  return el(
    "tr",
    {},
    columns.map((column, i) => {
      const tag = i === 0 && column.header !== false ? "th" : "td";
      const attributes = { scope: tag === "th" ? "row" : null, class: column.number ? "num" : null };
      const shade = column.shade?.(row);
      if (shade) attributes.style = shade;
      return el(tag, attributes, column.node ? column.node(row) : column.text(row));
    }),
  );
}

/** The name of a figure, with its definition on pointing, on focus and on touch. */
export function defined(key) {
  const [label, definition] = figureText(key);
  if (!definition) return label;
  return el("button", { type: "button", class: "defined", "data-definition": definition, "data-key": key }, label);
}

/** Rows of figures by name, for the strategy and where there is one the benchmark. */
export function figureTable(caption, keys, own, market) {
  const known = keys.filter((key) => key in own && (own[key] !== null || market?.[key] != null));
  if (!known.length) return null;
  const columns = [
    { label: t("item"), node: (key) => defined(key) },
    { label: t("strategy"), number: true, text: (key) => figure(key, own[key]) },
  ];
  if (market) {
    columns.push({ label: t("benchmark"), number: true, text: (key) => figure(key, market[key]) });
  }
  return table(caption, columns, known, { className: "figures" });
}
