#include "tools/camera_probe/doctor_report.h"

#include <array>
#include <cstdio>

namespace receiver {
namespace {

using vistel::PictureState;

std::string Utf8(std::wstring_view text) {
    std::string utf8(text.size() * 3, '\0');
    utf8.resize(
        static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                                     utf8.data(), static_cast<int>(utf8.size()), nullptr, nullptr)));
    return utf8;
}

std::string FromLatin1(std::string_view text) {
    std::wstring wide;
    for (const char character : text) {
        wide += static_cast<wchar_t>(static_cast<unsigned char>(character));
    }
    return Utf8(wide);
}

std::string Quoted(std::string_view utf8) {
    std::string json = "\"";
    for (const char character : utf8) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '"' || character == '\\') {
            json.append(1, '\\').append(1, character);
        } else if (byte < 0x20) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(byte));
            json += escape.data();
        } else {
            json += character;
        }
    }
    return json + '"';
}

std::string Printable(std::string text) {
    for (char& character : text) {
        if (static_cast<unsigned char>(character) < 0x20) {
            character = '?';
        }
    }
    return text;
}

const char* BoolText(bool value) noexcept { return value ? "true" : "false"; }

// The last level of the version folder, which is the version of an installed runtime.
std::wstring_view VersionOf(const Runtime& runtime) noexcept {
    return std::wstring_view(runtime.versionFolder).substr(runtime.versionFolder.rfind(L'\\') + 1);
}

// `owned`: what another account has created.
std::string DeniedRemedy(const std::string& owned) {
    return "Another account has created the " + owned +
           ". An administrator installs the receiver for all users (/AllUsers), which lets all interactive users read "
           "and write the file, or deletes the " +
           owned + ".";
}

void DiagnoseFrameFile(const MachineFacts& facts, std::vector<Diagnosis>& found) {
    const std::string path = Utf8(facts.framePath);
    const bool denied = !facts.frameFileWritable && facts.pictureState != PictureState::Denied;
    if (denied) {
        const bool missing = facts.pictureState == PictureState::Missing;
        found.push_back({Finding::FileDenied, "frame-file-denied",
                         "This account may not " + std::string(missing ? "create " : "write ") + path +
                             ", so a receiver that it starts sends no picture.",
                         DeniedRemedy(missing ? "folder" : "file")});
    }
    switch (facts.pictureState) {
    case PictureState::Missing:
        found.push_back({Finding::FileMissing, "frame-file-missing", "There is no frame file " + path + ".",
                         facts.receiverRunning
                             ? "The receiver is running: its page has not reported that it is ready, or the file "
                               "could not be created. Look at the receiver's window and at the log."
                             : "Start the receiver with a page that sends video, for example the test picture."});
        break;
    case PictureState::Denied:
        found.push_back({Finding::FileDenied, "frame-file-denied", "This account may not read " + path + ".",
                         DeniedRemedy("file")});
        break;
    case PictureState::WrongSize:
        found.push_back({Finding::FileSize, "frame-file-size", path + " has the wrong size.",
                         "Close all applications that use the camera, then start the receiver, which sets the size."});
        break;
    case PictureState::OtherVersion:
        found.push_back({Finding::FileVersion, "frame-file-version",
                         path + " is not a frame file of the version that this program knows.",
                         "Install receiver, camera and this program from the same release, then start the receiver."});
        break;
    case PictureState::Damaged:
        found.push_back({Finding::FileDamaged, "frame-file-damaged", path + " contradicts itself.",
                         "Start the receiver again, which repairs the file. If the problem returns, another program "
                         "writes to the file."});
        break;
    case PictureState::NoFrameYet:
    case PictureState::Stale:
        if (denied) {
            break; // A page that sends video would not help.
        }
        found.push_back({Finding::FileStale, "frame-file-stale",
                         facts.pictureState == PictureState::Stale
                             ? "The newest frame is " + std::to_string(facts.frameAgeMs / 1000) + " seconds old."
                             : "No frame has been written to the frame file yet.",
                         facts.receiverRunning
                             ? "The receiver is running and its page sends no video. Look at the receiver's window."
                             : "Start the receiver with a page that sends video, for example the test picture."});
        break;
    case PictureState::Failed:
        found.push_back({Finding::FileFailed, "frame-file-failed",
                         path + " cannot be opened: error " + std::to_string(facts.frameError) + " of Windows.",
                         "Look up the error with \"net helpmsg " + std::to_string(facts.frameError) + "\"."});
        break;
    case PictureState::Live:
        break;
    }
}

void DiagnoseCameras(const MachineFacts& facts, std::vector<Diagnosis>& found) {
    if (facts.sampleCamera && !facts.sampleCameraExists) {
        found.push_back({Finding::CameraFileMissing, "camera-file-missing",
                         "The sample camera is registered, but there is no file " + Utf8(*facts.sampleCamera) + ".",
                         "Run the receiver's installer again and select \"Sample camera\"."});
    }
    if (!facts.virtualCamera && !facts.sampleCamera) {
        found.push_back({Finding::NoCamera, "camera-missing", "No camera is registered for this account.",
                         "Install the Vistel virtual camera, or run the receiver's installer again and select "
                         "\"Sample camera\"."});
    }
    if (facts.usageEventError != 0 && facts.usageEventError != ERROR_FILE_NOT_FOUND) {
        found.push_back({Finding::UsageEvent, "usage-event",
                         "The event by which a camera reports that it is used cannot be opened: error " +
                             std::to_string(facts.usageEventError) + " of Windows.",
                         "Close the receiver and all applications that use the camera, in all sessions, and start "
                         "the receiver first."});
    }
}

