// Lets every call fail while frames are published and the camera's use is monitored.
#include "tests/faults/fault_fixture.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cstdint>
#include <new>
#include <vector>

namespace receiver {
namespace {

constexpr char UsageOff[] = R"(posted {"type":"virtual-camera-usage","active":false})";
constexpr char FirstFrame[] = "log First frame descriptor: frame:0:NV12:1280:720:0:0:0:1280:720:0,1280;921600,1280";

// The product's callers of PublishFrame turn std::bad_alloc into a result.
void Publish(FaultFixture& fixture) {
    static const std::vector<std::uint8_t> frame(1280 * 720 * 3 / 2);
    fixture.Product([&] {
        try {
            fixture.file->CloseSharedFrameFile();
            return fixture.file->PublishFrame(frame.data(), static_cast<std::uint32_t>(frame.size()), 1280, 720);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    });
    fixture.NotePublished();
}

TEST(FaultsOf, OpeningTheSharedFile) {
    FailEveryCallOf({
        .name = "shared-file",
        .prepare = [](FaultFixture&) {},
        .run = Publish,
        .good = {"call CreateDirectoryW", "call CreateFileW", "result 0x00000000", "published"},
        // Without the variable the folder is C:\ProgramData, where this test does not read the file.
        .outcomes = {{"CreateDirectoryW CreateFileW SetFilePointerEx SetEndOfFile CreateFileMappingW MapViewOfFile",
                      {"result $", "not published"}},
                     {"GetEnvironmentVariableW", {"result 0x00000000", "not published"}}},
        .withoutMemory = {"result 0x8007000E", "not published"},
    });
}

TEST(FaultsOf, FirstFrame) {
    FailEveryCallOf({
        .name = "first-frame",
        .prepare =
            [](FaultFixture& fixture) {
                fixture.OpenBrowser();
                EXPECT_EQ(fixture.browser.RaiseWebMessage(L"ready"), S_OK);
            },
        .run = [](FaultFixture& fixture) { fixture.PostFrame(); },
        .good = {FirstFrame, "log First browser frame published", "result 0x00000000", "published"},
        .unnoticed = "GetTempPathW",
        .outcomes = {{"TryGetWebMessageAsString", {"result $", "not published"}}},
        .withoutMemory = {"result 0x8007000E", "not published"},
        .again =
            [](FaultFixture& fixture) {
                fixture.PostFrame();
                const Observations seen = fixture.Observe(); // Which frame is the first depends on what failed.
                fixture.NoteEvent(seen.at(seen.size() - 2));
                fixture.NoteEvent(seen.back());
            },
        .goodAgain = {"result 0x00000000", "published"},
    });
}

TEST(FaultsOf, NextFrame) {
    FailEveryCallOf({
        .name = "next-frame",
        .prepare = [](FaultFixture& fixture) { fixture.OpenReadyPage(); },
        .run = [](FaultFixture& fixture) { fixture.PostFrame(); },
        .good = {"result 0x00000000", "published"},
        .outcomes = {{"TryGetWebMessageAsString", {"result $", "not published"}}},
    });
}

TEST(FaultsOf, CameraTakenIntoUse) {
    FailEveryCallOf({
        .name = "camera-in-use",
        .prepare =
            [](FaultFixture& fixture) {
                fixture.OpenWindow();
                fixture.MakePageReady();
                fixture.Signal();
            },
        .run = [](FaultFixture& fixture) { fixture.Poll(); },
        .good = {"log Virtual camera consumer started requesting frames", UsageOn, "result 0x00000000"},
        .unnoticed = "GetTempPathW PostWebMessageAsJson",
        .outcomes = {{"WaitForSingleObject", {"result 0x00000000"}}},
        .again =
            [](FaultFixture& fixture) {
                fixture.Poll(5000);
                fixture.Poll(5000);
                (void)fixture.Observe(); // The camera is idle now in any case.
                fixture.Signal();
                fixture.Poll();
            },
    });
}

TEST(FaultsOf, CameraFallenIdle) {
    FailEveryCallOf({
        .name = "camera-idle",
        .prepare = [](FaultFixture& fixture) { fixture.OpenWithCameraInUse(); },
        .run = [](FaultFixture& fixture) { fixture.Poll(4000); },
        .good = {"log Virtual camera consumer stopped requesting frames", UsageOff, "result 0x00000000"},
        .unnoticed = "GetTempPathW PostWebMessageAsJson WaitForSingleObject",
        .again =
            [](FaultFixture& fixture) {
                fixture.Signal();
                fixture.Poll();
                (void)fixture.Observe();
                fixture.Poll(4000);
            },
    });
}

} // namespace
} // namespace receiver
