// What the sample camera's conversions must give, pixel by pixel and straight from the formats' definitions.
#pragma once

#include "sample_camera/video_format.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace sample_camera {

// One sample of a picture: its Y, and the U and V of its block of 2 x 2 pixels.
struct Nv12View {
    const std::uint8_t* bytes;
    PictureSize size;

    [[nodiscard]] std::uint8_t Y(std::size_t x, std::size_t y) const { return bytes[y * size.width + x]; }
    // `plane` is 0 for U and 1 for V; x and y count blocks.
    [[nodiscard]] std::uint8_t Uv(std::size_t plane, std::size_t x, std::size_t y) const {
        return bytes[std::size_t{size.width} * size.height + y * size.width + 2 * x + plane];
    }
};

inline std::vector<std::uint8_t> ReferenceConversion(const std::uint8_t* nv12, const VideoFormat& format) {
    const Nv12View source{nv12, format.size};
    const std::size_t width = format.size.width;
    const std::size_t height = format.size.height;
    std::vector<std::uint8_t> picture;
    picture.reserve(ImageBytes(format));
    if (format.pixels == PixelFormat::Yuy2) {
        for (std::size_t y = 0; y < height; ++y) {
            for (std::size_t x = 0; x < width; x += 2) {
                picture.insert(picture.end(), {source.Y(x, y), source.Uv(0, x / 2, y / 2), source.Y(x + 1, y),
                                               source.Uv(1, x / 2, y / 2)});
            }
        }
        return picture;
    }
    picture.assign(nv12, nv12 + width * height);
    if (format.pixels == PixelFormat::Nv12) {
        picture.insert(picture.end(), nv12 + width * height, nv12 + width * height * 3 / 2);
        return picture;
    }
    for (std::size_t plane = 0; plane < 2; ++plane) {
        for (std::size_t y = 0; y < height / 2; ++y) {
            for (std::size_t x = 0; x < width / 2; ++x) {
                picture.push_back(source.Uv(plane, x, y));
            }
        }
    }
    return picture;
}

// Bilinear between sample centers, clamped at the edges, of `count` samples in each direction.
template <typename Sample>
double ReferenceSample(Sample sample, std::size_t x, std::size_t y, double scale, std::size_t width,
                       std::size_t height) {
    const auto split = [scale](std::size_t index, std::size_t count, std::size_t& first, std::size_t& second) {
        const double place = (static_cast<double>(index) + 0.5) / scale - 0.5;
        const double below = std::floor(place);
        const auto clamp = [count](double value) {
            return value < 0 ? std::size_t{0} : std::min(static_cast<std::size_t>(value), count - 1);
        };
        first = clamp(below);
        second = clamp(below + 1);
        return place - below;
    };
    std::size_t left = 0;
    std::size_t right = 0;
    std::size_t top = 0;
    std::size_t bottom = 0;
    const double fx = split(x, width, left, right);
    const double fy = split(y, height, top, bottom);
    return (1 - fy) * ((1 - fx) * sample(left, top) + fx * sample(right, top)) +
           fy * ((1 - fx) * sample(left, bottom) + fx * sample(right, bottom));
}

// The largest difference between a scaled picture and exact bilinear interpolation of its source.
inline double LargestScalingError(const Nv12View& source, const Nv12View& scaled) {
    const double scale = static_cast<double>(scaled.size.width) / source.size.width;
    double largest = 0;
    for (std::size_t y = 0; y < scaled.size.height; ++y) {
        for (std::size_t x = 0; x < scaled.size.width; ++x) {
            const double exact = ReferenceSample([&](std::size_t sx, std::size_t sy) { return source.Y(sx, sy); }, x, y,
                                                 scale, source.size.width, source.size.height);
            largest = std::max(largest, std::abs(exact - scaled.Y(x, y)));
        }
    }
    for (std::size_t plane = 0; plane < 2; ++plane) {
        for (std::size_t y = 0; y < scaled.size.height / 2; ++y) {
            for (std::size_t x = 0; x < scaled.size.width / 2; ++x) {
                const auto sample = [&](std::size_t sx, std::size_t sy) { return source.Uv(plane, sx, sy); };
                const double exact =
                    ReferenceSample(sample, x, y, scale, source.size.width / 2, source.size.height / 2);
                largest = std::max(largest, std::abs(exact - scaled.Uv(plane, x, y)));
            }
        }
    }
    return largest;
}

} // namespace sample_camera
