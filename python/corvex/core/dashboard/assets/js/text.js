// The page's texts in the language chosen.

import { byId } from "./dom.js";

const TEXTS = JSON.parse(byId("texts").textContent);

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

const filled = (text, values) =>
  text.replace(/\{(\w+)\}/g, (whole, name) => (name in values ? values[name] : whole));

export const t = (key, values = {}) => filled(TEXTS[language][key] ?? key, values);

export const has = (key) => key in TEXTS[language];

export const monthNames = () => t("months").split(" ");

/** The label and the definition of a figure. */
export function figureText(key) {
  const { figures, families, frequencies } = TEXTS[language];
  if (key in figures) return figures[key];
  const [frequency, family] = key.split("_");
  if (!(frequency in frequencies) || !(family in families)) return [key, ""];
  const name = frequencies[frequency];
  const values = { Frequency: name, frequency: name.toLowerCase() };
  return families[family].map((text) => filled(text, values));
}

export const marketName = (name) => (has(`market_${name}`) ? t(`market_${name}`) : name);
