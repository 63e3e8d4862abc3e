// What camera_probe --doctor has found on a machine, as sentences and as JSON. Pure: doctor.cpp looks at the machine.
#pragma once

#include "examples/camera/frame_reader.h"
#include "platform/webview2/runtime_search.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {

// What is wrong. The values are bits of the exit code, which 1 and 2 have other meanings in; they never change.
enum class Finding : unsigned {
    FileMissing = 0x4,
    FileDenied = 0x8,
    FileSize = 0x10,
    FileVersion = 0x20,
    FileDamaged = 0x40,
    FileStale = 0x80,
    FileFailed = 0x100,
    NoCamera = 0x200,
    CameraFileMissing = 0x400,
    UsageEvent = 0x800,
    RuntimeMissing = 0x1000,
    LogMissing = 0x2000,
};

struct MachineFacts {
    std::wstring framePath;
    vistel::PictureState pictureState = vistel::PictureState::Missing;
    bool frameFileWritable = true; // false only when the rights forbid it
    vistel::FrameInfo frame; // the newest
    std::uint64_t frameAgeMs = 0;
    std::uint32_t frameError = 0; // the system's code of a failed opening

    bool receiverRunning = false; // in this session
    bool virtualCamera = false; // is registered
    std::optional<std::wstring> sampleCamera; // path of the registered DLL
    bool sampleCameraExists = false;
    std::uint32_t usageEventError = 0; // of opening it; ERROR_FILE_NOT_FOUND when it does not exist

    std::optional<Runtime> runtime;

    std::wstring logPath;
    std::optional<std::vector<std::string>> logLines; // the last ones, in Latin-1; empty without a log
};

struct Diagnosis {
    Finding finding;
    const char* name;
    std::string problem; // UTF-8, as all texts here
    std::string remedy;
};

[[nodiscard]] std::vector<Diagnosis> Diagnose(const MachineFacts& facts);

// The findings' bits together; 0 when nothing is wrong.
[[nodiscard]] int ExitCode(const std::vector<Diagnosis>& diagnoses) noexcept;

[[nodiscard]] std::string ToText(const MachineFacts& facts, const std::vector<Diagnosis>& diagnoses);
// One object in one line.
[[nodiscard]] std::string ToJson(const MachineFacts& facts, const std::vector<Diagnosis>& diagnoses);

} // namespace receiver
