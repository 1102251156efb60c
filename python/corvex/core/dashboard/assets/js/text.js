// The page's texts in the language chosen, and what is known of each figure.

import { byId } from "./dom.js";

const KNOWN = JSON.parse(byId("texts").textContent);
const { texts: TEXTS, figures: FIGURES, groups: GROUPS } = KNOWN;

/** The figures of a table, by its name. */
export const { views } = KNOWN;

export const languages = Object.entries(TEXTS).map(([code, texts]) => [code, texts.language]);

let language = preferredLanguage();

function preferredLanguage() {
  const wanted = navigator.languages ?? [navigator.language ?? "en"];
  const known = wanted.find((code) => /^(en|zh)\b/i.test(code)) ?? "en";
  return known.toLowerCase().startsWith("zh") ? "zh-Hant" : "en";
}

export const currentLanguage = () => language;

export function setLanguage(code) {
  language = code;
  document.documentElement.lang = code;
}

const filled = (text, values) => text.replace(/\{(\w+)\}/g, (whole, name) => (name in values ? values[name] : whole));

export const t = (key, values = {}) => filled(TEXTS[language][key] ?? key, values);

export const has = (key) => key in TEXTS[language];

export const monthNames = () => t("months").split(" ");

/** The label and the definition of a figure. */
export const figureText = (key) => FIGURES[key]?.[language] ?? [key, ""];

export const unitOf = (key) => FIGURES[key]?.unit;

export const digitsOf = (key) => FIGURES[key]?.digits ?? 2;

export const groups = Object.keys(GROUPS);

export const groupTitle = (group) => GROUPS[group][language];

export const figuresOf = (group) => Object.keys(FIGURES).filter((key) => FIGURES[key].group === group);

export const marketName = (name) => (has(`market_${name}`) ? t(`market_${name}`) : name);
