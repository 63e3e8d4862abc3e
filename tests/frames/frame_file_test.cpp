// The layout of the shared frame file and the publishing of frames, over plain memory.
#include "frames/frame_file.h"

#include "frames/nv12_frame.h"
#include "tests/frames/frame_pattern.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace receiver {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::unique_ptr<FrameFileLayout> MakeFile() {
    auto file = std::make_unique<FrameFileLayout>();
    ResetFrameFile(*file);
    return file;
}

Bytes BytesOf(const FrameFileLayout& file, std::size_t offset, std::size_t count) {
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&file) + offset;
    return {bytes, bytes + count};
}

void Publish(FrameFileLayout& file, std::uint32_t number, std::uint64_t timestampMs = 0) {
    const PatternSize size = SizeOfPattern(number);
    std::uint8_t* const buffer = BeginFrame(file, size.width, size.height);
    FillPattern(buffer, size.Bytes(), number);
    CompleteFrame(file, buffer, timestampMs);
}

FrameFileHeader ValidHeader(std::uint32_t width, std::uint32_t height) {
    return {FrameFileMagic, FrameFileVersion, width, height, width, width * height * 3 / 2, 0, 0, 0, 0, {}};
}

TEST(FrameFile, HasTwoBuffersAfterAHeaderOf64Bytes) {
    const FrameFileLayout* const file = nullptr;
    EXPECT_EQ(sizeof(*file), 6220864U);
    EXPECT_EQ(offsetof(FrameFileLayout, buffers), 64U);
    EXPECT_EQ(sizeof(file->buffers[0]), 3110400U);
    EXPECT_EQ(MaxFrameSize, 3110400U);
}

TEST(FrameFile, HeaderFieldsAreLittleEndianAtTheirOffsets) {
    const auto file = MakeFile();
    file->header.sequence = 0x0102030405060708;
    file->header.activeBuffer = 1;
    file->header.timestamp = 0x1112131415161718;
    const Bytes expected = {
        'V',  'S',  'T',  'L', // magic
        2,    0,    0,    0, // version
        0x00, 0x05, 0,    0, // width 1280
        0xD0, 0x02, 0,    0, // height 720
        0x00, 0x05, 0,    0, // stride
        0x00, 0x18, 0x15, 0, // frame size 1382400
        8,    7,    6,    5,    4,    3,    2,    1, // sequence
        1,    0,    0,    0, // active buffer
        0,    0,    0,    0, // reserved
        0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11, // time stamp
        0,    0,    0,    0,    0,    0,    0,    0, // reserved
        0,    0,    0,    0,    0,    0,    0,    0,
    };
    EXPECT_EQ(BytesOf(*file, 0, 64), expected);
}

TEST(FrameFile, ANv12FrameHasThreeBytesPerTwoPixels) {
    EXPECT_EQ(Nv12Size(1280, 720), 1382400U);
    EXPECT_EQ(Nv12Size(1920, 1080), 3110400U);
}

TEST(FrameFile, AHeaderOfEitherSizeIsValidInAnyStateOfPublishing) {
    for (FrameFileHeader header : {ValidHeader(1280, 720), ValidHeader(1920, 1080)}) {
        EXPECT_TRUE(IsHeaderValid(header));
        header.sequence = 5;
        header.activeBuffer = 77;
        header.timestamp = ~std::uint64_t{0};
        EXPECT_TRUE(IsHeaderValid(header));
    }
}

TEST(FrameFile, AHeaderWithOneWrongFieldIsNotValid) {
    struct Case {
        std::uint32_t FrameFileHeader::*field;
        std::uint32_t value;
    };
    constexpr std::array Cases{
        Case{&FrameFileHeader::magic, 0},
        Case{&FrameFileHeader::magic, 0x5653544C}, // the same letters in reverse order
        Case{&FrameFileHeader::magic, FrameFileMagic + 1},
        Case{&FrameFileHeader::version, 0},
        Case{&FrameFileHeader::version, 1},
        Case{&FrameFileHeader::version, 3},
        Case{&FrameFileHeader::width, 0},
        Case{&FrameFileHeader::width, 1278},
        Case{&FrameFileHeader::height, 0},
        Case{&FrameFileHeader::height, 718},
        Case{&FrameFileHeader::stride, 0},
        Case{&FrameFileHeader::stride, 1279},
        Case{&FrameFileHeader::stride, 1921},
        Case{&FrameFileHeader::frameSize, 0},
        Case{&FrameFileHeader::frameSize, 1382399},
        Case{&FrameFileHeader::frameSize, 3110401},
    };
    for (const Case& wrong : Cases) {
        for (FrameFileHeader header : {ValidHeader(1280, 720), ValidHeader(1920, 1080)}) {
            header.*wrong.field = wrong.value;
            EXPECT_FALSE(IsHeaderValid(header))
                << "case " << &wrong - Cases.data() << " of a header of width " << header.width;
        }
    }
}

TEST(FrameFile, AHeaderWithWidthAndHeightOfTwoSizesIsNotValid) {
    FrameFileHeader header = ValidHeader(1920, 1080);
    header.stride = 1280;
    EXPECT_FALSE(IsHeaderValid(header));
    header = ValidHeader(1920, 1080);
    header.frameSize = 1382400;
    EXPECT_FALSE(IsHeaderValid(header));
    header = ValidHeader(1280, 720);
    header.frameSize = 3110400;
    EXPECT_FALSE(IsHeaderValid(header));
    EXPECT_FALSE(IsHeaderValid(ValidHeader(1280, 1080)));
    EXPECT_FALSE(IsHeaderValid(ValidHeader(1920, 720)));
}

