#include "tests/support/shell_test.h"

#include "tests/support/report_failure.h"

#include <exception>
#include <fstream>
#include <iterator>
#include <regex>
#include <string_view>
#include <system_error>
#include <utility>

namespace receiver {
namespace {

constexpr wchar_t LoopHookClass[] = L"VistelTestLoopHook";
constexpr wchar_t MainWindowClass[] = L"VistelReceiverWindow";
constexpr UINT RunInLoopMessage = WM_APP;

} // namespace

std::string Narrow(std::wstring_view text) {
    std::string narrow;
    for (const wchar_t character : text) {
        narrow += character < 128 ? static_cast<char>(character) : '?';
    }
    return narrow;
}

void ReportFailure(const std::wstring& what) { ADD_FAILURE() << testing::PrintToString(what); }

ShellTest::ShellTest() : app(std::in_place) {
    current = this;
    browser.onRecord = [this](const std::wstring& call) { NoteEvent("browser " + Narrow(call)); };
    for (const auto& path : {programData, localAppData, temp}) {
        std::filesystem::create_directory(path);
    }
    WNDCLASSW hookClass{};
    hookClass.lpfnWndProc = LoopHookProc;
    hookClass.hInstance = GetModuleHandleW(nullptr);
    hookClass.lpszClassName = LoopHookClass;
    RegisterClassW(&hookClass); // Fails from the second test of a process on, when it exists already.
    loopHook =
        CreateWindowExW(0, LoopHookClass, nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, hookClass.hInstance, nullptr);
}

ShellTest::~ShellTest() {
    DestroyWindow(loopHook);
    current = nullptr;
}

void ShellTest::TearDown() {
    EndReceiver();
    EXPECT_THAT(browser.Leaks(), testing::IsEmpty());
}

int ShellTest::Run(std::wstring address, std::function<void()> newInLoop) {
    return RunLoopOf([&] { return app->Run(GetModuleHandleW(nullptr), SW_SHOWNORMAL, std::move(address)); },
                     std::move(newInLoop));
}

int ShellTest::RunLoopOf(const std::function<int()>& program, std::function<void()> newInLoop) {
    inLoop = std::move(newInLoop);
    PostMessageW(loopHook, RunInLoopMessage, 0, 0);
    const int result = program();
    MSG unseen{};
    // If the loop was never reached, the message is still there.
    PeekMessageW(&unseen, loopHook, RunInLoopMessage, RunInLoopMessage, PM_REMOVE);
    inLoop = nullptr;
    return result;
}

void ShellTest::InLoop(const std::function<void()>& body) {
    bool reached = false;
    EXPECT_EQ(Run(L"",
                  [&] {
                      browser.CompleteBoth();
                      Forget();
                      body();
                      reached = true;
                  }),
              0);
    EXPECT_TRUE(reached);
}

void ShellTest::Forget() {
    (void)browser.TakeCalls();
    (void)TakeEvents();
}

std::vector<std::string> ShellTest::TakeEvents() {
    NoteLogLines();
    for (const auto& file : logFiles) {
        std::filesystem::remove(file);
    }
    readBytes.clear();
    return std::exchange(events, {});
}

void ShellTest::NoteEvent(std::string event) {
    NoteLogLines();
    events.push_back(std::move(event));
}

void ShellTest::NoteLogLines() {
    for (const auto& file : logFiles) {
        const std::string bytes = ReadBytes(file);
        std::size_t& read = readBytes[file];
        read = bytes.size() < read ? 0 : read; // The log was reset or removed.
        for (const std::string& line : LinesIn(bytes.substr(read))) {
            events.push_back("log " + line);
        }
        read = bytes.size();
    }
}

LRESULT CALLBACK ShellTest::LoopHookProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message != RunInLoopMessage) {
        return DefWindowProcW(window, message, wParam, lParam);
    }
    current->RunInLoop();
    return 0;
}

void ShellTest::RunInLoop() noexcept {
    const AllocationPause pause;
    try {
        if (inLoop) {
            inLoop();
        }
    } catch (const std::exception& error) {
        ADD_FAILURE() << "in the message loop: " << error.what();
    }
    MSG quit{};
    if (PeekMessageW(&quit, nullptr, WM_QUIT, WM_QUIT, PM_NOREMOVE) == 0) {
        PostMessageW(MainWindow(), WM_CLOSE, 0, 0);
    }
}

void ShellTest::EndReceiver() {
    if (const HWND window = MainWindow()) {
        if (!app) {
            SetWindowLongPtrW(window, GWLP_USERDATA, 0); // The window's application object no longer exists.
        }
        DestroyWindow(window);
        MSG message{};
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != 0) { // WM_QUIT too.
        }
    }
    app.reset();
    UnregisterClassW(MainWindowClass, GetModuleHandleW(nullptr));
}

void ShellTest::OpenBrowser() {
    const auto handler = MakeCallback<EnvironmentCallback>(*app);
    ASSERT_EQ(browser.RequestEnvironment(nullptr, nullptr, nullptr, handler.Get()), S_OK);
    browser.CompleteBoth();
    (void)browser.TakeCalls();
}

HWND ShellTest::MainWindow() {
    HWND found = nullptr;
    EnumThreadWindows(
        GetCurrentThreadId(),
        [](HWND window, LPARAM result) -> BOOL {
            wchar_t name[std::size(MainWindowClass) + 1] = L"";
            GetClassNameW(window, name, static_cast<int>(std::size(name)));
            if (std::wstring_view(name) != MainWindowClass) {
                return TRUE;
            }
            *reinterpret_cast<HWND*>(result) = window;
            return FALSE;
        },
        reinterpret_cast<LPARAM>(&found));
    return found;
}

FrameFileHeader ShellTest::FrameHeader() const {
    const auto path = programData / L"Vistel" / L"frame-buffer.bin";
    FrameFileHeader header{};
    std::error_code missing;
    if (std::filesystem::file_size(path, missing) == sizeof(FrameFileLayout)) {
        std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(&header), sizeof(header));
    }
    return header;
}

std::vector<std::string> ShellTest::LinesIn(const std::string& bytes) {
    static const std::regex entry(R"(\d\d:\d\d:\d\d  (.*))");
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin < bytes.size();) {
        const std::size_t end = bytes.find("\r\n", begin);
        if (end == std::string::npos) {
            ADD_FAILURE() << "the log's last line has no end";
            break;
        }
        const std::string line = bytes.substr(begin, end - begin);
        std::smatch text;
        lines.push_back(std::regex_match(line, text, entry) ? text[1].str() : line);
        begin = end + 2;
    }
    return lines;
}

std::vector<std::string> ShellTest::StartLines(const std::vector<std::string>& more) {
    std::vector<std::string> lines{"Vistel receiver log", "Receiver starting",
                                   "Virtual camera usage monitor initialized", "WebView2 environment request accepted"};
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

int WINAPI ShellTest::RecordMessageBox(HWND owner, LPCWSTR text, LPCWSTR caption, UINT flags) {
    const AllocationPause pause;
    current->NoteEvent("box " + Narrow(text));
    current->boxes.push_back({owner, text, caption, flags});
    return IDOK;
}

} // namespace receiver
