// Long tables that a reader sorts, turns over page by page and takes along as a file.

import { el } from "./dom.js";
import { whole } from "./format.js";
import { t } from "./text.js";

// Each column is { key, label, title, number, text(row), value(row) }: what is shown and what sorts. A
// file gets `written(row)` where there is one, and as its head the key, or `head`.

/** Missing values stay at the end whichever way the rest is sorted. */
export function orderedRows(columns, rows, { key, down }) {
  const { value } = columns.find((column) => column.key === key) ?? columns[0];
  const keys = new Map(rows.map((i) => [i, value(i)]));
  const sign = down ? -1 : 1;
  return rows.sort((i, j) => {
    const [a, b] = [keys.get(i), keys.get(j)];
    if (a === null || b === null) return (a === null) - (b === null) || i - j;
    return a < b ? -sign : a > b ? sign : i - j;
  });
}

/** The head of a column of the table called `id`, which sorts by it. */
export function sortHeader(id, column, state, show) {
  const isKey = state.key === column.key;
  const sort = isKey ? (state.down ? "descending" : "ascending") : "none";
  const onclick = () => {
    Object.assign(state, { down: isKey ? !state.down : Boolean(column.number), key: column.key, page: 0 });
    show();
    document.querySelector(`#${id} [data-key="${CSS.escape(column.key)}"]`)?.focus();
  };
  return el(
    "th",
    { scope: "col", class: column.number ? "num" : null, "aria-sort": sort },
    el("button", { type: "button", class: "sort", "data-key": column.key, title: column.title, onclick }, column.label),
  );
}

export function pager(label, pages, state, show) {
  const turn = (step, text, off) =>
    el(
      "button",
      {
        type: "button",
        disabled: off,
        "data-step": step,
        onclick: (event) => {
          const place = event.target.closest(".pager").parentElement;
          state.page += step;
          show();
          place.querySelector(`.pager [data-step="${step}"]:not(:disabled)`)?.focus();
        },
      },
      text,
    );
  const told = t("page", { page: whole(state.page + 1), pages: whole(pages) });
  return el(
    "nav",
    { class: "pager", "aria-label": label },
    turn(-1, t("previous"), state.page === 0),
    el("span", {}, told),
    turn(1, t("next"), state.page >= pages - 1),
  );
}

export const printedRows = (from, to, count) =>
  el("p", { class: "note printed" }, t("found_printed", { from: whole(from), to: whole(to), count: whole(count) }));

export function downloadRows(name, columns, rows) {
  // A spreadsheet would take a text that starts like this for a formula.
  const isFormula = (text) => /^[=+\-@\t\r]/.test(text) && Number.isNaN(Number(text));
  const quoted = (text) => `"${(isFormula(text) ? "'" : "") + text.replaceAll('"', '""')}"`;
  const cells = rows.map((i) =>
    columns.map(({ number: isNumber, text, value, written }) =>
      isNumber ? (value(i) ?? "") : quoted((written ?? text)(i)),
    ),
  );
  const csv = [columns.map(({ key, head }) => quoted(head ?? key)), ...cells].map((row) => row.join(",")).join("\r\n");
  const url = URL.createObjectURL(new Blob(["\ufeff", csv], { type: "text/csv" }));
  el("a", { href: url, download: name }).click();
  setTimeout(() => URL.revokeObjectURL(url), 10000);
}
