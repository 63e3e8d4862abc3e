// camera_probe --doctor: every fault is staged on real files, registry keys and events.
#include "tools/camera_probe/doctor.h"

#include "frames/shared_frame_file.h"
#include "platform/handles.h"
#include "tests/frames/frame_file_process.h"
#include "tests/frames/shared_frame_file_pattern.h"
#include "tests/support/function_patch.h"
#include "tests/support/test_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <sddl.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using namespace std::chrono_literals;

constexpr wchar_t VirtualCameraKey[] =
    L"SOFTWARE\\Classes\\CLSID\\{A42D576C-2AD1-4D63-94B0-31E96BDCA54F}\\InprocServer32";
constexpr wchar_t SampleCameraKey[] =
    L"Software\\Classes\\CLSID\\{C132191D-7DC1-4EB6-8914-B912B15C22B0}\\InprocServer32";
constexpr wchar_t BetaKey[] = L"Software\\Microsoft\\EdgeUpdate\\ClientState\\{2CD8A007-E189-409D-A2C8-9AF4EF3C72AA}";

// A machine on which all is well: the tests spoil one thing each.
class Doctor : public testing::Test {
protected:
    Doctor() {
        for (const auto& [root, name] : {std::pair{HKEY_LOCAL_MACHINE, L"\\machine"}, {HKEY_CURRENT_USER, L"\\user"}}) {
            RegistryKey key;
            EXPECT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, (registry + name).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                                      nullptr, key.Put(), nullptr),
                      ERROR_SUCCESS);
            keys.push_back(std::move(key));
        }
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, keys[0].Get());
        RegOverridePredefKey(HKEY_CURRENT_USER, keys[1].Get());
        SetText(HKEY_LOCAL_MACHINE, VirtualCameraKey, nullptr, L"C:\\camera.dll");
        create_directories(library.parent_path());
        WriteBytes(library, "library");
        SetText(HKEY_LOCAL_MACHINE, BetaKey, L"EBWebView", versionFolder.c_str(), KEY_WOW64_32KEY);
        WriteBytes(log, "Vistel receiver log\r\n14:03:07  Receiver starting\r\n");
        EXPECT_EQ(PublishPattern(file, 3), S_OK);
    }
    ~Doctor() override {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
        RegDeleteTreeW(HKEY_CURRENT_USER, registry.c_str());
    }

    // Without a name: the key's default value.
    static void SetText(HKEY root, const wchar_t* path, const wchar_t* name, const wchar_t* text, REGSAM view = 0) {
        RegistryKey key;
        EXPECT_EQ(RegCreateKeyExW(root, path, 0, nullptr, 0, KEY_ALL_ACCESS | view, nullptr, key.Put(), nullptr),
                  ERROR_SUCCESS);
        const auto size = static_cast<DWORD>((std::wstring_view(text).size() + 1) * sizeof(wchar_t));
        EXPECT_EQ(RegSetValueExW(key.Get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text), size), ERROR_SUCCESS);
    }

    // Closed, so that its content can be changed.
    void ChangeFile(std::size_t offset, std::string_view bytes) {
        file.CloseSharedFrameFile();
        std::string content = ReadBytes(framePath);
        content.replace(offset, bytes.size(), bytes);
        WriteBytes(framePath, content);
    }

    void MakeFrameOld() {
        const std::uint64_t old = GetTickCount64() - 3000;
        ChangeFile(40, {reinterpret_cast<const char*>(&old), sizeof(old)});
    }

    [[nodiscard]] MachineFacts Examine() const { return ExamineMachine(eventName); }
    // The names of all findings.
    [[nodiscard]] std::vector<std::string> Findings() const {
        std::vector<std::string> names;
        for (const Diagnosis& diagnosis : Diagnose(Examine())) {
            names.emplace_back(diagnosis.name);
        }
        return names;
    }
    void ExpectOnly(const char* name, int code) const {
        const std::vector<Diagnosis> found = Diagnose(Examine());
        ASSERT_EQ(found.size(), 1U);
        EXPECT_STREQ(found[0].name, name);
        EXPECT_EQ(ExitCode(found), code);
        EXPECT_FALSE(found[0].problem.empty() || found[0].remedy.empty());
    }

    const PrivateFolder folder;
    const std::wstring registry = L"Software\\VistelDoctorTest-" + std::to_wstring(GetCurrentProcessId());
    const std::wstring eventName = L"Local\\doctor-test-" + std::to_wstring(GetCurrentProcessId());
    const std::filesystem::path framePath = folder.Path() / L"Vistel" / L"frame-buffer.bin";
    const std::filesystem::path versionFolder = folder.Path() / L"runtime" / L"150.0.1.2";
    const std::filesystem::path library = versionFolder / L"EBWebView" / L"x64" / L"EmbeddedBrowserWebView.dll";
    const std::filesystem::path log = folder.Path() / L"vistel-receiver.log";
    SharedFrameFile file;

