// What the charts derive from the curves; missing values are null. A reader chooses range, window
// and scale, so this cannot be worked out before: the page would carry every curve many times. All
// that does not change comes from the engine; tests hold these functions against it.

export function changes(values) {
  const result = [null];
  for (let i = 1; i < values.length; i++) {
    const [before, now] = [values[i - 1], values[i]];
    result.push(before === null || now === null || before === 0 ? null : now / before - 1);
  }
  return result;
}

export function drawdowns(values) {
  let top = -Infinity;
  return values.map((value) => {
    if (value === null) return null;
    top = Math.max(top, value);
    return value / top - 1;
  });
}

/** The curve scaled to 100 at `first`; one that starts later starts at the value of `beside`. */
export function rebased(values, first, beside = null) {
  let at = first;
  while (at < values.length && values[at] === null) at++;
  const scale = (beside?.[at] ?? 100) / values[at];
  return values.map((value) => (value === null || !Number.isFinite(scale) ? null : value * scale));
}

/** The return between two rows, from the first known value to the last. */
export function gain(values, first, last) {
  let [from, to] = [first, last];
  while (from < to && values[from] === null) from++;
  while (to > from && values[to] === null) to--;
  return values[from] ? values[to] / values[from] - 1 : null;
}

/** Sums over the last `size` entries; null until so many known ones came without a gap. */
function rollingSums(entries, size) {
  const result = [];
  let sum = 0,
    known = 0;
  for (let i = 0; i < entries.length; i++) {
    if (entries[i] === null) [sum, known] = [0, 0];
    else {
      sum += entries[i];
      known += 1;
      if (known > size) {
        sum -= entries[i - size];
        known = size;
      }
    }
    result.push(known === size ? sum : null);
  }
  return result;
}

const combine = (a, b, f) => a.map((x, i) => (x === null || b[i] === null ? null : f(x, b[i])));
const product = (a, b) => combine(a, b, (x, y) => x * y);
const spread = (sums, squares, size) =>
  combine(sums, squares, (sum, square) => Math.max(square - (sum * sum) / size, 0));

/** Rolling volatility and Sharpe ratio of returns, annualised. */
export function rollingRisk(returns, size, periods, riskfree) {
  const sums = rollingSums(returns, size);
  const spreads = spread(sums, rollingSums(product(returns, returns), size), size);
  const volatility = spreads.map((s) => (s === null ? null : Math.sqrt((s / (size - 1)) * periods)));
  const free = (1 + riskfree) ** (1 / periods) - 1;
  const sharpe = combine(sums, volatility, (sum, vol) => (vol > 1e-12 ? ((sum / size - free) * periods) / vol : null));
  return { volatility, sharpe };
}

export function rollingBeta(own, market, size) {
  const paired = combine(own, market, (x) => x);
  const beside = combine(own, market, (_x, y) => y);
  const [ownSums, marketSums] = [rollingSums(paired, size), rollingSums(beside, size)];
  const cross = rollingSums(product(paired, beside), size);
  const variance = spread(marketSums, rollingSums(product(beside, beside), size), size);
  return cross.map((c, i) =>
    c === null || variance[i] < 1e-15 ? null : (c - (ownSums[i] * marketSums[i]) / size) / variance[i],
  );
}

const FIELDS = 70;

/** Equal fields over the middle 99.6 % of the values: one far off would ask for millions of them. */
function fieldsOf(values) {
  const ordered = Float64Array.from(values).sort();
  const at = (part) => ordered[Math.round(part * (ordered.length - 1))];
  const [low, high] = [at(0.002), at(0.998)];
  const view = high > low ? [low, high] : [low - 1e-3, low + 1e-3];
  const width = (view[1] - view[0]) / FIELDS;
  const place = (value) =>
    value < view[0] || value > view[1] ? -1 : Math.min(Math.floor((value - view[0]) / width), FIELDS - 1);
  return { view, middles: Array.from({ length: FIELDS }, (_, i) => view[0] + (i + 0.5) * width), place };
}

/** How many pairs lie in each field (rows: y), and the places of the pairs `outside` of them. */
export function countedFields(xs, ys) {
  const [x, y] = [fieldsOf(xs), fieldsOf(ys)];
  const counts = y.middles.map(() => x.middles.map(() => 0));
  const outside = [];
  xs.forEach((value, i) => {
    const [column, row] = [x.place(value), y.place(ys[i])];
    if (column < 0 || row < 0) outside.push(i);
    else counts[row][column] += 1;
  });
  return { x, y, counts, outside };
}

/** Round values for the labels of an axis, none nearer to the next than a part of the axis. */
export function axisTicks(low, high, scale) {
  const place = scale === "log" ? Math.log : (value) => value;
  const room = (place(high) - place(low)) / 15;
  const chosen = [];
  for (const value of scale === "log" && high / low > 8 ? decades(low, high) : steps(low, high)) {
    const last = chosen.at(-1);
    if (last === undefined || place(value) - place(last) >= room) chosen.push(value);
  }
  return chosen;
}

function steps(low, high) {
  const rough = (high - low) / 7;
  const size = 10 ** Math.floor(Math.log10(rough));
  const step = size * [1, 2, 5, 10].find((n) => n * size >= rough);
  const first = Math.ceil(low / step);
  return Array.from({ length: Math.floor(high / step) - first + 1 }, (_, i) => (first + i) * step);
}

/** 1, 2, 5, 10, ... or, over many decades, powers of ten alone. */
function decades(low, high) {
  const [first, last] = [Math.floor(Math.log10(low)), Math.ceil(Math.log10(high))];
  const digits = last - first > 5 ? [1] : [1, 2, 5];
  const every = Math.ceil((last - first) / 10);
  const powers = Array.from({ length: last - first + 1 }, (_, i) => first + i).filter((n) => n % every === 0);
  return powers.flatMap((power) => digits.map((n) => n * 10 ** power)).filter((x) => x >= low && x <= high);
}
