// What the charts derive from the curves. Missing values are null.

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

/** Sums over the last `size` entries; null until so many known ones came without a gap. */
function rollingSums(entries, size) {
  const result = [];
  let sum = 0, known = 0;
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
  const sharpe = combine(sums, volatility, (sum, vol) =>
    vol > 1e-12 ? ((sum / size - free) * periods) / vol : null);
  return { volatility, sharpe };
}

export function rollingBeta(own, market, size) {
  const paired = combine(own, market, (x) => x);
  const beside = combine(own, market, (x, y) => y);
  const [ownSums, marketSums] = [rollingSums(paired, size), rollingSums(beside, size)];
  const cross = rollingSums(product(paired, beside), size);
  const variance = spread(marketSums, rollingSums(product(beside, beside), size), size);
  return cross.map((c, i) =>
    c === null || variance[i] < 1e-15 ? null : (c - (ownSums[i] * marketSums[i]) / size) / variance[i]);
}