private:
    const VariableScope programData{L"ProgramData", folder.Path().c_str()};
    const VariableScope temporary{L"TMP", folder.Path().c_str()};
    const VariableScope fixedFolder{L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", nullptr};
    const VariableScope channels{L"WEBVIEW2_RELEASE_CHANNELS", nullptr};
    std::vector<RegistryKey> keys;
};

TEST_F(Doctor, FindsNothingWhenAllIsWell) {
    EXPECT_THAT(Findings(), testing::IsEmpty());
    const MachineFacts facts = Examine();
    EXPECT_EQ(ExitCode(Diagnose(facts)), 0);
    EXPECT_EQ(facts.frame.width, 1920U);
    const std::string text = ToText(facts, {});
    EXPECT_THAT(text, StartsWith("Nothing is wrong.\n"));
    EXPECT_THAT(text, HasSubstr("150.0.1.2, beta"));
    EXPECT_THAT(text, HasSubstr("\n  14:03:07  Receiver starting\n"));
}

TEST_F(Doctor, FindsAMissingFrameFile) {
    file.CloseSharedFrameFile();
    std::filesystem::remove(framePath);
    ExpectOnly("frame-file-missing", 4);
}

TEST_F(Doctor, FindsAFrameFileThatMayNotBeRead) {
    file.CloseSharedFrameFile();
    std::filesystem::remove(framePath);
    std::filesystem::create_directory(framePath); // Windows denies access to a folder as to a forbidden file.
    ExpectOnly("frame-file-denied", 8);
}

// What a second account gets when the first one has created the file.
TEST_F(Doctor, FindsAFrameFileThatMayBeReadAndNotWritten) {
    const ImportPatch files("kernel32.dll", "CreateFileW", &CreateFileW,
                            [&](auto* original, LPCWSTR path, DWORD access, auto... arguments) {
                                if (path == framePath.wstring() && (access & GENERIC_WRITE) != 0) {
                                    SetLastError(ERROR_ACCESS_DENIED);
                                    return INVALID_HANDLE_VALUE;
                                }
                                return original(path, access, arguments...);
                            });
    ExpectOnly("frame-file-denied", 8);
    EXPECT_THAT(Diagnose(Examine())[0].problem, HasSubstr("may not write"));
    EXPECT_THAT(Diagnose(Examine())[0].remedy, HasSubstr("all interactive users"));
    // No frame of this account reaches the file, regardless of what its page sends.
    MakeFrameOld();
    ExpectOnly("frame-file-denied", 8);
    std::filesystem::remove(framePath);
    WriteBytes(framePath, std::string(vistel::FileSize, '\0'));
    ExpectOnly("frame-file-denied", 8);
}

