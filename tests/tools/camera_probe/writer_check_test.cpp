// Every rule for a writer, kept once and broken once.
#include "tools/camera_probe/writer_check.h"

#include "frames/frame_file.h"
#include "frames/shared_frame_file.h"
#include "platform/handles.h"
#include "tests/frames/frame_file_process.h"
#include "tests/frames/shared_frame_file_pattern.h"
#include "tests/support/test_files.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace receiver {
namespace {

// A complete frame, as a right writer leaves it.
WriterObservation Frame(std::uint64_t number) {
    WriterObservation seen;
    seen.header.magic = vistel::FileHeader::Magic;
    seen.header.version = vistel::FileHeader::Version;
    seen.header.width = 1280;
    seen.header.height = 720;
    seen.header.stride = 1280;
    seen.header.frameSize = 1382400;
    seen.header.sequence = 2 * number;
    seen.header.activeBuffer = number % 2;
    seen.header.timestamp = 1000 + number;
    seen.nowMs = 1000 + number;
    seen.activeBufferHash = number;
    return seen;
}

WriterObservation With(std::uint64_t number, const std::function<void(WriterObservation&)>& change) {
    WriterObservation seen = Frame(number);
    change(seen);
    return seen;
}

TEST(WriterCheck, ARightWriterKeepsEveryRule) {
    WriterCheck check;
    EXPECT_FALSE(check.Passed()) << "nothing was seen";
    check.Look(With(0, [](WriterObservation& seen) { seen.header.timestamp = 0; }));
    EXPECT_FALSE(check.Passed()) << "no frame was seen";
    for (std::uint64_t number = 1; number <= 5; ++number) {
        check.Look(With(number, [](WriterObservation& seen) {
            --seen.header.sequence;
            seen.header.stride = 0; // being written
            seen.header.activeBuffer ^= 1;
        }));
        check.Look(Frame(number));
        check.Look(Frame(number));
    }
    check.Look(Frame(7)); // one was missed, and the buffer is the same again
    check.Look(With(9, [](WriterObservation& seen) { seen.header.activeBuffer = 0; })); // one was never completed
    check.Look(With(0, [](WriterObservation& seen) { seen.header.timestamp = 0; })); // begun again
    check.Look(Frame(1));
    EXPECT_TRUE(check.Passed());
    for (std::size_t rule = 0; rule < WriterRuleCount; ++rule) {
        EXPECT_GT(check.VerdictOn(static_cast<WriterRule>(rule)).looks, 0U) << rule;
    }
}

struct Broken {
    WriterRule rule;
    std::function<void(WriterObservation&)> change; // of frame 2, after frame 1
};

TEST(WriterCheck, FindsEachBrokenRuleAndNoOther) {
    const std::uint64_t one = 1;
    for (const Broken& broken : {
             Broken{WriterRule::Format, [](WriterObservation& seen) { seen.header.magic = 0; }},
             Broken{WriterRule::Format, [](WriterObservation& seen) { seen.header.version = 3; }},
             Broken{WriterRule::Reserved, [](WriterObservation& seen) { seen.header.reserved0 = 1; }},
             Broken{WriterRule::Reserved, [](WriterObservation& seen) { seen.header.reserved1[0] = 1; }},
             Broken{WriterRule::Reserved, [](WriterObservation& seen) { seen.header.reserved1[1] = 1; }},
             Broken{WriterRule::Geometry, [](WriterObservation& seen) { seen.header.width = 1920; }},
             Broken{WriterRule::Geometry, [](WriterObservation& seen) { seen.header.height = 1080; }},
             Broken{WriterRule::Geometry, [](WriterObservation& seen) { seen.header.stride = 1281; }},
             Broken{WriterRule::Geometry, [](WriterObservation& seen) { seen.header.frameSize = 1382399; }},
             Broken{WriterRule::Alternation, [](WriterObservation& seen) { seen.header.activeBuffer = 1; }},
             Broken{WriterRule::Clock, [](WriterObservation& seen) { seen.nowMs = seen.header.timestamp - 1; }},
             Broken{WriterRule::Clock, [](WriterObservation& seen) { seen.header.timestamp = 1000; }},
             Broken{WriterRule::Order,
                    [](WriterObservation& seen) {
                        seen = Frame(1);
                        seen.activeBufferHash = 9;
                    }},
             Broken{WriterRule::Order,
                    [](WriterObservation& seen) {
                        seen = Frame(1);
                        seen.header.activeBuffer = 0;
                    }},
             Broken{WriterRule::Order,
                    [&](WriterObservation& seen) {
                        seen = Frame(one);
                        --seen.header.timestamp;
                    }},
         }) {
        WriterCheck check;
        check.Look(Frame(1));
        check.Look(With(2, broken.change));
        for (std::size_t rule = 0; rule < WriterRuleCount; ++rule) {
            EXPECT_EQ(!check.VerdictOn(static_cast<WriterRule>(rule)).evidence.empty(),
                      static_cast<WriterRule>(rule) == broken.rule)
                << rule << " instead of " << static_cast<int>(broken.rule);
        }
        EXPECT_FALSE(check.Passed());
    }
}

TEST(WriterCheck, ASequenceThatGoesBackButNotToZeroIsBroken) {
    WriterCheck check;
    check.Look(Frame(5));
    check.Look(Frame(3));
    EXPECT_THAT(check.VerdictOn(WriterRule::Sequence).evidence, testing::HasSubstr("at sequence 6"));
}

// camera_probe --check, on the receiver's own writer and on a file that is no frame file.
TEST(WriterCheck, TheCommandPassesTheReceiversWriterAndNothingElse) {
    using namespace std::chrono_literals;
    const PrivateFolder folder;
    const VariableScope programData(L"ProgramData", folder.Path().c_str());
    const std::wstring path = (folder.Path() / L"Vistel" / L"frame-buffer.bin").wstring();
    const auto start = [&] {
        return ChildProcess(BuiltProgram(VISTEL_CAMERA_PROBE), L"--check \"" + path + L"\"",
                            folder.Path() / L"output.txt");
    };
    {
        ChildProcess check = start();
        check.Stop();
        EXPECT_EQ(check.WaitForExit(60s), 1U) << check.Output();
    }
    SharedFrameFile file;
    ASSERT_EQ(PublishPattern(file, 1), S_OK);
    for (std::uint32_t attempt = 0; attempt < 100; ++attempt) {
        ChildProcess check = start();
        for (std::uint32_t number = 2; number < 30; ++number) {
            ASSERT_EQ(PublishPattern(file, number), S_OK);
            Sleep(10);
        }
        check.Stop();
        const std::optional<DWORD> code = check.WaitForExit(60s);
        EXPECT_THAT(check.Output(), testing::Not(testing::HasSubstr("BROKEN")));
        if (code == 0U) { // else it has started too late to see a frame
            EXPECT_THAT(check.Output(), testing::HasSubstr("kept    time stamps"));
            return;
        }
    }
    FAIL() << "no frame was seen";
}

// A new frame file, mapped for a writer that breaks rules.
class MappedFrameFile {
public:
    explicit MappedFrameFile(const std::filesystem::path& path)
        : file(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr)),
          mapping(CreateFileMappingW(file.Get(), nullptr, PAGE_READWRITE, 0, sizeof(FrameFileLayout), nullptr)),
          view(MapViewOfFile(mapping.Get(), FILE_MAP_WRITE, 0, 0, sizeof(FrameFileLayout))) {
        EXPECT_TRUE(view);
        ResetFrameFile(Layout());
    }
    [[nodiscard]] FrameFileLayout& Layout() const { return *static_cast<FrameFileLayout*>(view.Get()); }

private:
    UniqueFile file;
    UniqueHandle mapping;
    MappedView view;
};