void DiagnoseTheRest(const MachineFacts& facts, std::vector<Diagnosis>& found) {
    if (!facts.runtime) {
        found.push_back({Finding::RuntimeMissing, "runtime-missing", "The receiver finds no WebView2 runtime.",
                         "Install the WebView2 runtime from Microsoft. If a variable WEBVIEW2_... or a policy of "
                         "WebView2 names a folder or channels, correct it."});
    }
    if (!facts.logLines) {
        found.push_back({Finding::LogMissing, "log-missing", "There is no log " + Utf8(facts.logPath) + ".",
                         "Start the receiver once with this account."});
    }
}

std::string EventText(std::uint32_t error) {
    if (error == 0) {
        return "open";
    }
    return error == ERROR_FILE_NOT_FOUND ? "absent" : "error " + std::to_string(error);
}

} // namespace

std::vector<Diagnosis> Diagnose(const MachineFacts& facts) {
    std::vector<Diagnosis> found;
    DiagnoseFrameFile(facts, found);
    DiagnoseCameras(facts, found);
    DiagnoseTheRest(facts, found);
    return found;
}

int ExitCode(const std::vector<Diagnosis>& diagnoses) noexcept {
    unsigned bits = 0;
    for (const Diagnosis& diagnosis : diagnoses) {
        bits |= static_cast<unsigned>(diagnosis.finding);
    }
    return static_cast<int>(bits);
}

std::string ToText(const MachineFacts& facts, const std::vector<Diagnosis>& diagnoses) {
    std::string text;
    for (const Diagnosis& diagnosis : diagnoses) {
        text.append("PROBLEM  ").append(diagnosis.problem).append("\n     DO  ").append(diagnosis.remedy).append("\n");
    }
    if (diagnoses.empty()) {
        text += "Nothing is wrong.\n";
    }
    text.append("\nFrame file:       ").append(Utf8(facts.framePath)).append("\n                  ");
    text.append(vistel::Text(facts.pictureState));
    if (facts.frame.sequence != 0) {
        text += ", " + std::to_string(facts.frame.width) + " x " + std::to_string(facts.frame.height);
    }
    text.append("\nReceiver:         ").append(facts.receiverRunning ? "running" : "not running in this session");
    text.append("\nVirtual camera:   ").append(facts.virtualCamera ? "registered" : "not registered");
    text.append("\nSample camera:    ").append(facts.sampleCamera ? Utf8(*facts.sampleCamera) : "not registered");
    text.append("\nUsage event:      ").append(EventText(facts.usageEventError));
    text.append("\nWebView2 runtime: ");
    if (!facts.runtime) {
        text += "not found";
    } else if (facts.runtime->type == RuntimeType::FixedVersion) {
        text += "set by a variable or a policy: " + Utf8(facts.runtime->versionFolder);
    } else {
        text += Utf8(VersionOf(*facts.runtime)) + ", " + Utf8(facts.runtime->channel) + ": " +
                Utf8(facts.runtime->versionFolder);
    }
    text.append("\nLog:              ").append(Utf8(facts.logPath)).append("\n");
    for (const std::string& line : facts.logLines.value_or(std::vector<std::string>())) {
        text.append("  ").append(Printable(FromLatin1(line))).append("\n");
    }
    return text;
}

std::string ToJson(const MachineFacts& facts, const std::vector<Diagnosis>& diagnoses) {
    std::string json = "{\"findings\":[";
    for (const Diagnosis& diagnosis : diagnoses) {
        json.append(json.back() == '[' ? "" : ",").append("{\"code\":");
        json += std::to_string(static_cast<unsigned>(diagnosis.finding)) + ",\"name\":" + Quoted(diagnosis.name) +
                ",\"problem\":" + Quoted(diagnosis.problem) + ",\"remedy\":" + Quoted(diagnosis.remedy) + '}';
    }
    json += "],\"frameFile\":{\"path\":" + Quoted(Utf8(facts.framePath)) +
            ",\"state\":" + Quoted(vistel::Text(facts.pictureState)) +
            ",\"writable\":" + BoolText(facts.frameFileWritable) + ",\"width\":" + std::to_string(facts.frame.width) +
            ",\"height\":" + std::to_string(facts.frame.height) + ",\"ageMs\":" + std::to_string(facts.frameAgeMs) +
            "},\"receiverRunning\":" + BoolText(facts.receiverRunning) +
            ",\"virtualCamera\":" + BoolText(facts.virtualCamera) + ",\"sampleCamera\":";
    json += facts.sampleCamera ? Quoted(Utf8(*facts.sampleCamera)) : "null";
    json += ",\"usageEvent\":" + Quoted(EventText(facts.usageEventError)) + ",\"runtime\":";
    if (facts.runtime) {
        const bool fixed = facts.runtime->type == RuntimeType::FixedVersion;
        json += "{\"fixed\":" + std::string(BoolText(fixed)) +
                ",\"version\":" + (fixed ? "null" : Quoted(Utf8(VersionOf(*facts.runtime)))) +
                ",\"channel\":" + (fixed ? "null" : Quoted(Utf8(facts.runtime->channel))) +
                ",\"folder\":" + Quoted(Utf8(facts.runtime->versionFolder)) + '}';
    } else {
        json += "null";
    }
    json += ",\"log\":{\"path\":" + Quoted(Utf8(facts.logPath)) + ",\"lines\":[";
    for (const std::string& line : facts.logLines.value_or(std::vector<std::string>())) {
        json.append(json.back() == '[' ? "" : ",").append(Quoted(FromLatin1(line)));
    }
    return json + "]}}\n";
}

} // namespace receiver