TEST(FrameFile, AResetDescribesSmallFramesAndZeroesAllOtherFields) {
    const auto file = std::make_unique<FrameFileLayout>();
    std::memset(file.get(), 0xA5, sizeof(*file));
    ResetFrameFile(*file);

    const FrameFileHeader& header = file->header;
    EXPECT_EQ(header.magic, 0x4C545356U);
    EXPECT_EQ(header.version, 2U);
    EXPECT_EQ(header.width, 1280U);
    EXPECT_EQ(header.height, 720U);
    EXPECT_EQ(header.stride, 1280U);
    EXPECT_EQ(header.frameSize, 1382400U);
    EXPECT_TRUE(IsHeaderValid(header));
    EXPECT_EQ(BytesOf(*file, 24, 6220840), Bytes(6220840));
}

TEST(FrameFile, TheFirstFrameGoesToBufferOneAndTheSecondToBufferZero) {
    const auto file = MakeFile();
    Publish(*file, 2, 1000);
    EXPECT_EQ(file->header.activeBuffer, 1U);
    EXPECT_EQ(file->header.sequence, 2U);
    EXPECT_EQ(file->header.timestamp, 1000U);
    EXPECT_EQ(ReadPattern(file->buffers[1], 1280, 720), 2U);
    EXPECT_EQ(BytesOf(*file, 64, MaxFrameSize), Bytes(MaxFrameSize));

    Publish(*file, 4, 0x0123456789ABCDEF);
    EXPECT_EQ(file->header.activeBuffer, 0U);
    EXPECT_EQ(file->header.sequence, 4U);
    EXPECT_EQ(file->header.timestamp, 0x0123456789ABCDEFU);
    EXPECT_EQ(ReadPattern(file->buffers[0], 1280, 720), 4U);
    EXPECT_EQ(ReadPattern(file->buffers[1], 1280, 720), 2U);
}

TEST(FrameFile, DuringAWriteTheSequenceIsOddAndTheActiveBufferIsUnchanged) {
    const auto file = MakeFile();
    Publish(*file, 2, 1000);
    std::uint8_t* const buffer = BeginFrame(*file, 1920, 1080);
    EXPECT_EQ(file->header.sequence, 3U);
    EXPECT_EQ(buffer, file->buffers[0]);
    std::memset(buffer, 0xFF, MaxFrameSize);
    EXPECT_EQ(file->header.activeBuffer, 1U);
    EXPECT_EQ(file->header.timestamp, 1000U);
    EXPECT_EQ(ReadPattern(file->buffers[1], 1280, 720), 2U);
}

TEST(FrameFile, TheHeaderHasTheSizeOfEachFrame) {
    const auto file = MakeFile();
    for (const std::uint32_t number : {1U, 2U, 3U}) {
        Publish(*file, number);
        const PatternSize size = SizeOfPattern(number);
        EXPECT_TRUE(IsHeaderValid(file->header));
        EXPECT_EQ(file->header.width, size.width);
        EXPECT_EQ(file->header.height, size.height);
        EXPECT_EQ(file->header.stride, size.width);
        EXPECT_EQ(file->header.frameSize, size.Bytes());
        EXPECT_EQ(ReadPattern(file->buffers[file->header.activeBuffer], size.width, size.height), number);
    }
}

TEST(FrameFile, PublishingDoesNotChangeMagicVersionAndReservedBytes) {
    const auto file = MakeFile();
    file->header.magic = 0x11111111;
    file->header.version = 0x22222222;
    file->header.reserved0 = 0x33333333;
    file->header.reserved1[0] = 0x4444444444444444;
    file->header.reserved1[1] = 0x5555555555555555;
    Publish(*file, 1);
    EXPECT_EQ(file->header.magic, 0x11111111U);
    EXPECT_EQ(file->header.version, 0x22222222U);
    EXPECT_EQ(file->header.reserved0, 0x33333333U);
    EXPECT_EQ(file->header.reserved1[0], 0x4444444444444444U);
    EXPECT_EQ(file->header.reserved1[1], 0x5555555555555555U);
}

TEST(FrameFile, AnyNonZeroBufferIndexCountsAsOne) {
    for (const std::uint32_t index : {1U, 2U, 256U, 0x80000000U, 0xFFFFFFFFU}) {
        const auto file = MakeFile();
        file->header.activeBuffer = index;
        Publish(*file, 2);
        EXPECT_EQ(file->header.activeBuffer, 0U) << index;
        EXPECT_EQ(ReadPattern(file->buffers[0], 1280, 720), 2U) << index;
    }
}

TEST(FrameFile, ASequenceLeftOddStaysOddDuringTheNextWrite) {
    const auto file = MakeFile();
    file->header.sequence = 5;
    std::uint8_t* const buffer = BeginFrame(*file, 1280, 720);
    EXPECT_EQ(file->header.sequence, 7U);
    CompleteFrame(*file, buffer, 1);
    EXPECT_EQ(file->header.sequence, 8U);
}

TEST(FrameFile, TheSequenceIsA64BitCounter) {
    struct Case {
        std::uint64_t before;
        std::uint64_t after;
    };
    constexpr std::uint64_t Max = ~std::uint64_t{0};
    constexpr std::array Cases{
        Case{0xFFFFFFFE, 0x100000000},
        Case{0xFFFFFFFF, 0x100000002},
        Case{6, 8},
        Case{7, 10},
        Case{Max - 1, 0},
        Case{Max, 2},
    };
    for (const Case& counter : Cases) {
        const auto file = MakeFile();
        file->header.sequence = counter.before;
        Publish(*file, 1);
        EXPECT_EQ(file->header.sequence, counter.after) << counter.before;
        EXPECT_EQ(file->header.activeBuffer, 1U);
    }
}

} // namespace
} // namespace receiver
