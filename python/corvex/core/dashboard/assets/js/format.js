// Numbers and dates as text. Dates are days of the exchange's calendar: no time zone moves them.

import { digitsOf, t, unitOf } from "./text.js";

const writers = [];

function plainNumber(value, digits) {
  writers[digits] ??= new Intl.NumberFormat("en-US", { minimumFractionDigits: digits, maximumFractionDigits: digits });
  return writers[digits].format(value);
}

// A plain formatter writes -0.00 for small losses, which reads as a sign without a number.
const withoutMinusZero = (text) => (/^-[0.,]+%?$/.test(text) ? text.slice(1) : text);

const present = (value) => value !== null && value !== undefined && !Number.isNaN(value);

function formatted(value, write) {
  if (!present(value)) return t("missing");
  return typeof value === "string" ? value : withoutMinusZero(write(value));
}

export const percent = (value, digits = 2) => formatted(value, (x) => `${plainNumber(x * 100, digits)}%`);

export const signedPercent = (value, digits = 2) =>
  formatted(value, (x) => `${x > 0 ? "+" : ""}${plainNumber(x * 100, digits)}%`);

export const number = (value, digits = 2) => formatted(value, (x) => plainNumber(x, digits));

/** Money: with as many decimals as its size asks for. */
export const amount = (value) =>
  formatted(value, (x) => (x && Math.abs(x) < 1 ? prices.format(x) : plainNumber(x, Math.abs(x) < 1000 ? 2 : 0)));

/** Shares, or any number that is not to be rounded to decimals. */
export const quantity = (value) =>
  formatted(value, (x) => (Number.isInteger(x) ? plainNumber(x, 0) : prices.format(x)));

export const whole = (value) => number(value, 0);

/** A share such as 5 % without needless digits. */
export const share = (value) => `${Number((value * 100).toFixed(6))}%`;

const prices = new Intl.NumberFormat("en-US", { maximumSignificantDigits: 6 });

export const tickText = (value) => prices.format(value);

export const price = (value) => formatted(value, (x) => prices.format(x));

/** A figure in its own unit. */
export const figure = (key, value) => (unitOf(key) === "fraction" ? percent : number)(value, digitsOf(key));

export const isoDay = (day) =>
  day === null || day === undefined ? null : new Date(day * 86400000).toISOString().slice(0, 10);

export const isoMinute = (minute) =>
  minute === null ? null : new Date(minute * 60000).toISOString().slice(0, 16).replace("T", " ");

export const dayOf = (iso) => Math.round(Date.parse(`${iso.slice(0, 10)}T00:00:00Z`) / 86400000);

export const orMissing = (text) => text ?? t("missing");
