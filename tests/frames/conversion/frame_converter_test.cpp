// FrameConverter against a plain reference over formats, rotations, mirrors, sizes and paddings; hand-computed pictures
// and colors for both; refused frames; plans kept from frame to frame.
#include "conversion_checks.h"
#include "frames/conversion/frame_converter.h"
#include "frames/conversion/frame_plan.h"
#include "reference_converter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <vector>

namespace receiver {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct Size {
    std::uint32_t width;
    std::uint32_t height;
};

constexpr std::array<std::uint32_t, 4> Rotations = {0, 90, 180, 270};
constexpr std::array<Size, 2> Canvases = {{{1280, 720}, {1920, 1080}}};
// The last two have as many bytes as the canvases.
constexpr std::array<Size, 8> CanvasesBefore = {
    {{0, 0}, {2, 2}, {1280, 718}, {1280, 720}, {1920, 1080}, {1922, 1080}, {720, 1280}, {1080, 1920}}};

// A frame whose planes follow each other without a gap, displayed at its coded size.
FrameDescriptor TightFrame(std::wstring_view format, Size size) {
    FrameDescriptor frame;
    frame.format = format;
    frame.codedWidth = frame.displayWidth = size.width;
    frame.codedHeight = frame.displayHeight = size.height;
    std::uint64_t offset = 0;
    for (const PlaneSize& plane : ReferencePlanes(format, size.width, size.height)) {
        frame.AddPlane({.offset = offset, .stride = plane.rowBytes});
        offset += plane.rowBytes * plane.rowCount;
    }
    return frame;
}

Bytes RandomBytes(std::size_t size, std::uint64_t seed) {
    std::mt19937_64 generator(seed);
    Bytes bytes(size);
    for (std::size_t at = 0; at < size; at += sizeof(std::uint64_t)) {
        const std::uint64_t value = generator();
        std::memcpy(bytes.data() + at, &value, std::min(sizeof value, size - at));
    }
    return bytes;
}

// A slot of exactly the size that the frame needs, so that the address sanitizer sees a read past its end.
Bytes RandomSlot(const FrameDescriptor& frame, std::uint64_t seed) {
    return RandomBytes(static_cast<std::size_t>(ReferenceSlotSize(frame)), seed);
}

std::string Describe(const FrameDescriptor& frame, Size canvas) {
    return receiver::Describe(frame, canvas.width, canvas.height);
}

::testing::AssertionResult SameCanvas(std::span<const std::uint8_t> expected, std::span<const std::uint8_t> actual,
                                      Size canvas) {
    if (expected.size() != actual.size()) {
        return ::testing::AssertionFailure() << actual.size() << " bytes instead of " << expected.size();
    }
    if (std::memcmp(expected.data(), actual.data(), expected.size()) == 0) {
        return ::testing::AssertionSuccess();
    }
    const auto difference = std::mismatch(expected.begin(), expected.end(), actual.begin());
    const auto index = static_cast<std::size_t>(difference.first - expected.begin());
    return ::testing::AssertionFailure() << "byte " << index << ", column " << index % canvas.width << " of row "
                                         << index / canvas.width << ", is " << int{*difference.second} << " instead of "
                                         << int{*difference.first};
}

Bytes BytesOf(const FrameCanvas& canvas) { return {canvas.Frame().bytes.begin(), canvas.Frame().bytes.end()}; }

// A canvas of which no part is known to be black; empty for a size of 0.
FrameCanvas RandomCanvas(Size size, std::uint64_t seed) {
    FrameCanvas canvas;
    if (size.width > 0) {
        canvas.Prepare(size.width, size.height, {0, 0, size.width, size.height});
        std::ranges::copy(RandomBytes(canvas.Frame().bytes.size(), seed), canvas.Y());
    }
    return canvas;
}

// Converts over whatever `canvasBytes` holds and compares with the reference.
void ExpectReferenceCanvas(FrameConverter& converter, std::span<const std::uint8_t> slot, const FrameDescriptor& frame,
                           Size canvas, FrameCanvas& canvasBytes) {
    const HRESULT result = converter.Convert(slot, frame, canvas.width, canvas.height, canvasBytes);
    EXPECT_EQ(S_OK, result) << Describe(frame, canvas);
    if (result == S_OK) {
        EXPECT_TRUE(
            SameCanvas(ReferenceConvert(slot, frame, canvas.width, canvas.height), canvasBytes.Frame().bytes, canvas))
            << Describe(frame, canvas);
    }
}

void ExpectRefused(FrameConverter& converter, std::span<const std::uint8_t> slot, const FrameDescriptor& frame,
                   Size canvas) {
    FrameCanvas after = RandomCanvas({26, 26}, 1);
    const Bytes before = BytesOf(after);
    EXPECT_EQ(E_INVALIDARG, converter.Convert(slot, frame, canvas.width, canvas.height, after))
        << Describe(frame, canvas);
    EXPECT_TRUE(before == BytesOf(after)) << "canvas touched by " << Describe(frame, canvas);
}

// What product and reference both make of a frame.
Bytes Converted(std::span<const std::uint8_t> slot, const FrameDescriptor& frame, Size canvas) {
    FrameConverter converter;
    FrameCanvas canvasBytes;
    ExpectReferenceCanvas(converter, slot, frame, canvas, canvasBytes);
    return BytesOf(canvasBytes);
}

// Coded and display sizes of odd fits, with the bytes that each row and the start of each plane are padded by.
struct Shape {
    Size coded;
    Size display;
    std::uint32_t rowPadding;
    std::uint32_t gap;
};
constexpr std::array<Shape, 11> Shapes = {{{{1280, 720}, {1280, 720}, 0, 0},
                                           {{640, 480}, {640, 480}, 16, 3},
                                           {{720, 1280}, {720, 1280}, 1, 1},
                                           {{1366, 768}, {1366, 767}, 10, 64},
                                           {{322, 178}, {321, 177}, 7, 5},
                                           {{1920, 1080}, {1919, 1079}, 0, 0},
                                           {{854, 480}, {4096, 2160}, 42, 7},
                                           {{62, 1082}, {607, 1080}, 3, 0},
                                           {{1260, 720}, {1280, 720}, 0, 0}, // 63 : 64
                                           {{1270, 720}, {1280, 720}, 5, 9}, // 127 : 128
                                           {{1536, 864}, {1280, 720}, 0, 2}}}; // 4 : 5 and 6 : 5

FrameDescriptor FrameOf(std::wstring_view format, const Shape& shape) {
    FrameDescriptor frame = TightFrame(format, shape.coded);
    frame.displayWidth = shape.display.width;
    frame.displayHeight = shape.display.height;
    std::uint64_t shift = shape.gap;
    for (PlaneLayout& plane : frame.planes) {
        plane.offset += shift;
        plane.stride += shape.rowPadding;
        shift += shape.gap + std::uint64_t{shape.rowPadding} * shape.coded.height;
    }
    return frame;
}

// All turns of a shape or, where they take several times as long, every third one, and others of the next shape.
#if defined(__SANITIZE_ADDRESS__) || defined(_WIN32)
constexpr std::uint32_t TurnStep = 3;
#else
constexpr std::uint32_t TurnStep = 1;
#endif

class FrameConverterFormat : public ::testing::TestWithParam<std::tuple<const wchar_t*, Size>> {};

// Formats whose names begin alike differ only in what is not drawn, and must give the same picture.
TEST_P(FrameConverterFormat, EqualsTheReferenceInEveryRotationAndFlip) {
    const auto& [likeFormat, canvas] = GetParam();
    std::vector<FrameConverter> converters;
    for (const RowKernels* kernels : UsableKernels()) {
        converters.emplace_back(*kernels);
    }
    FrameCanvas canvasBytes;
    for (std::uint32_t turn = 0; turn < 8 * Shapes.size(); turn += TurnStep) {
        const bool mirrored = turn % 2 == 1;
        FrameDescriptor frame = FrameOf(likeFormat, Shapes.at(turn / 8));
        frame.rotation = Rotations.at(turn / 2 % 4);
        const Bytes slot = RandomSlot(frame, turn);
        frame.flipA = turn / 8 % 2 == 1;
        frame.flipB = frame.flipA != mirrored;
        const Bytes expected = ReferenceConvert(slot, frame, canvas.width, canvas.height);
        for (const std::wstring_view format : SupportedFormats) {
            if (format.substr(0, 3) != frame.format.substr(0, 3)) {
                continue;
            }
            frame.format = format;
            for (FrameConverter& converter : converters) {
                frame.flipA = !frame.flipA;
                frame.flipB = frame.flipA != mirrored;
                ASSERT_EQ(S_OK, converter.Convert(slot, frame, canvas.width, canvas.height, canvasBytes));
                ASSERT_TRUE(SameCanvas(expected, canvasBytes.Frame().bytes, canvas)) << Describe(frame, canvas);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, FrameConverterFormat,
                         ::testing::Combine(::testing::Values(L"NV12", L"I420", L"RGBA", L"BGRA"),
                                            ::testing::ValuesIn(Canvases)),
                         [](const ::testing::TestParamInfo<FrameConverterFormat::ParamType>& run) {
                             const std::wstring format = std::get<0>(run.param);
                             return std::string(format.begin(), format.end()) + "On" +
                                    std::to_string(std::get<1>(run.param).height);
                         });

TEST(FrameConverter, IsComparedOverRowsOfEveryPeriod) {
    std::set<std::uint32_t> periods;
    for (const Shape& shape : Shapes) {
        for (const Size& canvas : Canvases) {
            const FrameDescriptor frame = FrameOf(L"NV12", shape);
            const PixelFormat& format = *FindPixelFormat(frame.format, frame.planeCount);
            const FramePlan plan(frame, format, canvas.width, canvas.height);
            periods.insert({plan.y.map.period, plan.uv.map.period});
        }
    }
    EXPECT_EQ((std::set<std::uint32_t>{0, 1, 2, 3, 4, 5}), periods);
}

TEST(FrameConverter, EqualsTheReferenceForTheSmallestAndTheLargestSizes) {
    constexpr std::array<Size, 8> CodedSizes = {
        {{2, 2}, {2, 4}, {4, 2}, {6, 2}, {4096, 2}, {2, 2160}, {4096, 2160}, {4094, 2158}}};
    constexpr std::array<Size, 6> DisplaySizes = {{{1, 1}, {1, 4096}, {4096, 1}, {17, 4096}, {4096, 4095}, {16, 9}}};
    FrameConverter converter;
    FrameCanvas canvasBytes;
    std::uint32_t turn = 0;
    for (const wchar_t* format : SupportedFormats) {
        for (const Size& coded : CodedSizes) {
            FrameDescriptor frame = TightFrame(format, coded);
            if (ReferenceSlotSize(frame) > SlotSize) { // rows that overlap are allowed
                for (PlaneLayout& plane : frame.planes) {
                    plane = {.offset = turn % 5, .stride = 1 + turn % 3};
                }
            }
            const Bytes slot = RandomSlot(frame, turn);
            for (const Size& display : DisplaySizes) {
                frame.displayWidth = display.width;
                frame.displayHeight = display.height;
                for (const std::uint32_t rotation : Rotations) {
                    frame.rotation = rotation;
                    frame.flipB = turn++ % 3 == 0;
                    ExpectReferenceCanvas(converter, slot, frame, {50, 34}, canvasBytes);
                }
            }
            ExpectReferenceCanvas(converter, slot, frame, Canvases.at(turn++ % Canvases.size()), canvasBytes);
        }
    }
}

TEST(FrameConverter, CopiesAnNv12FrameOfTheCanvasSizeByteForByte) {
    for (const Size& canvas : Canvases) {
        const FrameDescriptor frame = TightFrame(L"NV12", canvas);
        const Bytes slot = RandomSlot(frame, 1);
        EXPECT_TRUE(SameCanvas(slot, Converted(slot, frame, canvas), canvas));
    }
}

TEST(FrameConverter, InterleavesThePlanesOfAnI420FrameOfTheCanvasSize) {
    const Size canvas = {1280, 720};
    const FrameDescriptor frame = TightFrame(L"I420", canvas);
    const Bytes slot = RandomSlot(frame, 1);
    Bytes expected(slot.begin(), slot.begin() + 921600);
    for (std::size_t index = 0; index < 230400; ++index) {
        expected.push_back(slot[921600 + index]);
        expected.push_back(slot[1152000 + index]);
    }
    EXPECT_TRUE(SameCanvas(expected, Converted(slot, frame, canvas), canvas));
}

TEST(FrameConverter, CentresA640x480FrameOnBlack) {
    const Size canvas = {1280, 720};
    const FrameDescriptor frame = TightFrame(L"NV12", {640, 480});
    const Bytes slot = RandomSlot(frame, 1);
    Bytes expected = BlackCanvas(1280, 720);
    for (std::size_t y = 0; y < 720; ++y) {
        for (std::size_t x = 160; x < 1120; ++x) {
            expected[y * 1280 + x] = slot[y * 480 / 720 * 640 + (x - 160) * 640 / 960];
        }
    }
    for (std::size_t y = 0; y < 720; y += 2) {
        for (std::size_t x = 160; x < 1120; x += 2) {
            const std::size_t source = 307200 + y * 480 / 720 / 2 * 640 + (x - 160) * 640 / 960 / 2 * 2;
            const std::size_t target = 921600 + y / 2 * 1280 + x;
            expected[target] = slot[source];
            expected[target + 1] = slot[source + 1];
        }
    }
    EXPECT_TRUE(SameCanvas(expected, Converted(slot, frame, canvas), canvas));
}

TEST(FrameConverter, DrawsAPortraitPictureInColumns656To1261) {
    const Size canvas = {1920, 1080};
    const FrameDescriptor frame = TightFrame(L"NV12", {720, 1280});
    const Bytes slot(static_cast<std::size_t>(ReferenceSlotSize(frame)), 200);
    Bytes expected = BlackCanvas(1920, 1080);
    for (std::size_t row = 0; row < 1080 * 3 / 2; ++row) {
        const auto first = expected.begin() + static_cast<std::ptrdiff_t>(row * 1920 + 656);
        std::fill(first, first + 606, std::uint8_t{200});
    }
    EXPECT_TRUE(SameCanvas(expected, Converted(slot, frame, canvas), canvas));
}

TEST(FrameConverter, ReadsTheLeftmostColumnOfAQuarterTurnFromTheBottomRow) {
    FrameDescriptor frame = TightFrame(L"NV12", {1280, 720});
    frame.rotation = 90;
    const Bytes slot = RandomSlot(frame, 1);
    const Bytes canvas = Converted(slot, frame, {1280, 720});
    for (std::size_t y = 0; y < 720; ++y) { // row 719 begins at byte 920320
        ASSERT_EQ(slot[920320 + y * 1280 / 720], canvas[y * 1280]) << "row " << y;
    }
}

// The source is "abcd" above "efgh", its two chroma samples are (U, V) and (u, v).
TEST(FrameConverter, TurnsAndMirrorsASmallPictureAsDrawnByHand) {
    struct Case {
        std::uint32_t rotation;
        bool mirrored;
        std::string_view canvas; // luma, then chroma
    };
    constexpr std::array<Case, 8> Cases = {{{0, false, "abcdefghUVuv"},
                                            {0, true, "dcbahgfeuvUV"},
                                            {90, false, "eafbgchdUVuv"},
                                            {90, true, "aebfcgdhUVuv"},
                                            {180, false, "hgfedcbauvUV"},
                                            {180, true, "efghabcdUVuv"},
                                            {270, false, "dhcgbfaeuvUV"},
                                            {270, true, "hdgcfbeauvUV"}}};
    constexpr std::string_view Nv12Slot = "abcdefghUVuv";
    constexpr std::string_view I420Slot = "abcdefghUuVv";
    for (const Case& turn : Cases) {
        const Size canvas = turn.rotation % 180 == 0 ? Size{4, 2} : Size{2, 4};
        for (const bool flipA : {false, true}) {
            for (const wchar_t* format : {L"NV12", L"I420", L"I420A"}) {
                FrameDescriptor frame = TightFrame(format, {4, 2});
                frame.rotation = turn.rotation;
                frame.flipA = flipA;
                frame.flipB = flipA != turn.mirrored; // two flips undo each other
                frame.displayWidth = canvas.width;
                frame.displayHeight = canvas.height;
                const std::string_view source = frame.planeCount == 2 ? Nv12Slot : I420Slot;
                const Bytes drawn = Converted(Bytes(source.begin(), source.end()), frame, canvas);
                EXPECT_EQ(turn.canvas, std::string(drawn.begin(), drawn.end())) << Describe(frame, canvas);
            }
        }
    }
}

TEST(FrameConverter, ConvertsPackedColorsAsComputedByHand) {
    struct Case {
        std::uint8_t red, green, blue;
        std::uint8_t y, u, v;
    };
    constexpr std::array<Case, 9> Cases = {{{255, 255, 255, 235, 128, 128},
                                            {255, 0, 0, 82, 90, 240},
                                            {0, 255, 0, 144, 54, 34},
                                            {0, 0, 255, 41, 240, 110},
                                            {0, 0, 0, 16, 128, 128},
                                            {255, 255, 0, 210, 16, 146},
                                            {1, 2, 3, 18, 129, 127},
                                            {200, 100, 50, 123, 91, 175},
                                            {128, 128, 128, 126, 128, 128}}};
    const Size canvas = {8, 4};
    for (const Case& color : Cases) {
        Bytes expected(32, color.y);
        for (int pair = 0; pair < 8; ++pair) {
            expected.push_back(color.u);
            expected.push_back(color.v);
        }
        for (const wchar_t* format : {L"RGBA", L"RGBX", L"BGRA", L"BGRX"}) {
            const bool redFirst = format[0] == L'R';
            for (const std::uint8_t alpha : {std::uint8_t{0}, std::uint8_t{77}, std::uint8_t{255}}) {
                const FrameDescriptor frame = TightFrame(format, {4, 2});
                Bytes slot;
                for (int pixel = 0; pixel < 8; ++pixel) {
                    slot.push_back(redFirst ? color.red : color.blue);
                    slot.push_back(color.green);
                    slot.push_back(redFirst ? color.blue : color.red);
                    slot.push_back(alpha);
                }
                EXPECT_TRUE(SameCanvas(expected, Converted(slot, frame, canvas), canvas)) << Describe(frame, canvas);
            }
        }
    }
}

TEST(FrameConverter, TakesTheChromaOfAPackedBlockFromItsTopLeftPixel) {
    const FrameDescriptor frame = TightFrame(L"RGBA", {2, 2});
    const Bytes slot = {255, 0, 0, 0, 0, 255, 0, 0, 0, 0, 255, 0, 255, 255, 255, 0}; // red, green, blue, white
    EXPECT_EQ((Bytes{82, 144, 41, 235, 90, 240}), Converted(slot, frame, {2, 2}));
}

TEST(FrameConverter, ConvertsColorsOfTheWholeCubeLikeTheReference) {
    constexpr std::array<std::uint8_t, 16> Levels = {0,   1,   2,   15,  16,  31,  64,  100,
                                                     127, 128, 129, 200, 235, 240, 254, 255};
    // Each color fills a block of two by two pixels, so that its chroma is drawn too; 16 rows of 256 blocks.
    Bytes slot;
    for (const std::uint8_t red : Levels) {
        Bytes row;
        for (const std::uint8_t green : Levels) {
            for (const std::uint8_t blue : Levels) {
                row.insert(row.end(), {red, green, blue, 9, red, green, blue, 7});
            }
        }
        slot.insert(slot.end(), row.begin(), row.end());
        slot.insert(slot.end(), row.begin(), row.end());
    }
    const Size size = {512, 32};
    for (const wchar_t* format : {L"RGBA", L"RGBX", L"BGRA", L"BGRX"}) {
        const FrameDescriptor frame = TightFrame(format, size);
        ASSERT_EQ(slot.size(), ReferenceSlotSize(frame));
        EXPECT_EQ(512U * 48U, Converted(slot, frame, size).size()); // compares with the reference
    }
}

TEST(FrameConverter, BlackensTheCanvasForAnUnsupportedFormat) {
    using namespace std::string_view_literals;
    const Bytes slot = RandomBytes(1024, 1);
    FrameConverter converter;
    struct Case {
        std::wstring_view format;
        std::size_t planeCount;
    };
    for (const Case& wrong :
         {Case{L"YUY2"sv, 1}, Case{L"YUY2"sv, 4}, Case{L""sv, 3}, Case{L"nv12"sv, 2}, Case{L"NV12 "sv, 2},
          Case{L"NV12\0"sv, 2}, Case{L"NV21"sv, 2}, Case{L"I422"sv, 3}, Case{L"I420AA"sv, 4}, Case{L"RGB"sv, 1},
          Case{L"ABGR"sv, 1}, Case{L"NV12"sv, 0}, Case{L"NV12"sv, 1}, Case{L"I420"sv, 0}, Case{L"I420"sv, 2},
          Case{L"I420A"sv, 2}, Case{L"RGBA"sv, 0}, Case{L"BGRX"sv, 0}}) {
        FrameDescriptor frame = TightFrame(L"I420A", {16, 16});
        frame.format = wrong.format;
        frame.planeCount = wrong.planeCount;
        FrameCanvas bytes = RandomCanvas({34, 16}, 1);
        EXPECT_EQ(MF_E_INVALIDMEDIATYPE, converter.Convert(slot, frame, 32, 18, bytes));
        EXPECT_EQ(BlackCanvas(32, 18), BytesOf(bytes)) << Describe(frame, {32, 18});
    }
}

TEST(FrameConverter, BlackensACanvasOfAnySizeAndContent) {
    const Bytes slot = RandomBytes(1024, 1);
    const FrameDescriptor frame = TightFrame(L"YUY2", {16, 16});
    FrameConverter converter;
    for (const Size& canvas : Canvases) {
        for (const Size& before : CanvasesBefore) {
            FrameCanvas bytes = RandomCanvas(before, 1);
            EXPECT_EQ(MF_E_INVALIDMEDIATYPE, converter.Convert(slot, frame, canvas.width, canvas.height, bytes));
            EXPECT_TRUE(SameCanvas(BlackCanvas(canvas.width, canvas.height), bytes.Frame().bytes, canvas))
                << Describe(frame, canvas) << " from " << before.width << " x " << before.height;
        }
    }
}

// The canvas is black before the planes are looked at.
TEST(FrameConverter, FindsAFormatUnsupportedBeforeItsPlanesLeaveTheSlot) {
    FrameDescriptor frame = TightFrame(L"NV12", {16, 16});
    frame.planes[0].stride = std::numeric_limits<std::uint64_t>::max();
    FrameConverter converter;
    for (const std::size_t planeCount : {std::size_t{2}, std::size_t{1}}) {
        frame.format = planeCount == 2 ? L"YUY2" : L"NV12";
        frame.planeCount = planeCount;
        FrameCanvas bytes = RandomCanvas({8, 6}, 1);
        EXPECT_EQ(MF_E_INVALIDMEDIATYPE, converter.Convert({}, frame, 32, 16, bytes));
        EXPECT_EQ(BlackCanvas(32, 16), BytesOf(bytes));
    }
}

TEST(FrameConverter, IgnoresPlanesThatTheFormatDoesNotRead) {
    const PlaneLayout hostile = {.offset = std::numeric_limits<std::uint64_t>::max(),
                                 .stride = std::numeric_limits<std::uint64_t>::max()};
    for (const wchar_t* format : SupportedFormats) {
        FrameDescriptor frame = TightFrame(format, {16, 12});
        const Bytes slot = RandomSlot(frame, 1);
        const Bytes plain = Converted(slot, frame, {32, 18});
        frame.AddPlane(hostile);
        EXPECT_EQ(plain, Converted(slot, frame, {32, 18})) << Describe(frame, {32, 18});
    }
}

TEST(FrameConverter, GivesTheSameOverACanvasOfAnySizeAndContent) {
    FrameConverter converter;
    for (const wchar_t* format : {L"NV12", L"RGBA"}) {
        const FrameDescriptor frame = TightFrame(format, {64, 48});
        const Bytes slot = RandomSlot(frame, 1);
        for (const Size& canvas : Canvases) {
            for (const Size& before : CanvasesBefore) {
                FrameCanvas bytes = RandomCanvas(before, before.width);
                ExpectReferenceCanvas(converter, slot, frame, canvas, bytes);
            }
        }
    }
}

TEST(FrameConverter, KeepsTheMemoryOfTheCanvas) {
    const FrameDescriptor frame = TightFrame(L"NV12", {64, 48});
    const Bytes slot = RandomSlot(frame, 1);
    FrameConverter converter;
    FrameCanvas bytes;
    ExpectReferenceCanvas(converter, slot, frame, {1920, 1080}, bytes);
    const std::uint8_t* memory = bytes.Frame().bytes.data();
    for (const Size& canvas : {Size{1280, 720}, Size{1920, 1080}, Size{1920, 1080}}) {
        ExpectReferenceCanvas(converter, slot, frame, canvas, bytes);
        EXPECT_EQ(memory, bytes.Frame().bytes.data());
    }
}

TEST(FrameConverter, RefusesAPlaneThatLeavesTheSlotByOneByte) {
    const Size canvas = {64, 36};
    FrameConverter converter;
    for (const wchar_t* format : SupportedFormats) {
        for (const Size& coded : {Size{64, 36}, Size{2, 2}, Size{4096, 2}, Size{2, 2160}}) {
            const std::vector<PlaneSize> planes = ReferencePlanes(format, coded.width, coded.height);
            for (std::size_t last = 0; last < planes.size(); ++last) {
                FrameDescriptor frame = TightFrame(format, coded);
                frame.planes.at(last).offset = ReferenceSlotSize(frame) + 5; // nothing lies after this plane
                const Bytes slot = RandomSlot(frame, last);
                FrameCanvas bytes;
                ExpectReferenceCanvas(converter, slot, frame, canvas, bytes);

                ExpectRefused(converter, std::span(slot).first(slot.size() - 1), frame, canvas);
                FrameDescriptor moved = frame;
                moved.planes.at(last).offset += 1;
                ExpectRefused(converter, slot, moved, canvas);
                FrameDescriptor widened = frame;
                widened.planes.at(last).stride += 1;
                if (planes.at(last).rowCount > 1) {
                    ExpectRefused(converter, slot, widened, canvas);
                } else {
                    ExpectReferenceCanvas(converter, slot, widened, canvas, bytes);
                }
                ExpectReferenceCanvas(converter, slot, frame, canvas, bytes);
            }
        }
    }
}

TEST(FrameConverter, RefusesAFrameThatEndsOneByteAfterTheWholeSlot) {
    const Bytes slot = RandomBytes(SlotSize, 1);
    FrameConverter converter;
    FrameCanvas bytes;
    FrameDescriptor frame = TightFrame(L"BGRA", {1920, 1080});
    ExpectReferenceCanvas(converter, slot, frame, {1920, 1080}, bytes);
    frame.planes[0].offset = 1;
    ExpectRefused(converter, slot, frame, {1920, 1080});

    frame = TightFrame(L"NV12", {1280, 720});
    frame.planes[1].offset = 8294400 - 460800;
    ExpectReferenceCanvas(converter, slot, frame, {1280, 720}, bytes);
    frame.planes[1].offset += 1;
    ExpectRefused(converter, slot, frame, {1280, 720});
    frame.planes[1] = {.offset = 8294399, .stride = 1280};
    ExpectRefused(converter, slot, frame, {1280, 720});
}

TEST(FrameConverter, RefusesOffsetsAndStridesThatWouldWrap) {
    constexpr std::uint64_t Largest = std::numeric_limits<std::uint64_t>::max();
    constexpr std::uint64_t LowWord = std::uint64_t{1} << 32;
    FrameConverter converter;
    for (const wchar_t* format : SupportedFormats) {
        // Five rows before the last, two in subsampled chroma.
        const FrameDescriptor good = TightFrame(format, {32, 6});
        const Bytes slot = RandomSlot(good, 1);
        const std::vector<PlaneSize> planes = ReferencePlanes(format, 32, 6);
        for (std::size_t plane = 0; plane < planes.size(); ++plane) {
            for (const std::uint64_t offset : {Largest, Largest - 1, Largest - 31, Largest - planes[plane].rowBytes + 1,
                                               Largest - 191, Largest / 2 + 1, LowWord, LowWord + 1}) {
                FrameDescriptor frame = good;
                frame.planes.at(plane).offset = offset;
                ExpectRefused(converter, slot, frame, {32, 18});
            }
            // Five times the last two is 1 modulo 2^64 and 2^32; twice some others is 0.
            for (const std::uint64_t stride : {Largest, Largest - 31, Largest / 2 + 1, Largest / 5, Largest / 5 + 1,
                                               Largest / 6 + 1, Largest / 3 + 1, LowWord, LowWord + 32, LowWord / 2,
                                               std::uint64_t{0xCCCCCCCCCCCCCCCD}, std::uint64_t{0xCCCCCCCD}}) {
                FrameDescriptor frame = good;
                frame.planes.at(plane).stride = stride;
                ExpectRefused(converter, slot, frame, {32, 18});
                // The last row would wrap to the start of the slot.
                frame.planes.at(plane).offset = 0 - (planes[plane].rowCount - 1) * stride;
                ExpectRefused(converter, slot, frame, {32, 18});
            }
        }
        ExpectRefused(converter, {}, good, {32, 18});
    }
}

struct Change {
    const char* name;
    std::function<void(FrameDescriptor&, Size&)> apply;
};

TEST(FrameConverter, FollowsAChangeOfAnySingleFieldAndTheWayBack) {
    const std::vector<Change> changes = {
        {"codedWidth", [](FrameDescriptor& frame, Size&) { frame.codedWidth = 60; }},
        {"codedHeight", [](FrameDescriptor& frame, Size&) { frame.codedHeight = 34; }},
        {"flipA", [](FrameDescriptor& frame, Size&) { frame.flipA = true; }},
        {"rotation 90", [](FrameDescriptor& frame, Size&) { frame.rotation = 90; }},
        {"rotation 180", [](FrameDescriptor& frame, Size&) { frame.rotation = 180; }},
        {"rotation 270", [](FrameDescriptor& frame, Size&) { frame.rotation = 270; }},
        {"flipB", [](FrameDescriptor& frame, Size&) { frame.flipB = true; }},
        {"displayWidth", [](FrameDescriptor& frame, Size&) { frame.displayWidth = 40; }},
        {"displayHeight", [](FrameDescriptor& frame, Size&) { frame.displayHeight = 20; }},
        {"canvas width", [](FrameDescriptor&, Size& canvas) { canvas.width = 90; }},
        {"canvas height", [](FrameDescriptor&, Size& canvas) { canvas.height = 50; }},
        {"offset of plane 0", [](FrameDescriptor& frame, Size&) { frame.planes[0].offset += 3; }},
        {"stride of plane 0", [](FrameDescriptor& frame, Size&) { frame.planes[0].stride += 3; }},
        {"offset of plane 1", [](FrameDescriptor& frame, Size&) { frame.planes.at(1).offset += 3; }},
        {"stride of plane 1", [](FrameDescriptor& frame, Size&) { frame.planes.at(1).stride += 3; }},
        {"offset of plane 2", [](FrameDescriptor& frame, Size&) { frame.planes.at(2).offset += 3; }},
        {"stride of plane 2", [](FrameDescriptor& frame, Size&) { frame.planes.at(2).stride += 3; }},
    };
    for (const wchar_t* format : {L"NV12", L"I420", L"RGBA"}) {
        const FrameDescriptor usual = TightFrame(format, {64, 36});
        const Size usualCanvas = {80, 44};
        const Bytes slot = RandomBytes(static_cast<std::size_t>(ReferenceSlotSize(usual)) + 200, 1);
        FrameConverter converter;
        FrameCanvas bytes;
        ExpectReferenceCanvas(converter, slot, usual, usualCanvas, bytes);
        const Bytes usualBytes = BytesOf(bytes);
        const std::size_t planeChanges = (3 - usual.planeCount) * 2;
        for (std::size_t index = 0; index < changes.size() - planeChanges; ++index) {
            const Change& change = changes[index];
            SCOPED_TRACE(change.name);
            FrameDescriptor changed = usual;
            Size changedCanvas = usualCanvas;
            change.apply(changed, changedCanvas);
            ExpectReferenceCanvas(converter, slot, changed, changedCanvas, bytes);
            EXPECT_FALSE(usualBytes == BytesOf(bytes)) << "this change shows nothing";
            ExpectReferenceCanvas(converter, slot, usual, usualCanvas, bytes);
            // The same picture again, from new bytes.
            const Bytes other = RandomBytes(slot.size(), index + 2);
            ExpectReferenceCanvas(converter, other, usual, usualCanvas, bytes);
        }
    }
}

TEST(FrameConverter, FollowsEveryChangeOfFormat) {
    // One layout of planes that serves all formats.
    FrameDescriptor frame = TightFrame(L"RGBA", {64, 36});
    frame.planeCount = 3;
    frame.planes = {{{0, 256}, {16, 256}, {48, 256}}};
    const Bytes slot = RandomSlot(frame, 1);
    FrameConverter converter;
    FrameCanvas bytes;
    for (const wchar_t* from : SupportedFormats) {
        for (const wchar_t* to : SupportedFormats) {
            for (const wchar_t* format : {from, to}) {
                frame.format = format;
                ExpectReferenceCanvas(converter, slot, frame, {64, 36}, bytes);
            }
        }
    }
}

TEST(FrameConverter, RefusesARepeatedFrameOnceTheSlotIsTooSmall) {
    const Size canvas = {64, 36};
    FrameConverter converter;
    for (const wchar_t* format : SupportedFormats) {
        const FrameDescriptor frame = TightFrame(format, {64, 36});
        const Bytes slot = RandomSlot(frame, 1);
        const Bytes shorter(slot.begin(), slot.end() - 1);
        FrameCanvas bytes;
        for (int round = 0; round < 3; ++round) {
            ExpectReferenceCanvas(converter, slot, frame, canvas, bytes);
            ExpectRefused(converter, shorter, frame, canvas);
            ExpectRefused(converter, shorter, frame, canvas);
        }
    }
}

TEST(FrameConverter, IsNotAffectedByRefusedFrames) {
    const Size canvas = {64, 36};
    FrameConverter converter;
    for (const wchar_t* format : SupportedFormats) {
        const FrameDescriptor good = TightFrame(format, {64, 36});
        FrameDescriptor leaving = good;
        leaving.planes[0].offset = ReferenceSlotSize(good);
        FrameDescriptor unsupported = good;
        unsupported.format = L"YUY2";
        const Bytes slot = RandomSlot(good, 1);
        FrameCanvas bytes;
        ExpectRefused(converter, slot, leaving, canvas);
        ExpectRefused(converter, slot, leaving, canvas);
        ExpectReferenceCanvas(converter, slot, good, canvas, bytes);
        ExpectRefused(converter, slot, leaving, canvas);
        ExpectReferenceCanvas(converter, slot, good, canvas, bytes);
        EXPECT_EQ(MF_E_INVALIDMEDIATYPE, converter.Convert(slot, unsupported, 64, 36, bytes));
        EXPECT_EQ(BlackCanvas(64, 36), BytesOf(bytes));
        ExpectReferenceCanvas(converter, slot, good, canvas, bytes);
    }
}

// The page fills the slot with two values in turn while it is converted: any mixture of them is a valid outcome.
TEST(FrameConverter, SurvivesASlotThatChangesWhileItIsRead) {
    constexpr std::uint8_t First = 40;
    constexpr std::uint8_t Second = 190;
    constexpr int ConversionCount = 100;
    const Size canvas = {320, 180};
    for (const wchar_t* format : {L"NV12", L"I420", L"RGBA"}) {
        FrameDescriptor frame = TightFrame(format, {160, 120});
        Bytes slot(static_cast<std::size_t>(ReferenceSlotSize(frame)), First);
        std::atomic<bool> stop = false;
        std::atomic<std::uint64_t> fills = 0;
        std::thread page([&] {
            while (!stop) {
                const std::uint8_t value = fills % 2 == 0 ? Second : First;
                for (std::uint8_t& byte : slot) {
                    std::atomic_ref(byte).store(value, std::memory_order_relaxed);
                }
                ++fills;
            }
        });
        FrameConverter converter;
        FrameCanvas bytes;
        // At least so many conversions, and as many more as it takes until the page was seen at work.
        for (int count = 0; count < ConversionCount || fills < 4; ++count) {
            frame.rotation = Rotations.at(static_cast<std::size_t>(count) % Rotations.size());
            const HRESULT result = converter.Convert(slot, frame, canvas.width, canvas.height, bytes);
            EXPECT_EQ(S_OK, result);
            if (result != S_OK) {
                break;
            }
            Bytes expected = BlackCanvas(canvas.width, canvas.height);
            bool valid = bytes.Frame().bytes.size() == expected.size();
            for (std::size_t index = 0; valid && index < expected.size(); ++index) {
                const std::size_t column = index % 320;
                const bool picture = column >= 40 && column < 280;
                const bool packed = frame.planeCount == 1;
                const bool luma = index < std::size_t{320} * 180;
                const std::uint8_t byte = bytes.Frame().bytes[index];
                if (!picture) {
                    valid = byte == expected[index];
                } else if (!packed) {
                    valid = byte == First || byte == Second;
                } else if (luma) {
                    valid = byte >= 50 && byte <= 179; // between the two greys
                } else {
                    valid = byte >= 62 && byte <= 194; // of colors mixed from the two
                }
            }
            EXPECT_TRUE(valid) << Describe(frame, canvas);
        }
        stop = true;
        page.join();
    }
}

} // namespace
} // namespace receiver
