// Two applications at once for a long time, with the figures of it: VISTEL_SOAK_SECONDS is its length.
#include "frames/shared_frame_file.h"
#include "platform/environment_variable.h"
#include "platform/hresult.h"
#include "tests/sample_camera/capture_graph.h"
#include "tests/sample_camera/held.h"
#include "tests/support/test_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace sample_camera {
namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr auto FrameInterval = std::chrono::microseconds(33333);
constexpr std::uint64_t WarmUpFrames = 45;

std::uint64_t FrameCount() {
    return WarmUpFrames + 30 * std::stoull(receiver::ReadEnvironmentVariable(L"VISTEL_SOAK_SECONDS").value_or(L"3"));
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// What one application has received.
struct Received {
    std::vector<double> latencies; // microseconds
    std::uint64_t last = 0; // number of a frame
    std::uint64_t missing = 0;
    double threadUs = 0; // of the stream's thread since its start
};

TEST(SampleCameraSoakTest, TwoApplicationsAtOnceReceiveFramesInOrderAndHoldNoMore) {
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    {
        const receiver::PrivateFolder folder;
        const receiver::VariableScope programData(L"ProgramData", folder.Path().c_str());
        const std::uint64_t frames = FrameCount();
        std::vector<std::uint8_t> frame(ImageBytes(VideoFormats[0]), 100);
        std::vector<std::uint8_t> copy(frame.size());
        std::vector<Clock::time_point> published(frames + 1);
        std::vector<double> copies;
        std::array<Received, 2> received;
        for (Received& each : received) {
            each.latencies.reserve(frames);
        }
        copies.reserve(frames);
        receiver::SharedFrameFile file;
        std::array<CaptureGraph, 2> graphs;
        for (CaptureGraph& graph : graphs) {
            graph.KeepBytes(sizeof(std::uint64_t));
            ASSERT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
            ASSERT_GE(graph.Run(), S_OK);
            ASSERT_TRUE(graph.Next()); // the card
        }
        const auto take = [&](CaptureGraph& graph, Received& into, std::chrono::milliseconds wait) {
            while (const std::optional<Sample> sample = graph.Next(wait)) {
                std::uint64_t number = 0;
                std::memcpy(&number, sample->bytes.data(), sizeof(number));
                into.threadUs = sample->threadUs;
                if (number > frames) {
                    continue; // a card
                }
                EXPECT_GT(number, into.last);
                into.missing += number - into.last - 1;
                into.last = number;
                into.latencies.push_back(Microseconds(sample->arrived - published[number]).count());
            }
        };
        Held before;
        const Clock::time_point start = Clock::now();
        for (std::uint64_t number = 1; number <= frames; ++number) {
            if (number == WarmUpFrames) {
                before = Held::Now();
            }
            std::memcpy(frame.data(), &number, sizeof(number));
            const Clock::time_point copying = Clock::now();
            std::memcpy(copy.data(), frame.data(), frame.size());
            copies.push_back(Microseconds(Clock::now() - copying).count());
            ASSERT_EQ(file.PublishFrame(frame.data(), static_cast<std::uint32_t>(frame.size()), 1280, 720), S_OK);
            published[number] = Clock::now();
            while (Clock::now() < start + number * FrameInterval) {
                Sleep(1);
            }
            for (std::size_t i = 0; i < graphs.size(); ++i) {
                take(graphs[i], received[i], std::chrono::milliseconds(0));
            }
        }
        const Held after = Held::Now();
        for (std::size_t i = 0; i < graphs.size(); ++i) {
            take(graphs[i], received[i], std::chrono::milliseconds(500));
            const Received& each = received[i];
            ASSERT_FALSE(each.latencies.empty());
            std::printf("application %zu: %zu of %llu frames, %llu missing; median from the time stamp to the delivery "
                        "%.2f ms, %.2f ms of CPU a frame, cards and polls included\n",
                        i + 1, each.latencies.size(), static_cast<unsigned long long>(frames),
                        static_cast<unsigned long long>(each.missing), Median(each.latencies) / 1000,
                        each.threadUs / 1000 / static_cast<double>(each.latencies.size()));
        }
        std::printf("a copy of a frame: %.2f ms; %zu KiB and %lld handles before, %zu KiB and %lld handles after\n",
                    Median(copies) / 1000, before.bytes / 1024, static_cast<long long>(before.handles),
                    after.bytes / 1024, static_cast<long long>(after.handles));
        EXPECT_LE(after.bytes, before.bytes + Held::AllowedBytes);
        EXPECT_LE(after.handles, before.handles + 5);
    }
    CoUninitialize();
}

} // namespace
} // namespace sample_camera
