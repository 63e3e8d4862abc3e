// The processors on which the goals were set. Others copy faster or slower than they compute.
export const GoalsOf = { vendor: 'AuthenticAMD', family: 26 };

// What the frame path is to reach with AVX2 and a source that is in the caches, for each row of the table.
//   bound    at most so many times the bound
//   libyuv   at most this part of libyuv's time
//   nanoseconds, as they stand
export const Goals = {
    '720p NV12': { bound: 0.95, libyuv: 1.05 },
    '1080p NV12': { bound: 1.05, libyuv: 1.10 },
    '1080p I420': { bound: 1.10, libyuv: 1.10 },
    '1080p RGBA': { bound: 1.65, libyuv: 0.78 },
    '1080p BGRA': { bound: 1.65, libyuv: 0.78 },
    '720p NV12 on 1080p': { bound: 1.45, libyuv: 0.09 },
    '1080p NV12 on 720p': { bound: 1.35, libyuv: 0.14 },
    '640x480 I420 on 720p, bars kept': { bound: 1.85, libyuv: 0.10 },
    '720x1280 NV12 on 1080p, bars cleared': { bound: 1.90, libyuv: 0.30 },
    '720x1280 NV12 on 1080p, bars kept': { bound: 1.35, libyuv: 0.22 },
    '720p NV12 rotated 90, bars cleared': { bound: 2.40, libyuv: 0.28 },
    '720p NV12 rotated 90, bars kept': { bound: 1.90, libyuv: 0.22 },
    '720p NV12 rotated 270, bars cleared': { bound: 2.40, libyuv: 0.28 },
    '720p NV12 rotated 270, bars kept': { bound: 1.90, libyuv: 0.22 },
    '720p NV12 rotated 180': { bound: 1.12, libyuv: 1.12 },
    '720p NV12 mirrored': { bound: 1.12, libyuv: 1.12 },
    '720p NV12 rotated 180 and mirrored': { bound: 1.12, libyuv: 1.12 },
    '720p RGBA mirrored': { bound: 1.95, libyuv: 0.54 },
    '720p RGBA on 1080p': { bound: 3.00 },
    '1080p RGBA on 720p': { bound: 3.00 },
    '1440p NV12 on 1080p': { bound: 2.40 },
    '1080p NV12 rotated 90, bars cleared': { bound: 2.40 },
    '1080p NV12 rotated 90, bars kept': { bound: 1.90 },
    '720p NV12, converted and published': { bound: 1.00 },
    '1080p NV12, converted and published': { bound: 1.00 },
    '1080p RGBA, converted and published': { bound: 1.30 },
    '720p NV12 on 1080p, first frame': { bound: 1.35 },
    '1080p NV12 on 720p, first frame': { bound: 1.35 },
    '1080p RGBA on 720p, first frame': { bound: 1.35 },
    '640x480 I420 on 720p, first frame': { bound: 1.35 },
    '720p NV12 rotated 90, first frame': { bound: 1.35 },
    'message of a 720p NV12 frame, parsed': { bound: 0.003, nanoseconds: 60 },
    'message of a 720p NV12 frame, dispatched and parsed': { bound: 0.01 },
    '1080p snapshot': { bound: 3.60, libyuv: 0.72 },
};
