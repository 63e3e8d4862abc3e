// The fixture of the tests that run the receiver's Windows half: private folders, the fake browser, the application
// object, its message loop, its log and its message boxes.
#pragma once

#include "app/receiver_app.h"
#include "frames/frame_file.h"
#include "platform/com_callback.h"
#include "tests/support/function_patch.h"
#include "tests/support/test_files.h"
#include "tests/support/webview2_fakes.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {

// A text with "?" for every character beyond ASCII.
[[nodiscard]] std::string Narrow(std::wstring_view text);

// The handler through which the fake browser completes the environment, as the receiver registers it.
using EnvironmentCallback =
    ComCallback<ReceiverApp, ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler,
                IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler, &ReceiverApp::OnEnvironmentCreated>;

struct MessageBoxCall {
    HWND owner;
    std::wstring text;
    std::wstring caption;
    UINT flags;
};

// Replaces the name of the event, which all processes share, so that tests which run at the same time do not receive
// each other's signals.
struct PrivateEventName {
    static std::wstring Name() { return L"VistelTestEvent-" + std::to_wstring(GetCurrentProcessId()); }

    HANDLE operator()(decltype(&CreateEventW) original, SECURITY_ATTRIBUTES* attributes, BOOL manualReset,
                      BOOL signaled, LPCWSTR name) const {
        return original(attributes, manualReset, signaled, name != nullptr ? Name().c_str() : nullptr);
    }
};

// Reports what the receiver frees to the fakes that handed it out.
struct ReportedTaskFree {
    void operator()(decltype(&CoTaskMemFree) original, void* memory) const {
        BrowserFakes::Current().OnTaskMemoryFreed(memory);
        original(memory);
    }
};

// A frame message that is published with any content of the slot.
inline constexpr wchar_t GoodFrame[] = L"frame:0:NV12:1280:720:0:0:0:1280:720:0,1280;921600,1280";

class ShellTest : public testing::Test {
protected:
    ShellTest();
    ~ShellTest() override;
    // Ends the receiver and checks that it released everything.
    void TearDown() override;

    // ReceiverApp::Run. `inLoop` is called once from its message loop; unless it ends the loop, the window is closed
    // after it.
    int Run(std::wstring address, std::function<void()> newInLoop = {});
    // The same for any call that runs the receiver's message loop.
    int RunLoopOf(const std::function<int()>& program, std::function<void()> newInLoop);
    // Runs `body` in the message loop of a receiver with an open browser. Records and log are empty then.
    void InLoop(const std::function<void()>& body);
    // Empties the records and the log.
    void Forget();
    // Everything that happened since the last call or Forget(), in one sequence: "log" and a line, "box" and a text,
    // "browser" and what the fake browser recorded. Empties the log.
    [[nodiscard]] std::vector<std::string> TakeEvents();
    // Adds an event to that sequence, after the lines that have been logged by now.
    void NoteEvent(std::string event);
    // Adds these lines. Between two calls the order of lines in different files is unknown.
    void NoteLogLines();
    // Destroys the window and the application object.
    void EndReceiver();
    // Opens the browser without a window, up to the point where the page can post its first message.
    void OpenBrowser();
    // The receiver's main window; null when there is none.
    [[nodiscard]] static HWND MainWindow();

    // The header of the shared frame file; all zeros while there is no file of the right size.
    [[nodiscard]] FrameFileHeader FrameHeader() const;
    // The lines of the log, without their times.
    [[nodiscard]] std::vector<std::string> LogLines() const { return LinesOf(log); }
    [[nodiscard]] static std::vector<std::string> LinesOf(const std::filesystem::path& file) {
        return LinesIn(ReadBytes(file));
    }
    [[nodiscard]] static std::vector<std::string> LinesIn(const std::string& bytes);
    // The log lines of a start up to the accepted environment request, followed by `more`.
    [[nodiscard]] static std::vector<std::string> StartLines(const std::vector<std::string>& more = {});

    const PrivateFolder folder;
    const std::filesystem::path programData = folder.Path() / L"ProgramData";
    const std::filesystem::path localAppData = folder.Path() / L"LocalAppData";
    const std::filesystem::path temp = folder.Path() / L"Temp";
    const std::filesystem::path log = temp / L"vistel-receiver.log";
    BrowserFakes browser;
    std::optional<ReceiverApp> app;
    std::vector<MessageBoxCall> boxes;
    std::vector<std::filesystem::path> logFiles{log}; // from which TakeEvents reads

private:
    static int WINAPI RecordMessageBox(HWND owner, LPCWSTR text, LPCWSTR caption, UINT flags);
    static LRESULT CALLBACK LoopHookProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    void RunInLoop() noexcept;

    static inline ShellTest* current = nullptr;

    VariableScope programDataVariable{L"ProgramData", programData.c_str()};
    VariableScope localAppDataVariable{L"LOCALAPPDATA", localAppData.c_str()};
    VariableScope tempVariable{L"TMP", temp.c_str()};
    ImportRedirection messageBoxes{"user32.dll", "MessageBoxW", reinterpret_cast<void*>(&RecordMessageBox)};
    ImportPatch<HANDLE(SECURITY_ATTRIBUTES*, BOOL, BOOL, LPCWSTR), PrivateEventName> eventNames{"kernel32.dll",
                                                                                                "CreateEventW",
                                                                                                &CreateEventW,
                                                                                                {}};
    ImportPatch<void(void*), ReportedTaskFree> taskFrees{"ole32.dll", "CoTaskMemFree", &CoTaskMemFree, {}};
    HWND loopHook = nullptr; // Any message loop of this thread dispatches its messages.
    std::function<void()> inLoop;
    std::vector<std::string> events;
    std::map<std::filesystem::path, std::size_t> readBytes; // of each log file
};

} // namespace receiver
