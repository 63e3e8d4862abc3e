// Every call failing while snapshots and recordings are made.
#include "tests/faults/fault_bed.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <string>

namespace receiver {
namespace {

constexpr char Picture[] = "~/Pictures/Vistel/Vistel-20240305-142709-042.jpg";
constexpr char Video[] = "~/Videos/Vistel/Vistel-20240305-142709-042.mp4";
constexpr char OutOfMemory[] = "2147942414";

std::string Told(const std::string& action, const std::string& path, const std::string& error) {
    return R"(told {"type":"media-result","action":")" + action + R"(","success":)" +
           (error == "0" ? "true" : "false") + R"(,"path":")" + path + R"(","error":)" + error + "}";
}

void MakeReady(FaultBed& bed) { bed.OpenReadyPage(); }

void Record(FaultBed& bed) {
    MakeReady(bed);
    EXPECT_EQ(bed.browser.RaiseWebMessage(L"media:record:start"), S_OK);
}

void StartRecording(FaultBed& bed) {
    (void)bed.writers.TakeCalls();
    bed.Post(L"media:record:start");
    const auto calls = bed.writers.TakeCalls();
    bed.Note(calls.empty() || calls.back() == "released" ? "idle" : "recording");
}

void EndWhileRecording(FaultBed& bed) {
    bed.Product([&] {
        bed.app.reset();
        return S_OK;
    });
    bed.Note(bed.writers.TakeCalls().back() == "released" ? "released" : "held");
}

TEST(FaultsOf, Snapshot) {
    FailEveryCallOf({
        .name = "snapshot",
        .prepare = MakeReady,
        .run = [](FaultBed& bed) { bed.Post(L"media:snapshot"); },
        .good = {"result 0x00000000", "log Snapshot requested", Told("snapshot", Picture, "0")},
        .unnoticed = "GetTempPathW PostWebMessageAsJson",
        .outcomes = {{"TryGetWebMessageAsString", {"result $"}},
                     {"SHGetKnownFolderPath CreateDirectoryW GetFileAttributesW",
                      {"result $", "log Snapshot requested (HRESULT $)", Told("snapshot", "", "%")}},
                     {"CoCreateInstance IWICImagingFactory::CreateStream IWICStream::InitializeFromFilename "
                      "IWICImagingFactory::CreateEncoder IWICBitmapEncoder::Initialize "
                      "IWICBitmapEncoder::CreateNewFrame IWICBitmapFrameEncode::Initialize "
                      "IWICBitmapFrameEncode::SetSize IWICBitmapFrameEncode::WritePixels "
                      "IWICBitmapFrameEncode::Commit IWICBitmapEncoder::Commit",
                      {"result $", "log Snapshot requested (HRESULT $)", Told("snapshot", Picture, "%")}},
                     {"IWICBitmapFrameEncode::SetPixelFormat",
                      {"result 0x80004005", "log Snapshot requested (HRESULT 0x80004005)",
                       Told("snapshot", Picture, "2147500037")}}},
        .withoutMemory = {"result 0x8007000E", Told("snapshot", Picture, OutOfMemory),
                          Told("snapshot", "", OutOfMemory)},
    });
}

TEST(FaultsOf, RecordingStart) {
    FailEveryCallOf({
        .name = "record-start",
        .prepare = MakeReady,
        .run = StartRecording,
        .good = {"result 0x00000000", "recording", "log Recording started", Told("recording-started", Video, "0")},
        .unnoticed = "GetTempPathW PostWebMessageAsJson IMFMediaType::SetGUID IMFMediaType::SetUINT32 "
                     "IMFMediaType::SetUINT64",
        .outcomes = {{"TryGetWebMessageAsString", {"result $", "idle"}},
                     {"SHGetKnownFolderPath CreateDirectoryW GetFileAttributesW MFCreateSinkWriterFromURL "
                      "MFCreateMediaType IMFSinkWriter::AddStream IMFSinkWriter::SetInputMediaType "
                      "IMFSinkWriter::BeginWriting",
                      {"result $", "idle", "log Recording started (HRESULT $)", Told("recording-started", "", "%")}}},
        .withoutMemory = {"result 0x8007000E", "idle", Told("recording-started", "", OutOfMemory)},
        .again =
            [](FaultBed& bed) {
                bed.Post(L"media:record:stop");
                (void)bed.Observe();
                StartRecording(bed);
            },
    });
}

TEST(FaultsOf, RecordedFrame) {
    FailEveryCallOf({
        .name = "recorded-frame",
        .prepare = Record,
        .run = [](FaultBed& bed) { bed.PostFrame(); },
        .good = {"result 0x00000000", "published"},
        .unnoticed = "IMFMediaBuffer::Unlock IMFMediaBuffer::SetCurrentLength IMFSample::SetSampleTime "
                     "IMFSample::SetSampleDuration",
        .outcomes = {{"TryGetWebMessageAsString", {"result $", "not published"}},
                     {"MFCreateMemoryBuffer IMFMediaBuffer::Lock MFCreateSample IMFSample::AddBuffer "
                      "IMFSinkWriter::WriteSample",
                      {"result $", "published", Told("recording-failed", Video, "%")}}},
        .withoutMemory = {"result 0x8007000E", "not published"},
        .again =
            [](FaultBed& bed) {
                bed.Post(L"media:record:stop");
                bed.Post(L"media:record:start");
                (void)bed.Observe();
                bed.PostFrame();
            },
    });
}

TEST(FaultsOf, RecordingStop) {
    FailEveryCallOf({
        .name = "record-stop",
        .prepare = Record,
        .run = [](FaultBed& bed) { bed.Post(L"media:record:stop"); },
        .good = {"result 0x00000000", "log Recording stopped", Told("recording-stopped", Video, "0")},
        .unnoticed = "GetTempPathW PostWebMessageAsJson",
        .outcomes = {{"TryGetWebMessageAsString", {"result $"}},
                     {"IMFSinkWriter::Finalize",
                      {"result $", "log Recording stopped (HRESULT $)", Told("recording-stopped", Video, "%")}}},
        .withoutMemory = {"result 0x8007000E"},
        .again =
            [](FaultBed& bed) {
                bed.Post(L"media:record:start");
                (void)bed.Observe();
                bed.Post(L"media:record:stop");
            },
    });
}

TEST(FaultsOf, EndWhileRecording) {
    FailEveryCallOf({
        .name = "end-while-recording",
        .prepare = Record,
        .run = EndWhileRecording,
        .good = {"result 0x00000000", "released"},
        .unnoticed = "IMFSinkWriter::Finalize UnmapViewOfFile CloseHandle",
        .again =
            [](FaultBed& bed) {
                bed.app.emplace();
                Record(bed);
                (void)bed.Observe();
                EndWhileRecording(bed);
            },
    });
}

TEST(FaultsOf, QualityWhileRecording) {
    FailEveryCallOf({
        .name = "quality-while-recording",
        .prepare = Record,
        .run = [](FaultBed& bed) { bed.Post(L"quality:1080p"); },
        .good = {"result 0x00000000", "log Video quality selected: 1080p", Told("recording-stopped", Video, "0")},
        .unnoticed = "GetTempPathW PostWebMessageAsJson",
        .outcomes =
            {{"TryGetWebMessageAsString", {"result $"}},
             {"IMFSinkWriter::Finalize",
              {"result 0x00000000", "log Video quality selected: 1080p", Told("recording-stopped", Video, "%")}},
             {"GetEnvironmentVariableW CreateDirectoryW GetFileAttributesW",
              {"result 0x80004005", "log Video quality selected: 1080p", Told("recording-stopped", Video, "0")}}},
        .withoutMemory = {"result 0x8007000E"},
        .again =
            [](FaultBed& bed) {
                bed.Post(L"media:record:start");
                (void)bed.Observe();
                bed.Post(L"quality:1080p");
            },
    });
}

} // namespace
} // namespace receiver
