// Elements made without ever parsing text as HTML.

export function el(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (name.startsWith("on")) node.addEventListener(name.slice(2), value);
    else if (value === true) node.setAttribute(name, "");
    else if (value !== false && value != null) node.setAttribute(name, value);
  }
  node.append(...children.flat().filter((child) => child != null));
  return node;
}

export const byId = (id) => document.getElementById(id);

export function replaceContent(node, ...children) {
  node.replaceChildren(...children.flat().filter((child) => child != null));
  return node;
}

/** A group of buttons of which one is pressed; `choose` gets the value of the one clicked. */
export function choices(label, options, chosen, choose) {
  const buttons = options.map(([value, text]) =>
    el(
      "button",
      { type: "button", "aria-pressed": String(value === chosen), "data-value": value, onclick: () => pick(value) },
      text,
    ),
  );
  function pick(value) {
    press(value);
    choose(value);
  }
  function press(value) {
    for (const button of buttons) {
      button.setAttribute("aria-pressed", String(button.dataset.value === String(value)));
    }
  }
  const group = el("div", { class: "choices", role: "group", "aria-label": label }, buttons);
  return { group, press };
}

export function select(label, options, chosen, choose) {
  const list = el(
    "select",
    { onchange: () => choose(list.value) },
    options.map(([value, text]) => el("option", { value, selected: value === chosen }, text)),
  );
  return el("label", { class: "field" }, el("span", {}, label), list);
}
