// Each scenario of camera_probe --play, passed by the reader of the kit and by the sample camera.
#include "tools/camera_probe/frame_player.h"

#include "sample_camera/picture.h"
#include "tests/frames/frame_copy.h"
#include "tests/frames/frame_file_process.h"
#include "tests/sample_camera/capture_graph.h"
#include "tests/support/test_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace receiver {

// For messages and names of tests.
static void PrintTo(const Scenario& scenario, std::ostream* stream) {
    *stream << std::filesystem::path(scenario.name).string();
}

namespace {

using vistel::PictureState;
using vistel::ReadResult;

// The value that number and place add up to in a whole picture; empty for a mixture and for anything else.
std::optional<std::uint8_t> NumberOf(const std::uint8_t* nv12, std::uint32_t width, std::uint32_t height) {
    const std::uint8_t number = nv12[0];
    for (std::uint32_t y = 0; y < height * 3 / 2; ++y) {
        for (std::uint32_t x = 0; x < width; ++x) {
            const std::uint8_t expected = y < height ? static_cast<std::uint8_t>(PlayedY(0, x, y) + number) : 128;
            if (nv12[std::size_t{y} * width + x] != expected) {
                return std::nullopt;
            }
        }
    }
    return number;
}

class PlayedScenario : public testing::TestWithParam<Scenario> {
protected:
    PlayedScenario() {
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        std::filesystem::create_directory(path.parent_path());
    }
    ~PlayedScenario() override { CoUninitialize(); }

    [[nodiscard]] static bool Is(const wchar_t* name) { return std::wstring(GetParam().name) == name; }
    // A picture has to be missing for a time in these.
    [[nodiscard]] static bool HasSilence() { return Is(L"odd") || Is(L"silence"); }

    const PrivateFolder folder;
    const std::filesystem::path path = folder.Path() / L"Vistel" / L"frame-buffer.bin";

private:
    const VariableScope programData{L"ProgramData", folder.Path().c_str()};
};

// Reads in every pause, as often as the pause has milliseconds: the scenario goes at the reader's pace.
TEST_P(PlayedScenario, IsPassedByTheKitsReader) {
    vistel::FrameReader reader;
    FrameCopy frame;
    std::size_t frames = 0;
    std::size_t refused = 0;
    bool stale = false;
    bool large = false;
    FramePlayer player([&](std::uint32_t milliseconds) {
        const std::uint64_t end = GetTickCount64() + milliseconds;
        do {
            const ReadResult result = frame.ReadFrom(reader);
            if (result == ReadResult::NewFrame) {
                ++frames;
                large = large || frame.info.width == 1920;
                const auto number = NumberOf(frame.nv12.data(), frame.info.width, frame.info.height);
                EXPECT_EQ(number, PlayedY(frame.info.sequence / 2, 0, 0)) << frame.info.sequence;
            }
            refused += result == ReadResult::Damaged || result == ReadResult::OtherVersion ? 1U : 0U;
            stale = stale || (frames > 0 && reader.State() == PictureState::Stale);
            Sleep(1);
        } while (GetTickCount64() < end);
        return !HasFailure();
    });
    ASSERT_EQ(player.Open(path.wstring()), S_OK);
    ASSERT_TRUE(GetParam().play(player));
    EXPECT_EQ(frames, Is(L"bursts") ? 6U : Is(L"reset") ? 80U : 60U);
    EXPECT_EQ(refused, Is(L"header") ? 5U : 0U);
    EXPECT_EQ(large, Is(L"quality") || Is(L"bursts"));
    if (HasSilence()) {
        EXPECT_TRUE(stale);
    }
}

// Every picture is a whole played one, a scaled one or a card; pictures come, and the card where one is due.
TEST_P(PlayedScenario, IsPassedByTheSampleCamera) {
    sample_camera::CaptureGraph graph;
    ASSERT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
    ASSERT_GE(graph.Run(), S_OK);
    FramePlayer player([](std::uint32_t milliseconds) {
        Sleep(milliseconds);
        return true;
    });
    ASSERT_EQ(player.Open(path.wstring()), S_OK);
    std::vector<std::uint8_t> large(vistel::MaxFrameSize, 128);
    std::vector<std::uint8_t> small(1382400);
    std::size_t pictures = 0;
    bool cardAfterPictures = false;
    const auto judge = [&](const sample_camera::Sample& sample) {
        if (sample.bytes[0] == 40 && sample.bytes[1] == 40 && sample.bytes[1279] == 40) { // the card's gray
            cardAfterPictures = cardAfterPictures || pictures > 0;
            return;
        }
        if (!NumberOf(sample.bytes.data(), 1280, 720)) {
            bool scaled = false;
            for (std::uint64_t number = 0; number < 256 && !scaled; ++number) {
                if (PlayedY(number, 0, 0) != sample.bytes[0]) {
                    continue;
                }
                for (std::uint32_t y = 0; y < 1080; ++y) {
                    for (std::uint32_t x = 0; x < 1920; ++x) {
                        large[std::size_t{y} * 1920 + x] = PlayedY(number, x, y);
                    }
                }
                sample_camera::ScaleNv12(large.data(), sample_camera::Size1080p, small.data());
                scaled = small == sample.bytes;
            }
            ASSERT_TRUE(scaled) << "neither whole nor scaled";
        }
        ++pictures;
    };
    ASSERT_TRUE(GetParam().play(player));
    // The last frame is delivered, if not at once; then, in time, the card.
    for (const auto end = std::chrono::steady_clock::now() + sample_camera::Limit;
         !HasFailure() && !cardAfterPictures && std::chrono::steady_clock::now() < end;) {
        if (const std::optional<sample_camera::Sample> sample = graph.Next()) {
            judge(*sample);
        }
    }
    EXPECT_GT(pictures, 0U);
    EXPECT_TRUE(cardAfterPictures);
}

INSTANTIATE_TEST_SUITE_P(Each, PlayedScenario, testing::ValuesIn(Scenarios()),
                         [](const auto& scenario) { return std::filesystem::path(scenario.param.name).string(); });

TEST(PlayCommand, PlaysWhatIsNamedAndSaysWhatAReaderMustDo) {
    using namespace std::chrono_literals;
    const PrivateFolder folder;
    const std::wstring path = (folder.Path() / L"played.bin").wstring();
    const auto run = [&](const std::wstring& scenario) {
        return ChildProcess(BuiltProgram(VISTEL_CAMERA_PROBE), L"--play \"" + path + L"\" " + scenario,
                            folder.Path() / L"output.txt");
    };
    {
        const ChildProcess played = run(L"quality");
        EXPECT_EQ(played.WaitForExit(60s), 0U) << played.Output();
        EXPECT_THAT(played.Output(), testing::StartsWith("quality: Shows 720p and 1080p"));
        vistel::FrameReader reader(path.c_str());
        FrameCopy frame;
        EXPECT_EQ(frame.ReadFrom(reader), ReadResult::NewFrame);
        EXPECT_EQ(frame.info.sequence, 120U);
    }
    const ChildProcess unknown = run(L"unknown");
    EXPECT_EQ(unknown.WaitForExit(60s), 2U);
    EXPECT_THAT(unknown.Output(), testing::HasSubstr("steady torn odd reset quality bursts silence header"));
}

} // namespace
} // namespace receiver
