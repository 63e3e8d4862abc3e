// How much a program's memory grows with each frame, and how sure that is, from looks at it during a long run.

const LargestLeak = 1e6 / (8 * 3600 * 30); // bytes per frame: 1 MB in eight hours at 30 frames a second
const WarmUp = 1 / 6; // of the run: the platform fills its caches and pools
const Granule = 65536; // bytes: memory is reserved in such units, so that a growth of one shows nothing
const Quantile = 2.576; // of the normal distribution, for an interval of 99 %

// `samples` are { frames, bytes }, in the order of time. The slope is that of Theil and Sen: the median of the slopes
// between all pairs of samples, which a few pages that the heap gives back or takes again do not change. Its interval
// is the one that Sen derived from ranks, and at least a granule over the run. Returns
//   frames, samples  what the slope was fitted over, without the warm-up
//   bytesPerFrame    the slope
//   least, most      its interval; undefined when the samples are too few for one
//   leaks            whether even the least slope is above the largest one that is allowed
export function memorySlope(samples) {
    const warm = samples.slice(Math.floor(samples.length * WarmUp));
    const slopes = [];
    for (const [index, first] of warm.entries()) {
        for (const second of warm.slice(index + 1)) {
            if (second.frames > first.frames) {
                slopes.push((second.bytes - first.bytes) / (second.frames - first.frames));
            }
        }
    }
    slopes.sort((a, b) => a - b);
    const count = warm.length;
    const frames = warm.at(-1).frames - warm[0].frames;
    const bytesPerFrame = (slopes[(slopes.length - 1) >> 1] + slopes[slopes.length >> 1]) / 2;
    const spread = Quantile * Math.sqrt(count * (count - 1) * (2 * count + 5) / 18);
    const lowest = Math.floor((slopes.length - spread) / 2);
    const result = { frames, samples: count, bytesPerFrame, leaks: false };
    if (lowest >= 0) {
        result.least = Math.min(slopes[lowest], bytesPerFrame - Granule / frames);
        result.most = Math.max(slopes[slopes.length - 1 - lowest], bytesPerFrame + Granule / frames);
        result.leaks = result.least > LargestLeak;
    }
    return result;
}

export function describeSlope({ frames, samples, bytesPerFrame, least, most }) {
    const interval = least === undefined
        ? 'too few for an interval' : `${least.toFixed(2)} to ${most.toFixed(2)} with 99 % confidence`;
    return `${bytesPerFrame.toFixed(2)} bytes per frame, ${interval}; limit ${LargestLeak.toFixed(2)} ` +
        `(${samples} samples over ${frames} frames)`;
}
