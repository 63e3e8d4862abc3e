// Median and 99th percentile of measured values; undefined when there are none.
export function medianAndP99(values) {
    const sorted = Float64Array.from(values).sort();
    const at = (part) => sorted[Math.min(Math.floor(sorted.length * part), sorted.length - 1)];
    return sorted.length > 0 ? { median: at(0.5), p99: at(0.99) } : undefined;
}