// Writes a frame as a right writer does, but for what `damage` does to the header before the frame is complete.
void WriteFrame(
    FrameFileLayout& file, const std::function<void(FrameFileHeader&)>& damage = [](FrameFileHeader&) {}) {
    std::uint8_t* const buffer = BeginFrame(file, 1280, 720);
    std::memset(buffer, static_cast<int>(file.header.sequence / 2 % 256), 1280);
    damage(file.header);
    CompleteFrame(file, buffer, GetTickCount64());
}

struct BrokenOnFile {
    WriterRule rule;
    void (*write)(FrameFileLayout&); // after a right frame
};

// camera_probe --check, on a writer that breaks one rule after every second frame.
TEST(WriterCheck, TheCommandFindsEachRuleThatAWriterBreaksAndNoOther) {
    using namespace std::chrono_literals;
    constexpr DWORD FrameMs = 10;
    const PrivateFolder folder;
    for (const BrokenOnFile& broken : {
             BrokenOnFile{WriterRule::Format,
                          [](FrameFileLayout& file) { WriteFrame(file, [](auto& header) { header.magic = 0; }); }},
             BrokenOnFile{WriterRule::Reserved,
                          [](FrameFileLayout& file) { WriteFrame(file, [](auto& header) { header.reserved0 = 1; }); }},
             BrokenOnFile{WriterRule::Geometry,
                          [](FrameFileLayout& file) { WriteFrame(file, [](auto& header) { ++header.stride; }); }},
             BrokenOnFile{
                 WriterRule::Sequence, // to a number that no frame before had
                 [](FrameFileLayout& file) { WriteFrame(file, [](auto& header) { header.sequence -= 1000; }); }},
             BrokenOnFile{WriterRule::Alternation,
                          [](FrameFileLayout& file) {
                              (void)BeginFrame(file, 1280, 720); // the buffer is not used
                              CompleteFrame(file, file.buffers[file.header.activeBuffer], GetTickCount64());
                          }},
             BrokenOnFile{WriterRule::Clock,
                          [](FrameFileLayout& file) {
                              CompleteFrame(file, BeginFrame(file, 1280, 720), GetTickCount64() + 3600000);
                          }},
             BrokenOnFile{WriterRule::Order,
                          [](FrameFileLayout& file) { ++file.buffers[file.header.activeBuffer][0]; }},
         }) {
        const std::filesystem::path path = folder.Path() / (std::to_string(static_cast<int>(broken.rule)) + ".bin");
        const MappedFrameFile file(path);
        file.Layout().header.sequence = std::uint64_t{1} << 40;
        std::string output;
        std::optional<DWORD> code;
        for (int attempt = 0; attempt < 100 && output.find("BROKEN") == std::string::npos; ++attempt) {
            ChildProcess check(BuiltProgram(VISTEL_CAMERA_PROBE), L"--check \"" + path.wstring() + L"\"",
                               folder.Path() / L"output.txt");
            for (int round = 0; round < 15; ++round) {
                WriteFrame(file.Layout());
                Sleep(FrameMs);
                broken.write(file.Layout());
                Sleep(FrameMs);
            }
            check.Stop();
            code = check.WaitForExit(60s);
            output = check.Output(); // It may have started too late to see this.
        }
        EXPECT_EQ(code, 1U);
        EXPECT_THAT(output, testing::HasSubstr(std::string("BROKEN  ") + Text(broken.rule)));
        EXPECT_EQ(output.find("BROKEN"), output.rfind("BROKEN")) << output;
    }
}

} // namespace
} // namespace receiver