TEST_F(Doctor, FindsAFolderInWhichNoFrameFileMayBeCreated) {
    file.CloseSharedFrameFile();
    std::filesystem::remove(framePath);
    const ImportPatch files("kernel32.dll", "CreateFileW", &CreateFileW,
                            [&](auto* original, LPCWSTR path, DWORD access, auto... arguments) {
                                if (path == framePath.parent_path().wstring() && access == FILE_ADD_FILE) {
                                    SetLastError(ERROR_ACCESS_DENIED);
                                    return INVALID_HANDLE_VALUE;
                                }
                                return original(path, access, arguments...);
                            });
    EXPECT_THAT(Findings(), testing::ElementsAre("frame-file-denied", "frame-file-missing"));
    EXPECT_THAT(Diagnose(Examine())[0].problem, HasSubstr("may not create"));
    EXPECT_EQ(ExitCode(Diagnose(Examine())), 4 + 8);
}

TEST_F(Doctor, FindsAFrameFileOfAWrongSize) {
    file.CloseSharedFrameFile();
    WriteBytes(framePath, "short");
    ExpectOnly("frame-file-size", 16);
}

TEST_F(Doctor, FindsAFrameFileOfAnotherVersion) {
    ChangeFile(4, std::string_view("\3", 1));
    ExpectOnly("frame-file-version", 32);
}

TEST_F(Doctor, FindsADamagedFrameFile) {
    ChangeFile(8, std::string_view("\1", 1)); // of the width
    ExpectOnly("frame-file-damaged", 64);
}

TEST_F(Doctor, FindsAStaleFrameAndAFileWithoutFrames) {
    MakeFrameOld();
    ExpectOnly("frame-file-stale", 128);
    EXPECT_THAT(Diagnose(Examine())[0].problem, HasSubstr("seconds old"));
    std::filesystem::remove(framePath);
    ASSERT_EQ(file.OpenSharedFrameFile(), S_OK);
    ExpectOnly("frame-file-stale", 128);
    EXPECT_THAT(Diagnose(Examine())[0].problem, HasSubstr("No frame"));
}

