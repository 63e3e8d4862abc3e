// Lets every call fail while snapshots and recordings are made.
#include "tests/faults/fault_fixture.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <string>

namespace receiver {
namespace {

constexpr char Picture[] = "~/Pictures/Vistel/Vistel-20240305-142709-042.jpg";
constexpr char Video[] = "~/Videos/Vistel/Vistel-20240305-142709-042.mp4";
constexpr char OutOfMemory[] = "2147942414";

std::string MediaResult(const std::string& action, const std::string& path, const std::string& error) {
    return R"(posted {"type":"media-result","action":")" + action + R"(","success":)" +
           (error == "0" ? "true" : "false") + R"(,"path":")" + path + R"(","error":)" + error + "}";
}

void MakeReady(FaultFixture& fixture) { fixture.OpenReadyPage(); }

void Record(FaultFixture& fixture) {
    MakeReady(fixture);
    EXPECT_EQ(fixture.browser.RaiseWebMessage(L"media:record:start"), S_OK);
}

void StartRecording(FaultFixture& fixture) {
    (void)fixture.writers.TakeCalls();
    fixture.Post(L"media:record:start");
    const auto calls = fixture.writers.TakeCalls();
    fixture.NoteEvent(calls.empty() || calls.back() == "released" ? "idle" : "recording");
}

void EndWhileRecording(FaultFixture& fixture) {
    fixture.Product([&] {
        fixture.app.reset();
        return S_OK;
    });
    fixture.NoteEvent(fixture.writers.TakeCalls().back() == "released" ? "released" : "held");
}

TEST(FaultsOf, Snapshot) {
    FailEveryCallOf({
        .name = "snapshot",
        .prepare = MakeReady,
        .run = [](FaultFixture& fixture) { fixture.Post(L"media:snapshot"); },
        .good = {"call CreateDirectoryW", "call IWICBitmapEncoder::Commit", "log Snapshot requested",
                 MediaResult("snapshot", Picture, "0"), "result 0x00000000"},
        .unnoticed = "GetTempPathW PostWebMessageAsJson",
        .outcomes = {{"TryGetWebMessageAsString", {"result $"}},
                     {"SHGetKnownFolderPath CreateDirectoryW GetFileAttributesW",
                      {"log Snapshot requested (HRESULT $)", MediaResult("snapshot", "", "%"), "result $"}},
                     {"CoCreateInstance IWICImagingFactory::CreateStream IWICStream::InitializeFromFilename "
                      "IWICImagingFactory::CreateEncoder IWICBitmapEncoder::Initialize "
                      "IWICBitmapEncoder::CreateNewFrame IWICBitmapFrameEncode::Initialize "
                      "IWICBitmapFrameEncode::SetSize IWICBitmapFrameEncode::WritePixels "
                      "IWICBitmapFrameEncode::Commit IWICBitmapEncoder::Commit",
                      {"log Snapshot requested (HRESULT $)", MediaResult("snapshot", Picture, "%"), "result $"}},
                     {"IWICBitmapFrameEncode::SetPixelFormat",
                      {"log Snapshot requested (HRESULT 0x80004005)", MediaResult("snapshot", Picture, "2147500037"),
                       "result 0x80004005"}}},
        .withoutMemory = {"result 0x8007000E", MediaResult("snapshot", Picture, OutOfMemory),
                          MediaResult("snapshot", "", OutOfMemory)},
    });
}

TEST(FaultsOf, RecordingStart) {
    FailEveryCallOf({
        .name = "record-start",
        .prepare = MakeReady,
        .run = StartRecording,
        .good = {"call CreateDirectoryW", "call MFStartup", "call MFCreateSinkWriterFromURL", "log Recording started",
                 MediaResult("recording-started", Video, "0"), "result 0x00000000", "recording"},
        .unnoticed = "GetTempPathW PostWebMessageAsJson IMFMediaType::SetGUID IMFMediaType::SetUINT32 "
                     "IMFMediaType::SetUINT64",
        .outcomes = {{"TryGetWebMessageAsString", {"result $", "idle"}},
                     {"SHGetKnownFolderPath CreateDirectoryW GetFileAttributesW MFStartup MFCreateSinkWriterFromURL "
                      "MFCreateMediaType IMFSinkWriter::AddStream IMFSinkWriter::SetInputMediaType "
                      "IMFSinkWriter::BeginWriting",
                      {"log Recording started (HRESULT $)", MediaResult("recording-started", "", "%"), "result $",
                       "idle"}}},
        .withoutMemory = {"result 0x8007000E", "idle", MediaResult("recording-started", "", OutOfMemory)},
        .again =
            [](FaultFixture& fixture) {
                fixture.Post(L"media:record:stop");
                (void)fixture.Observe();
                StartRecording(fixture);
            },
    });
}

TEST(FaultsOf, RecordedFrame) {
    FailEveryCallOf({
        .name = "recorded-frame",
        .prepare = Record,
        .run = [](FaultFixture& fixture) { fixture.PostFrame(); },
        .good = {"call IMFSinkWriter::WriteSample", "result 0x00000000", "published"},
        .unnoticed = "IMFMediaBuffer::Unlock IMFMediaBuffer::SetCurrentLength IMFSample::SetSampleTime "
                     "IMFSample::SetSampleDuration",
        .outcomes = {{"TryGetWebMessageAsString", {"result $", "not published"}},
                     {"MFCreateMemoryBuffer IMFMediaBuffer::Lock MFCreateSample IMFSample::AddBuffer "
                      "IMFSinkWriter::WriteSample",
                      {MediaResult("recording-failed", Video, "%"), "result $", "published"}}},
        .withoutMemory = {"result 0x8007000E", "not published"},
        .again =
            [](FaultFixture& fixture) {
                fixture.Post(L"media:record:stop");
                fixture.Post(L"media:record:start");
                (void)fixture.Observe();
                fixture.PostFrame();
            },
    });
}

TEST(FaultsOf, RecordingStop) {
    FailEveryCallOf({
        .name = "record-stop",
        .prepare = Record,
        .run = [](FaultFixture& fixture) { fixture.Post(L"media:record:stop"); },
        .good = {"call IMFSinkWriter::Finalize", "call MFShutdown", "log Recording stopped",
                 MediaResult("recording-stopped", Video, "0"), "result 0x00000000"},
        .unnoticed = "GetTempPathW PostWebMessageAsJson MFShutdown",
        .outcomes = {{"TryGetWebMessageAsString", {"result $"}},
                     {"IMFSinkWriter::Finalize",
                      {"log Recording stopped (HRESULT $)", MediaResult("recording-stopped", Video, "%"), "result $"}}},
        .withoutMemory = {"result 0x8007000E"},
        .again =
            [](FaultFixture& fixture) {
                fixture.Post(L"media:record:start");
                (void)fixture.Observe();
                fixture.Post(L"media:record:stop");
            },
    });
}

TEST(FaultsOf, EndWhileRecording) {
    FailEveryCallOf({
        .name = "end-while-recording",
        .prepare = Record,
        .run = EndWhileRecording,
        .good = {"call IMFSinkWriter::Finalize", "call MFShutdown", "result 0x00000000", "released"},
        .unnoticed = "IMFSinkWriter::Finalize MFShutdown UnmapViewOfFile CloseHandle",
        .again =
            [](FaultFixture& fixture) {
                fixture.app.emplace();
                Record(fixture);
                (void)fixture.Observe();
                EndWhileRecording(fixture);
            },
    });
}

TEST(FaultsOf, QualityWhileRecording) {
    FailEveryCallOf({
        .name = "quality-while-recording",
        .prepare = Record,
        .run = [](FaultFixture& fixture) { fixture.Post(L"quality:1080p"); },
        .good = {"call IMFSinkWriter::Finalize", "call MFShutdown", MediaResult("recording-stopped", Video, "0"),
                 "call CreateDirectoryW", "log Video quality selected: 1080p", "result 0x00000000"},
        .unnoticed = "GetTempPathW PostWebMessageAsJson MFShutdown _write:quality",
        .outcomes = {{"TryGetWebMessageAsString", {"result $"}},
                     {"IMFSinkWriter::Finalize",
                      {MediaResult("recording-stopped", Video, "%"), "log Video quality selected: 1080p",
                       "result 0x00000000"}},
                     {"GetEnvironmentVariableW CreateDirectoryW GetFileAttributesW _wfopen:quality",
                      {MediaResult("recording-stopped", Video, "0"), "log Video quality selected: 1080p",
                       "result 0x80004005"}}},
        .otherFiles = {{0, "quality"}},
        .withoutMemory = {"result 0x8007000E"},
        .again =
            [](FaultFixture& fixture) {
                fixture.Post(L"media:record:start");
                (void)fixture.Observe();
                fixture.Post(L"quality:1080p");
            },
    });
}

} // namespace
} // namespace receiver
