// Every call failing while frames are published and the camera's use is watched.
#include "tests/faults/fault_bed.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cstdint>
#include <new>
#include <vector>

namespace receiver {
namespace {

constexpr char UsageOff[] = R"(told {"type":"virtual-camera-usage","active":false})";
constexpr char FirstFrame[] = "log First frame descriptor: frame:0:NV12:1280:720:0:0:0:1280:720:0,1280;921600,1280";

// Those that call it turn missing memory into a result.
void Publish(FaultBed& bed) {
    static const std::vector<std::uint8_t> frame(1280 * 720 * 3 / 2);
    bed.Product([&] {
        try {
            bed.file->CloseSharedFrameFile();
            return bed.file->PublishFrame(frame.data(), static_cast<std::uint32_t>(frame.size()), 1280, 720);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    });
    bed.NotePublished();
}

TEST(FaultsOf, OpeningTheSharedFile) {
    FailEveryCallOf({
        .name = "shared-file",
        .prepare = [](FaultBed&) {},
        .run = Publish,
        .good = {"result 0x00000000", "published"},
        // Without the variable the folder is C:\ProgramData, where the file is not looked for here.
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
            [](FaultBed& bed) {
                bed.OpenBrowser();
                EXPECT_EQ(bed.browser.RaiseWebMessage(L"ready"), S_OK);
            },
        .run = [](FaultBed& bed) { bed.PostFrame(); },
        .good = {"result 0x00000000", "published", FirstFrame, "log First browser frame published"},
        .unnoticed = "GetTempPathW",
        .outcomes = {{"TryGetWebMessageAsString", {"result $", "not published"}}},
        .withoutMemory = {"result 0x8007000E", "not published"},
        .again =
            [](FaultBed& bed) {
                bed.PostFrame();
                const Observations seen = bed.Observe(); // Which frame is the first depends on what failed.
                bed.Note(seen.at(0));
                bed.Note(seen.at(1));
            },
        .goodAgain = {"result 0x00000000", "published"},
    });
}

TEST(FaultsOf, NextFrame) {
    FailEveryCallOf({
        .name = "next-frame",
        .prepare = [](FaultBed& bed) { bed.OpenReadyPage(); },
        .run = [](FaultBed& bed) { bed.PostFrame(); },
        .good = {"result 0x00000000", "published"},
        .outcomes = {{"TryGetWebMessageAsString", {"result $", "not published"}}},
    });
}

TEST(FaultsOf, CameraTakenIntoUse) {
    FailEveryCallOf({
        .name = "camera-in-use",
        .prepare =
            [](FaultBed& bed) {
                bed.OpenWindow();
                bed.MakePageReady();
                bed.Signal();
            },
        .run = [](FaultBed& bed) { bed.Poll(); },
        .good = {"result 0x00000000", "log Virtual camera consumer started requesting frames", UsageOn},
        .unnoticed = "GetTempPathW PostWebMessageAsJson",
        .outcomes = {{"WaitForSingleObject", {"result 0x00000000"}}},
        .again =
            [](FaultBed& bed) {
                bed.Poll(5000);
                bed.Poll(5000);
                (void)bed.Observe(); // Idle in any case.
                bed.Signal();
                bed.Poll();
            },
    });
}

TEST(FaultsOf, CameraFallenIdle) {
    FailEveryCallOf({
        .name = "camera-idle",
        .prepare = [](FaultBed& bed) { bed.OpenWithCameraInUse(); },
        .run = [](FaultBed& bed) { bed.Poll(4000); },
        .good = {"result 0x00000000", "log Virtual camera consumer stopped requesting frames", UsageOff},
        .unnoticed = "GetTempPathW PostWebMessageAsJson WaitForSingleObject",
        .again =
            [](FaultBed& bed) {
                bed.Signal();
                bed.Poll();
                (void)bed.Observe();
                bed.Poll(4000);
            },
    });
}

} // namespace
} // namespace receiver