TEST_F(Doctor, FindsAFrameFileThatCannotBeOpened) {
    file.CloseSharedFrameFile();
    const UniqueFile exclusive(CreateFileW(framePath.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ExpectOnly("frame-file-failed", 256);
    EXPECT_THAT(Diagnose(Examine())[0].problem, HasSubstr("error 32 of Windows"));
}

TEST_F(Doctor, FindsThatNoCameraIsRegistered) {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, VirtualCameraKey);
    RegDeleteKeyExW(HKEY_LOCAL_MACHINE, VirtualCameraKey, KEY_WOW64_64KEY, 0);
    ExpectOnly("camera-missing", 512);
    SetText(HKEY_CURRENT_USER, SampleCameraKey, nullptr, log.c_str()); // a file that exists
    EXPECT_THAT(Findings(), testing::IsEmpty());
}

TEST_F(Doctor, FindsThatTheFileOfTheSampleCameraIsMissing) {
    SetText(HKEY_LOCAL_MACHINE, SampleCameraKey, nullptr, (folder.Path() / L"missing.dll").c_str());
    ExpectOnly("camera-file-missing", 1024);
}

TEST_F(Doctor, FindsAUsageEventThatCannotBeOpened) {
    EXPECT_EQ(Examine().usageEventError, DWORD{ERROR_FILE_NOT_FOUND});
    {
        const UniqueHandle event(CreateEventW(nullptr, FALSE, FALSE, eventName.c_str()));
        EXPECT_EQ(Examine().usageEventError, DWORD{ERROR_SUCCESS});
        EXPECT_EQ(WaitForSingleObject(event.Get(), 0), DWORD{WAIT_TIMEOUT}) << "the doctor is no use of the camera";
    }
    const UniqueHandle mutex(CreateMutexW(nullptr, FALSE, eventName.c_str()));
    ExpectOnly("usage-event", 2048);
}

TEST_F(Doctor, FindsThatTheRuntimeIsMissing) {
    std::filesystem::remove(library);
    ExpectOnly("runtime-missing", 4096);
    const VariableScope executableFolder(L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", versionFolder.c_str());
    ExpectOnly("runtime-missing", 4096);
    WriteBytes(library, "library");
    EXPECT_THAT(Findings(), testing::IsEmpty());
    EXPECT_THAT(ToText(Examine(), {}), HasSubstr("set by a variable or a policy: "));
}

TEST_F(Doctor, HeedsThePoliciesForTheReceiver) {
    constexpr wchar_t Policy[] = L"Software\\Policies\\Microsoft\\Edge\\WebView2\\ReleaseChannels";
    SetText(HKEY_LOCAL_MACHINE, Policy, L"vistel-receiver.exe", L"0", KEY_WOW64_32KEY); // stable only
    ExpectOnly("runtime-missing", 4096);
}

TEST_F(Doctor, FindsThatThereIsNoLog) {
    std::filesystem::remove(log);
    ExpectOnly("log-missing", 8192);
}

TEST_F(Doctor, ShowsTheEndOfALongLog) {
    std::string text;
    for (int i = 0; i < 10000; ++i) {
        text += "line " + std::to_string(i) + "\r\n";
    }
    WriteBytes(log, text);
    const MachineFacts facts = Examine();
    ASSERT_EQ(facts.logLines->size(), 12U);
    EXPECT_EQ(facts.logLines->front(), "line 9988");
    EXPECT_EQ(facts.logLines->back(), "line 9999");
}

TEST_F(Doctor, WritesOneObjectOfJson) {
    WriteBytes(log, "a \"quote\", a \\, \x1b, \xe4\n");
    std::filesystem::remove(library);
    const MachineFacts facts = Examine();
    const std::string json = ToJson(facts, Diagnose(facts));
    EXPECT_THAT(json, StartsWith("{\"findings\":[{\"code\":4096,\"name\":\"runtime-missing\",\"problem\":\"The "));
    EXPECT_THAT(json, HasSubstr("],\"frameFile\":{\"path\":\""));
    EXPECT_THAT(json, HasSubstr(",\"width\":1920,\"height\":1080,"));
    EXPECT_THAT(json,
                HasSubstr("\"virtualCamera\":true,\"sampleCamera\":null,\"usageEvent\":\"absent\",\"runtime\":null"));
    EXPECT_THAT(json, testing::EndsWith("\"lines\":[\"a \\\"quote\\\", a \\\\, \\u001b, \xc3\xa4\"]}}\n"));
    EXPECT_THAT(ToText(facts, {}), HasSubstr("a \"quote\", a \\, ?, \xc3\xa4\n"));
}

// The program looks at the real registry and event, which other tests change: only what is certain is compared.
TEST_F(Doctor, TheProgramPrintsTheReportAndReturnsTheFindings) {
    file.CloseSharedFrameFile();
    WriteBytes(framePath, "short");
    std::filesystem::remove(log);
    for (const wchar_t* const arguments : {L"--doctor", L"--doctor --json"}) {
        const ChildProcess probe(BuiltProgram(VISTEL_CAMERA_PROBE), arguments, folder.Path() / L"output.txt");
        const DWORD code = probe.WaitForExit(60s).value_or(0);
        EXPECT_EQ(code & (4 + 8 + 16 + 32 + 64 + 128 + 256 + 8192), 16U + 8192U) << probe.Output();
        const bool isJson = std::wstring_view(arguments) != L"--doctor";
        EXPECT_THAT(probe.Output(),
                    isJson ? HasSubstr("\"name\":\"frame-file-size\"") : HasSubstr("has the wrong size"));
    }
    const ChildProcess probe(BuiltProgram(VISTEL_CAMERA_PROBE), L"--doctor --other", folder.Path() / L"output.txt");
    EXPECT_EQ(probe.WaitForExit(60s), 2U);
    EXPECT_THAT(probe.Output(), HasSubstr("--doctor [--json]"));
}

} // namespace
} // namespace receiver
