#include "tools/camera_probe/doctor.h"

#include "app/receiver_log.h"
#include "app/virtual_camera.h"
#include "platform/folder.h"
#include "platform/handles.h"
#include "sample_camera/registration.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>

namespace receiver {
namespace {

constexpr std::size_t LogLineCount = 12;
constexpr std::streamoff LogTailBytes = 16384; // A page can make the log long.

bool IsDenied(const std::wstring& path, DWORD access, DWORD flags) {
    const UniqueFile file(CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, flags, nullptr));
    return !file && GetLastError() == ERROR_ACCESS_DENIED;
}

void ExamineFrameFile(MachineFacts& facts) {
    facts.framePath = vistel::DefaultPath().text;
    vistel::FrameReader reader(facts.framePath.c_str());
    std::vector<std::uint8_t> nv12(vistel::MaxFrameSize);
    constexpr int MaxReads = 100;
    for (int i = 0; i < MaxReads; ++i) {
        const vistel::ReadResult result = reader.Read(facts.frame, [&](std::uint32_t width, std::uint32_t) {
            return vistel::Destination{nv12.data(), width};
        });
        if (result != vistel::ReadResult::Busy) {
            break;
        }
        Sleep(1);
    }
    facts.pictureState = reader.State();
    facts.frameError = reader.SystemError();
    const std::uint64_t nowMs = GetTickCount64();
    // A time stamp in the future was made before the system was restarted.
    facts.frameAgeMs =
        nowMs > facts.frame.timestampMs && facts.frame.sequence != 0 ? nowMs - facts.frame.timestampMs : 0;
    const std::wstring folder = facts.framePath.substr(0, facts.framePath.rfind(L'\\'));
    facts.frameFileWritable = facts.pictureState == vistel::PictureState::Missing
                                  ? !IsDenied(folder, FILE_ADD_FILE, FILE_FLAG_BACKUP_SEMANTICS)
                                  : !IsDenied(facts.framePath, GENERIC_READ | GENERIC_WRITE, FILE_ATTRIBUTE_NORMAL);
}

std::optional<std::wstring> SampleCameraPath() {
    for (const HKEY root : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE}) {
        std::wstring path(MaxTextLength, L'\0');
        auto bytes = static_cast<DWORD>(path.size() * sizeof(wchar_t));
        if (RegGetValueW(root, sample_camera::ServerKey, nullptr, RRF_RT_REG_SZ, nullptr, path.data(), &bytes) ==
            ERROR_SUCCESS) {
            return path.c_str();
        }
    }
    return std::nullopt;
}

// The receiver beside this program: policies may name it.
std::wstring ReceiverPath() {
    const std::wstring path = ProgramPath();
    return JoinPath(path.substr(0, path.rfind(L'\\')), L"vistel-receiver.exe");
}

std::optional<std::vector<std::string>> ReadLogEnd(const std::wstring& path) {
    std::ifstream file(std::filesystem::path(path), std::ios::binary | std::ios::ate);
    if (!file) {
        return std::nullopt;
    }
    const std::streamoff size = file.tellg();
    const bool isCut = size > LogTailBytes;
    file.seekg(isCut ? size - LogTailBytes : 0);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        lines.push_back(line);
    }
    const std::size_t excess = lines.size() > LogLineCount ? lines.size() - LogLineCount : (isCut ? 1 : 0);
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(excess));
    return lines;
}

} // namespace

MachineFacts ExamineMachine(const std::wstring& eventName) {
    MachineFacts facts;
    ExamineFrameFile(facts);
    facts.receiverRunning = FindWindowW(L"VistelReceiverWindow", nullptr) != nullptr;
    facts.virtualCamera = IsVirtualCameraRegistered();
    facts.sampleCamera = SampleCameraPath();
    facts.sampleCameraExists =
        facts.sampleCamera && GetFileAttributesW(facts.sampleCamera->c_str()) != INVALID_FILE_ATTRIBUTES;
    const UniqueHandle event(OpenEventW(EVENT_MODIFY_STATE, FALSE, eventName.c_str()));
    facts.usageEventError = event ? 0 : GetLastError();
    facts.runtime = FindRuntime(ReceiverPath(), {});
    facts.logPath = ReceiverLog::FilePath();
    facts.logLines = ReadLogEnd(facts.logPath);
    return facts;
}

int RunDoctor(bool asJson) {
    const MachineFacts facts = ExamineMachine(vistel::UsageSignal::EventName);
    const std::vector<Diagnosis> diagnoses = Diagnose(facts);
    std::fputs((asJson ? ToJson(facts, diagnoses) : ToText(facts, diagnoses)).c_str(), stdout);
    return ExitCode(diagnoses);
}

} // namespace receiver
