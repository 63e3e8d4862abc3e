// The goals of the frame path with AVX2 and a warm source (in the caches), by case of the benchmark's table.
//   baseline     highest ratio to the case's baseline, which is mostly a plain copy (docs/performance.md); set on AMD
//                family 26. Processors differ in how fast they copy and compute: where the recorded results of a family
//                (results/) miss this limit, --strict does not fail for it on that family.
//   libyuv       highest ratio to libyuv's time, on every processor
//   nanoseconds  highest time; recorded results count as for the baseline
export const Goals = {
    '720p NV12': { baseline: 0.95, libyuv: 1.05 },
    '1080p NV12': { baseline: 1.05, libyuv: 1.10 },
    '1080p I420': { baseline: 1.10, libyuv: 1.10 },
    '1080p RGBA': { baseline: 1.65, libyuv: 0.78 },
    '1080p BGRA': { baseline: 1.65, libyuv: 0.78 },
    '720p NV12 on 1080p': { baseline: 1.45, libyuv: 0.09 },
    '1080p NV12 on 720p': { baseline: 1.35, libyuv: 0.14 },
    '640x480 I420 on 720p, bars kept': { baseline: 1.85, libyuv: 0.10 },
    '720x1280 NV12 on 1080p, bars cleared': { baseline: 1.90, libyuv: 0.30 },
    '720x1280 NV12 on 1080p, bars kept': { baseline: 1.35, libyuv: 0.22 },
    '720p NV12 rotated 90, bars cleared': { baseline: 2.40, libyuv: 0.28 },
    '720p NV12 rotated 90, bars kept': { baseline: 1.90, libyuv: 0.22 },
    '720p NV12 rotated 270, bars cleared': { baseline: 2.40, libyuv: 0.28 },
    '720p NV12 rotated 270, bars kept': { baseline: 1.90, libyuv: 0.22 },
    '720p NV12 rotated 180': { baseline: 1.12, libyuv: 1.12 },
    '720p NV12 mirrored': { baseline: 1.12, libyuv: 1.12 },
    '720p NV12 rotated 180 and mirrored': { baseline: 1.12, libyuv: 1.12 },
    '720p RGBA mirrored': { baseline: 1.95, libyuv: 0.54 },
    '720p RGBA on 1080p': { baseline: 3.00 },
    '1080p RGBA on 720p': { baseline: 3.00 },
    '1440p NV12 on 1080p': { baseline: 2.40 },
    '1080p NV12 rotated 90, bars cleared': { baseline: 2.40 },
    '1080p NV12 rotated 90, bars kept': { baseline: 1.90 },
    '720p NV12, converted and published': { baseline: 1.00 },
    '1080p NV12, converted and published': { baseline: 1.00 },
    '1080p RGBA, converted and published': { baseline: 1.30 },
    '720p NV12 on 1080p, first frame': { baseline: 1.35 },
    '1080p NV12 on 720p, first frame': { baseline: 1.35 },
    '1080p RGBA on 720p, first frame': { baseline: 1.35 },
    '640x480 I420 on 720p, first frame': { baseline: 1.35 },
    '720p NV12 rotated 90, first frame': { baseline: 1.35 },
    'message of a 720p NV12 frame, parsed': { baseline: 0.003, nanoseconds: 60 },
    'message of a 720p NV12 frame, dispatched and parsed': { baseline: 0.01 },
    '1080p snapshot': { baseline: 3.60, libyuv: 0.72 },
};
