#include "conversion_checks.h"

#include "frames/conversion/frame_converter.h"
#include "frames/conversion/row_map.h"
#include "reference_converter.h"
#include "tests/support/guarded_bytes.h"

#include <algorithm>
#include <array>
#include <functional>
#include <random>
#include <span>
#include <sstream>
#include <stdexcept>

namespace receiver {
namespace {

using Bytes = std::vector<std::uint8_t>;

class Random {
public:
    explicit Random(std::uint32_t seed) : generator(seed) {}

    // 0 to count - 1.
    std::uint32_t Below(std::uint32_t count) { return static_cast<std::uint32_t>(generator()) % count; }
    bool OneIn(std::uint32_t count) { return Below(count) == 0; }

    // An even size from 2, rarely above `usual`.
    std::uint32_t EvenSize(std::uint32_t usual, std::uint32_t largest) {
        const std::uint32_t limit = OneIn(32) ? largest : usual;
        return 2 + Below(limit / 2) * 2;
    }

private:
    std::minstd_rand generator; // quickly made: there is one for each geometry
};

FrameDescriptor RandomFrame(Random& random) {
    FrameDescriptor frame;
    frame.format = SupportedFormats.at(random.Below(SupportedFormats.size()));
    frame.codedWidth = random.EvenSize(random.OneIn(4) ? 300 : 70, 4096);
    frame.codedHeight = random.EvenSize(70, 2160);
    frame.flipA = random.OneIn(2);
    frame.rotation = random.Below(4) * 90;
    frame.flipB = random.OneIn(2);
    const std::uint32_t displayLimit = random.OneIn(4) ? 4096 : 100;
    frame.displayWidth = 1 + random.Below(displayLimit);
    frame.displayHeight = 1 + random.Below(displayLimit);
    const bool large = frame.codedWidth * frame.codedHeight > 500000;
    for (const PlaneSize& plane : ReferencePlanes(frame.format, frame.codedWidth, frame.codedHeight)) {
        const auto rowBytes = static_cast<std::uint32_t>(plane.rowBytes);
        std::uint32_t stride = 1 + random.Below(large ? 500 : rowBytes); // rows that overlap
        if (!large && !random.OneIn(4)) {
            stride = rowBytes + (random.OneIn(2) ? 0 : random.Below(70));
        }
        frame.AddPlane({.offset = random.Below(300), .stride = stride});
    }
    return frame;
}

// Canvases that the frame fills without scaling, or of a simple ratio, are as likely as any others.
void RandomCanvas(Random& random, FrameDescriptor& frame, std::uint32_t& width, std::uint32_t& height) {
    width = random.EvenSize(100, 300);
    height = random.EvenSize(100, 300);
    const bool transposed = frame.rotation == 90 || frame.rotation == 270;
    const std::uint32_t rotatedWidth = transposed ? frame.codedHeight : frame.codedWidth;
    const std::uint32_t rotatedHeight = transposed ? frame.codedWidth : frame.codedHeight;
    if (!random.OneIn(2) || rotatedWidth > 300 || rotatedHeight > 300) {
        return;
    }
    constexpr std::array<std::array<std::uint32_t, 2>, 6> Ratios = {{{1, 1}, {1, 1}, {3, 2}, {2, 3}, {2, 1}, {3, 4}}};
    const auto [numerator, denominator] = Ratios.at(random.Below(Ratios.size()));
    width = std::max(rotatedWidth * numerator / denominator / 2 * 2, 2U);
    height = std::max(rotatedHeight * numerator / denominator / 2 * 2, 2U);
    frame.displayWidth = width;
    frame.displayHeight = height;
}

std::string Difference(std::span<const std::uint8_t> expected, std::span<const std::uint8_t> actual) {
    if (expected.size() != actual.size()) {
        return std::to_string(actual.size()) + " bytes instead of " + std::to_string(expected.size());
    }
    const auto different = std::ranges::mismatch(expected, actual);
    if (different.in1 == expected.end()) {
        return {};
    }
    return "byte " + std::to_string(different.in1 - expected.begin()) + " is " + std::to_string(*different.in2) +
           " instead of " + std::to_string(*different.in1);
}

void FillRandomly(std::span<std::uint8_t> bytes, std::uint32_t seed) {
    std::minstd_rand generator(seed);
    std::ranges::generate(bytes, [&] { return static_cast<std::uint8_t>(generator() >> 8); });
}

} // namespace

std::string Describe(const FrameDescriptor& frame, std::uint32_t canvasWidth, std::uint32_t canvasHeight) {
    std::ostringstream text;
    text << std::string(frame.format.begin(), frame.format.end()) << " coded " << frame.codedWidth << " x "
         << frame.codedHeight << " rotation " << frame.rotation << " flips " << frame.flipA << frame.flipB
         << " display " << frame.displayWidth << " x " << frame.displayHeight << " planes";
    for (const PlaneLayout& plane : std::span(frame.planes).first(frame.planeCount)) {
        text << ' ' << plane.offset << ',' << plane.stride;
    }
    text << " canvas " << canvasWidth << " x " << canvasHeight;
    return text.str();
}

std::vector<const RowKernels*> UsableKernels() {
    std::vector<const RowKernels*> tables = {&ScalarKernels};
    if (Avx2Usable()) {
        tables.push_back(&Avx2Kernels);
    }
    return tables;
}

std::string RandomGeometryDifference(const RowKernels& kernels, std::uint32_t firstSeed, std::uint32_t count) {
    constexpr std::size_t LargestSlot = 4 << 20;
    constexpr std::uint32_t LargestCanvasSize = 600;
    constexpr std::size_t LargestCanvas = std::size_t{LargestCanvasSize} * LargestCanvasSize / 2 * 3;
    constexpr std::size_t GuardBytes = 1024; // after each canvas, in the memory that it keeps
    constexpr std::uint8_t GuardByte = 0xA5;
    const GuardedBytes memory(LargestSlot);
    FillRandomly(memory.All(), firstSeed);
    FrameConverter converter(kernels);
    FrameCanvas canvas;
    canvas.Prepare(LargestCanvasSize + 2, LargestCanvasSize + 2, {}); // with room for a guard after every other one
    for (std::uint32_t seed = firstSeed; seed < firstSeed + count; ++seed) {
        Random random(seed);
        FrameDescriptor frame = RandomFrame(random);
        std::uint32_t width = 0;
        std::uint32_t height = 0;
        RandomCanvas(random, frame, width, height);
        const auto slotSize = static_cast<std::size_t>(ReferenceSlotSize(frame));
        const std::size_t canvasSize = std::size_t{width} * height / 2 * 3;
        if (slotSize > LargestSlot || canvasSize > LargestCanvas) {
            throw std::length_error("geometry");
        }
        const std::span<const std::uint8_t> slot = random.OneIn(4) ? memory.First(slotSize) : memory.Last(slotSize);
        if (random.OneIn(3)) {
            canvas.Prepare(width, height, {0, 0, width, height});
            FillRandomly({canvas.Y(), canvasSize}, seed);
        }
        const std::span<std::uint8_t> guard(canvas.Y() + canvasSize, GuardBytes);
        std::ranges::fill(guard, GuardByte);
        const HRESULT result = converter.Convert(slot, frame, width, height, canvas);
        std::string difference = "result " + std::to_string(result);
        if (result == S_OK) {
            difference = Difference(ReferenceConvert(slot, frame, width, height), canvas.Frame().bytes);
        }
        if (std::ranges::any_of(guard, [](std::uint8_t byte) { return byte != GuardByte; })) {
            difference += " written after the canvas";
        }
        if (!difference.empty()) {
            return difference.append(", seed ")
                .append(std::to_string(seed))
                .append(": ")
                .append(Describe(frame, width, height));
        }
    }
    return {};
}

std::string ColorDifference(const RowKernels& kernels) {
    constexpr std::uint32_t RowPixels = 256 * 256; // one row for each red
    Bytes pixels(std::size_t{4} * RowPixels);
    Bytes y(RowPixels), expectedY(RowPixels);
    Bytes uv(std::size_t{2} * RowPixels), expectedUV(std::size_t{2} * RowPixels);
    Bytes halfUV(RowPixels), expectedHalfUV(RowPixels);
    for (const RgbOrder order : {RgbOrder::RedFirst, RgbOrder::BlueFirst}) {
        const bool redFirst = order == RgbOrder::RedFirst;
        for (int red = 0; red < 256; ++red) {
            for (std::size_t i = 0; i < RowPixels; ++i) {
                const auto green = static_cast<int>(i / 256);
                const auto blue = static_cast<int>(i % 256);
                pixels[4 * i] = static_cast<std::uint8_t>(redFirst ? red : blue);
                pixels[4 * i + 1] = static_cast<std::uint8_t>(green);
                pixels[4 * i + 2] = static_cast<std::uint8_t>(redFirst ? blue : red);
                pixels[4 * i + 3] = static_cast<std::uint8_t>(red + 3 * green + 7 * blue);
                const ReferenceColor color{.red = red, .green = green, .blue = blue};
                expectedY[i] = color.Y();
                expectedUV[2 * i] = color.U();
                expectedUV[2 * i + 1] = color.V();
            }
            kernels.rgbToYRow(pixels.data(), pixels.data(), order, y.data(), RowPixels);
            kernels.rgbToUVRow(pixels.data(), order, UVPixels::Each, uv.data(), RowPixels);
            std::string difference = Difference(expectedY, y) + Difference(expectedUV, uv);
            for (const UVPixels half : {UVPixels::Even, UVPixels::Odd}) {
                for (std::size_t i = 0; i < RowPixels / 2; ++i) {
                    std::copy_n(&expectedUV[4 * i + (half == UVPixels::Odd ? 2 : 0)], 2, &expectedHalfUV[2 * i]);
                }
                kernels.rgbToUVRow(pixels.data(), order, half, halfUV.data(), RowPixels);
                difference += Difference(expectedHalfUV, halfUV);
            }
            if (!difference.empty()) {
                return difference + ", red " + std::to_string(red) + (redFirst ? " first" : " last");
            }
        }
    }
    return {};
}

std::string SnapshotDifference(const RowKernels& kernels) {
    constexpr std::uint32_t Width = 2 * 256; // a pair for each U
    Bytes luma(std::size_t{2} * Width), chroma(Width), pixels(std::size_t{6} * Width), expected(std::size_t{6} * Width);
    for (int y = 0; y < 256; ++y) {
        for (int v = 0; v < 256; ++v) {
            for (std::size_t x = 0; x < Width; ++x) {
                const auto u = static_cast<int>(x / 2);
                chroma[x] = static_cast<std::uint8_t>(x % 2 == 0 ? u : v);
                for (std::size_t row = 0; row < 2; ++row) {
                    const int shownY = row == 0 ? y : 255 - y;
                    luma[row * Width + x] = static_cast<std::uint8_t>(shownY);
                    std::ranges::copy(ReferencePixel(shownY, u, v), &expected[3 * (row * Width + x)]);
                }
            }
            kernels.nv12ToBgr24Rows(luma.data(), chroma.data(), pixels.data(), Width);
            const std::string difference = Difference(expected, pixels);
            if (!difference.empty()) {
                return difference + ", Y " + std::to_string(y) + " V " + std::to_string(v);
            }
        }
    }
    return {};
}

std::string RowDifference(const RowKernels& kernels, std::uint32_t sampleCount) {
    constexpr std::uint32_t RowCount = 22;
    const GuardedBytes source(std::size_t{256} << 10), other(64 << 10), destination(std::size_t{256} << 10);
    FillRandomly(source.All(), sampleCount + 1);
    FillRandomly(other.All(), sampleCount + 2);
    // Runs both tables, next to either page, between bytes that must stay as they are.
    const auto compare = [&](const char* name, std::size_t dstBytes,
                             const std::function<void(const RowKernels&, std::uint8_t*)>& run) -> std::string {
        constexpr std::size_t Margin = 100;
        for (const bool atEnd : {false, true}) {
            const std::span<std::uint8_t> actual =
                atEnd ? destination.Last(dstBytes + Margin) : destination.First(dstBytes + Margin);
            Bytes expected(actual.size(), 0xA5);
            const std::size_t at = atEnd ? Margin : 0;
            run(ScalarKernels, expected.data() + at);
            std::ranges::fill(actual, std::uint8_t{0xA5});
            run(kernels, actual.data() + at);
            const std::string difference = Difference(expected, actual);
            if (!difference.empty()) {
                return std::string(name) + ", " + std::to_string(sampleCount) + " samples: " + difference;
            }
        }
        return {};
    };
    std::string differences;
    for (const bool atEnd : {false, true}) {
        const auto rows = [&](const GuardedBytes& memory, std::size_t size) {
            return (atEnd ? memory.Last(size) : memory.First(size)).data();
        };
        const std::size_t count = sampleCount;
        const std::uint32_t even = sampleCount / 2 * 2;
        differences += compare("copyRow", count, [&](const RowKernels& table, std::uint8_t* dst) {
            table.copyRow(rows(source, count), dst, count);
        });
        // On both sides of 64 KiB: longer rows are copied by another instruction.
        const std::size_t longCount = 65536 - 35 + count;
        differences += compare("copyRow of a long row", longCount, [&](const RowKernels& table, std::uint8_t* dst) {
            table.copyRow(rows(source, longCount), dst, longCount);
        });
        differences += compare("mergeUVRow", 2 * count, [&](const RowKernels& table, std::uint8_t* dst) {
            table.mergeUVRow(rows(source, count), rows(other, count), dst, sampleCount);
        });
        differences +=
            compare("nv12ToBgr24Rows", std::size_t{6} * even, [&](const RowKernels& table, std::uint8_t* dst) {
                table.nv12ToBgr24Rows(rows(source, std::size_t{2} * even), rows(other, even), dst, even);
            });
        for (const RgbOrder order : {RgbOrder::RedFirst, RgbOrder::BlueFirst}) {
            const std::uint8_t* const pixels = rows(source, 4 * count);
            differences += compare("rgbToYRow", count, [&](const RowKernels& table, std::uint8_t* dst) {
                table.rgbToYRow(pixels, pixels, order, dst, sampleCount);
            });
            differences += compare("rgbToUVRow", 2 * count, [&](const RowKernels& table, std::uint8_t* dst) {
                table.rgbToUVRow(pixels, order, UVPixels::Each, dst, sampleCount);
            });
            for (const UVPixels half : {UVPixels::Even, UVPixels::Odd}) {
                differences +=
                    compare("rgbToUVRow of half the pixels", even, [&](const RowKernels& table, std::uint8_t* dst) {
                        table.rgbToUVRow(rows(source, std::size_t{4} * even), order, half, dst, even);
                    });
            }
        }
        // Source rows of every ratio up to 9 : 2, forwards and backwards.
        for (const std::uint32_t sampleBytes : {1U, 2U, 4U}) {
            for (std::uint32_t ratio = 1; ratio <= 9; ++ratio) {
                const std::uint32_t sourceCount = (sampleCount * ratio + 1) / 2;
                for (const bool backwards : {false, true}) {
                    std::vector<std::uint32_t> positions(sampleCount);
                    for (std::uint32_t i = 0; i < sampleCount; ++i) {
                        const std::uint32_t position = i * sourceCount / sampleCount;
                        positions[i] = backwards ? sourceCount - 1 - position : position;
                    }
                    const RowMap map(positions, sampleBytes, sourceCount);
                    const std::uint32_t rowBytes = sourceCount * sampleBytes;
                    const std::uint8_t* const src = rows(source, rowBytes);
                    for (const bool twoRows : {false, true}) {
                        differences +=
                            compare("scaleRow", map.byteCount * (twoRows ? std::size_t{2} : std::size_t{1}),
                                    [&](const RowKernels& table, std::uint8_t* dst) {
                                        table.scaleRow(map, src, src, dst, twoRows ? dst + map.byteCount : nullptr);
                                    });
                    }
                    if (sampleBytes == 4 || std::size_t{RowCount} * rowBytes > source.All().size()) {
                        continue;
                    }
                    const std::uint8_t* const block = rows(source, std::size_t{7} * rowBytes);
                    std::array<const std::uint8_t*, RowCount> sourceRows{};
                    for (std::uint32_t i = 0; i < RowCount; ++i) {
                        sourceRows.at(i) = block + std::size_t{i * 3 % 7} * rowBytes;
                    }
                    for (const std::uint32_t rowCount : {2U, 7U, 8U, 15U, 16U, RowCount}) {
                        const std::size_t stride = std::size_t{rowCount} * sampleBytes + 3;
                        differences +=
                            compare("transposeRows", stride * (sampleCount - 1) + std::size_t{rowCount} * sampleBytes,
                                    [&](const RowKernels& table, std::uint8_t* dst) {
                                        (sampleBytes == 1 ? table.transposeRows8 : table.transposeRows16)(
                                            map, sourceRows.data(), rowCount, dst, stride);
                                    });
                    }
                }
            }
        }
        if (!differences.empty()) {
            return differences;
        }
    }
    return {};
}

} // namespace receiver
