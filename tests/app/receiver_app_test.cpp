// ReceiverApp::Run with a real window and a real message loop, and the fatal-error box.
#include "tests/support/shell_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

namespace receiver {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;

constexpr wchar_t Address[] = L"https://page.example/";
constexpr HRESULT AccessDenied = static_cast<HRESULT>(0x80070005);

class ReceiverAppTest : public ShellTest {
protected:
    // Expects a start that fails before the message loop, with this log line after those of every start.
    void ExpectFatal(const std::string& logged, const std::wstring& shown) {
        bool loopReached = false;
        EXPECT_EQ(Run(Address, [&loopReached] { loopReached = true; }), 1);
        EXPECT_FALSE(loopReached);
        auto lines = StartLines();
        lines.back() = logged;
        EXPECT_THAT(LogLines(), ElementsAreArray(lines));
        ASSERT_EQ(boxes.size(), 1U);
        EXPECT_EQ(boxes[0].text, shown);
        EXPECT_EQ(boxes[0].caption, L"Vistel");
        EXPECT_EQ(boxes[0].flags, 0x10U);
        EXPECT_EQ(boxes[0].owner, MainWindow());
        EXPECT_TRUE(IsWindowVisible(MainWindow()));
    }
};

TEST_F(ReceiverAppTest, RegistersItsWindowClass) {
    const HICON icon = LoadIconW(nullptr, IDI_APPLICATION);
    std::vector<std::pair<HINSTANCE, LPCWSTR>> iconsLoaded;
    const ImportPatch icons("user32.dll", "LoadIconW", &LoadIconW, [&](auto*, HINSTANCE module, LPCWSTR name) {
        iconsLoaded.emplace_back(module, name);
        return icon;
    });
    std::vector<WNDCLASSEXW> classes;
    const ImportPatch registrations("user32.dll", "RegisterClassExW", &RegisterClassExW,
                                    [&](auto* original, const WNDCLASSEXW* windowClass) {
                                        classes.push_back(*windowClass);
                                        EXPECT_STREQ(windowClass->lpszClassName, L"VistelReceiverWindow");
                                        return original(windowClass);
                                    });
    EXPECT_EQ(Run(Address), 0);
    const HINSTANCE module = GetModuleHandleW(nullptr);
    EXPECT_THAT(iconsLoaded, testing::Each(Pair(module, MAKEINTRESOURCEW(101))));
    ASSERT_EQ(classes.size(), 1U);
    const WNDCLASSEXW& registered = classes[0];
    EXPECT_EQ(registered.cbSize, sizeof(WNDCLASSEXW));
    EXPECT_EQ(registered.style, 0U);
    EXPECT_EQ(registered.lpfnWndProc, &ReceiverApp::WindowProc);
    EXPECT_EQ(registered.cbClsExtra, 0);
    EXPECT_EQ(registered.cbWndExtra, 0);
    EXPECT_EQ(registered.hInstance, module);
    EXPECT_EQ(registered.hIcon, icon);
    EXPECT_EQ(registered.hIconSm, icon);
    EXPECT_EQ(registered.hCursor, LoadCursorW(nullptr, IDC_ARROW));
    EXPECT_EQ(reinterpret_cast<INT_PTR>(registered.hbrBackground), COLOR_WINDOW + 1);
    EXPECT_EQ(registered.lpszMenuName, nullptr);
}

TEST_F(ReceiverAppTest, CreatesItsWindow) {
    std::vector<CREATESTRUCTW> windows;
    const ImportPatch creations("user32.dll", "CreateWindowExW", &CreateWindowExW,
                                [&](auto* original, DWORD extendedStyle, LPCWSTR className, LPCWSTR title, DWORD style,
                                    int x, int y, int width, int height, HWND parent, HMENU menu, HINSTANCE module,
                                    LPVOID parameter) {
                                    windows.push_back({parameter, module, menu, parent, height, width, y, x,
                                                       static_cast<LONG>(style), nullptr, nullptr, extendedStyle});
                                    EXPECT_STREQ(className, L"VistelReceiverWindow");
                                    EXPECT_STREQ(title, L"Vistel");
                                    return original(extendedStyle, className, title, style, x, y, width, height, parent,
                                                    menu, module, parameter);
                                });
    EXPECT_EQ(Run(Address,
                  [] {
                      wchar_t title[16] = L"";
                      GetWindowTextW(MainWindow(), title, 16);
                      EXPECT_STREQ(title, L"Vistel");
                      EXPECT_EQ(GetWindowLongW(MainWindow(), GWL_STYLE) & WS_OVERLAPPEDWINDOW, WS_OVERLAPPEDWINDOW);
                      RECT outer{};
                      GetWindowRect(MainWindow(), &outer);
                      EXPECT_EQ(outer.right - outer.left, 760);
                      EXPECT_EQ(outer.bottom - outer.top, 520);
                      EXPECT_TRUE(IsWindowVisible(MainWindow()));
                  }),
              0);
    ASSERT_EQ(windows.size(), 1U);
    const CREATESTRUCTW& created = windows[0];
    EXPECT_EQ(created.dwExStyle, 0U);
    EXPECT_EQ(created.style, 0x00CF0000);
    EXPECT_EQ(created.x, CW_USEDEFAULT);
    EXPECT_EQ(created.y, CW_USEDEFAULT);
    EXPECT_EQ(created.cx, 760);
    EXPECT_EQ(created.cy, 520);
    EXPECT_EQ(created.hwndParent, nullptr);
    EXPECT_EQ(created.hMenu, nullptr);
    EXPECT_EQ(created.hInstance, GetModuleHandleW(nullptr));
    EXPECT_EQ(created.lpCreateParams, &*app);
}

TEST_F(ReceiverAppTest, ShowsTheWindowWithTheGivenCommand) {
    std::vector<int> commands;
    const ImportPatch shows("user32.dll", "ShowWindow", &ShowWindow, [&](auto* original, HWND window, int command) {
        commands.push_back(command);
        return original(window, command);
    });
    RunLoopOf([this] { return app->Run(GetModuleHandleW(nullptr), SW_SHOWMAXIMIZED, L""); }, {});
    EXPECT_THAT(commands, ElementsAre(SW_SHOWMAXIMIZED));
}

TEST_F(ReceiverAppTest, ClosingTheWindowEndsTheProgram) {
    std::vector<std::pair<HWND, UINT_PTR>> killed;
    const ImportPatch timers("user32.dll", "KillTimer", &KillTimer, [&](auto* original, HWND window, UINT_PTR timer) {
        killed.emplace_back(window, timer);
        return original(window, timer);
    });
    HWND window = nullptr;
    EXPECT_EQ(Run(Address, [&window] { window = MainWindow(); }), 0);
    EXPECT_THAT(killed, ElementsAre(Pair(window, UINT_PTR{1})));
    EXPECT_FALSE(IsWindow(window));
}

TEST_F(ReceiverAppTest, ReturnsTheQuitCode) {
    EXPECT_EQ(Run(Address, [] { PostQuitMessage(7); }), 7);
}

TEST_F(ReceiverAppTest, TheBrowserFillsTheWindowWheneverItsSizeChanges) {
    Run(Address, [this] {
        const HWND window = MainWindow();
        SetWindowPos(window, nullptr, 0, 0, 700, 500, SWP_NOMOVE | SWP_NOZORDER); // There is no browser to fit yet.
        browser.CompleteBoth();
        (void)browser.TakeCalls();
        for (const SIZE size : {SIZE{800, 600}, SIZE{333, 222}}) {
            SetWindowPos(window, nullptr, 0, 0, size.cx, size.cy, SWP_NOMOVE | SWP_NOZORDER);
            RECT client{};
            GetClientRect(window, &client);
            EXPECT_LT(client.right, size.cx);
            EXPECT_EQ(browser.TakeCalls().back(),
                      L"put_Bounds 0 0 " + std::to_wstring(client.right) + L' ' + std::to_wstring(client.bottom));
        }
        EXPECT_EQ(SendMessageW(window, WM_SIZE, SIZE_RESTORED, 0), 0);
        EXPECT_EQ(browser.TakeCalls().size(), 1U);
    });
}

TEST_F(ReceiverAppTest, EveryOtherTimerGetsTheDefaultHandling) {
    std::vector<std::pair<UINT, WPARAM>> defaulted;
    const ImportPatch defaults("user32.dll", "DefWindowProcW", &DefWindowProcW,
                               [&](auto* original, HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
                                   defaulted.emplace_back(message, wParam);
                                   return original(window, message, wParam, lParam);
                               });
    Run(Address, [&] {
        defaulted.clear();
        EXPECT_EQ(SendMessageW(MainWindow(), WM_TIMER, 1, 0), 0);
        EXPECT_THAT(defaulted, IsEmpty());
        SendMessageW(MainWindow(), WM_TIMER, 2, 0);
        SendMessageW(MainWindow(), WM_TIMER, 0, 0);
        EXPECT_THAT(defaulted, ElementsAre(Pair(WM_TIMER, 2), Pair(WM_TIMER, 0)));
    });
    EXPECT_THAT(defaulted, Contains(Pair(WM_CLOSE, 0)));
    EXPECT_THAT(defaulted, Not(Contains(Pair(WM_DESTROY, 0))));
}

TEST_F(ReceiverAppTest, MessagesBeforeTheObjectIsStoredGetTheDefaultHandling) {
    const HWND window = CreateWindowExW(0, L"STATIC", nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
    EXPECT_EQ(ReceiverApp::WindowProc(window, WM_SIZE, 0, 0), DefWindowProcW(window, WM_SIZE, 0, 0));
    EXPECT_EQ(ReceiverApp::WindowProc(window, WM_DESTROY, 0, 0), 0);
    MSG message{};
    EXPECT_FALSE(PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
    DestroyWindow(window);
}

TEST_F(ReceiverAppTest, ExitsSilentlyWhenTheWindowClassCannotBeRegistered) {
    const ImportPatch registrations("user32.dll", "RegisterClassExW", &RegisterClassExW,
                                    [](auto*, const WNDCLASSEXW*) { return ATOM{0}; });
    EXPECT_EQ(Run(Address), 1);
    EXPECT_THAT(LogLines(), ElementsAre("Vistel receiver log", "Receiver starting"));
    EXPECT_THAT(boxes, IsEmpty());
    EXPECT_THAT(browser.TakeCalls(), IsEmpty());
}

TEST_F(ReceiverAppTest, ExitsSilentlyWhenTheWindowCannotBeCreated) {
    const ImportPatch creations("user32.dll", "CreateWindowExW", &CreateWindowExW,
                                [](auto*, DWORD, LPCWSTR, LPCWSTR, DWORD, int, int, int, int, HWND, HMENU, HINSTANCE,
                                   LPVOID) { return HWND{}; });
    EXPECT_EQ(Run(Address), 1);
    EXPECT_THAT(LogLines(), ElementsAre("Vistel receiver log", "Receiver starting"));
    EXPECT_THAT(boxes, IsEmpty());
    EXPECT_THAT(browser.TakeCalls(), IsEmpty());
}

TEST_F(ReceiverAppTest, ALocalAppDataThatIsNotSetIsFatal) {
    const VariableScope unset(L"LOCALAPPDATA", nullptr);
    ExpectFatal("LOCALAPPDATA is unavailable. (HRESULT 0x800700CB)",
                L"LOCALAPPDATA is unavailable.\n\nHRESULT: 0x800700CB");
    EXPECT_THAT(browser.TakeCalls(), IsEmpty());
}

TEST_F(ReceiverAppTest, AcceptsLocalAppDataOfUpTo259Characters) {
    const VariableScope longest(L"LOCALAPPDATA", (L"C:\\" + std::wstring(256, L'x')).c_str());
    EXPECT_EQ(Run(Address), 1);
    EXPECT_THAT(LogLines().back(), testing::StartsWith("Unable to create the WebView2 user-data folder. (HRESULT"));
}

TEST_F(ReceiverAppTest, RefusesLocalAppDataOf260Characters) {
    const VariableScope tooLong(L"LOCALAPPDATA", (L"C:\\" + std::wstring(257, L'x')).c_str());
    EXPECT_EQ(Run(Address), 1);
    EXPECT_THAT(LogLines().back(), testing::StartsWith("LOCALAPPDATA is unavailable."));
}

TEST_F(ReceiverAppTest, ShowsCodeZeroWhenTheSystemSetsNoError) {
    const ImportPatch variables("kernel32.dll", "GetEnvironmentVariableW", &GetEnvironmentVariableW,
                                [](auto*, LPCWSTR, LPWSTR, DWORD) {
                                    SetLastError(ERROR_SUCCESS);
                                    return DWORD{260};
                                });
    ExpectFatal("LOCALAPPDATA is unavailable.", L"LOCALAPPDATA is unavailable.\n\nHRESULT: 0x00000000");
}

TEST_F(ReceiverAppTest, CreatesItsDataFolders) {
    EXPECT_EQ(Run(Address), 0);
    EXPECT_TRUE(std::filesystem::is_directory(localAppData / L"Vistel" / L"WebView2"));
}

TEST_F(ReceiverAppTest, UsesDataFoldersThatExist) {
    std::filesystem::create_directories(localAppData / L"Vistel" / L"WebView2");
    WriteBytes(localAppData / L"Vistel" / L"WebView2" / L"kept", "x");
    EXPECT_EQ(Run(Address), 0);
    EXPECT_THAT(LogLines(), ElementsAreArray(StartLines()));
    EXPECT_EQ(ReadBytes(localAppData / L"Vistel" / L"WebView2" / L"kept"), "x");
}

TEST_F(ReceiverAppTest, DoesNotCreateLocalAppDataItself) {
    std::filesystem::remove(localAppData);
    ExpectFatal("Unable to create the WebView2 user-data folder. (HRESULT 0x80070003)",
                L"Unable to create the WebView2 user-data folder.\n\nHRESULT: 0x80070003");
    EXPECT_FALSE(std::filesystem::exists(localAppData));
}

TEST_F(ReceiverAppTest, AFileWithTheProductFoldersNameIsFatal) {
    WriteBytes(localAppData / L"Vistel", "x");
    ExpectFatal("Unable to create the WebView2 user-data folder. (HRESULT 0x80070003)",
                L"Unable to create the WebView2 user-data folder.\n\nHRESULT: 0x80070003");
}

TEST_F(ReceiverAppTest, ADataFolderThatCannotBeCreatedIsFatal) {
    for (const std::wstring refused : {L"\\Vistel", L"\\WebView2"}) {
        const ImportPatch creations("kernel32.dll", "CreateDirectoryW", &CreateDirectoryW,
                                    [&](auto* original, LPCWSTR path, SECURITY_ATTRIBUTES* attributes) {
                                        if (!std::wstring_view(path).ends_with(refused)) {
                                            return original(path, attributes);
                                        }
                                        SetLastError(ERROR_ACCESS_DENIED);
                                        return FALSE;
                                    });
        ExpectFatal("Unable to create the WebView2 user-data folder. (HRESULT 0x80070005)",
                    L"Unable to create the WebView2 user-data folder.\n\nHRESULT: 0x80070005");
        EndReceiver();
        app.emplace();
        boxes.clear();
    }
    EXPECT_THAT(browser.TakeCalls(), IsEmpty());
}

TEST_F(ReceiverAppTest, AnEnvironmentRequestThatFailsIsFatal) {
    browser.Fail(L"CreateCoreWebView2EnvironmentWithOptions", HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    ExpectFatal("Unable to start the WebView2 environment. (HRESULT 0x80070002)",
                L"Unable to start the WebView2 environment.\n\nHRESULT: 0x80070002");
}

TEST_F(ReceiverAppTest, AMessageLoopThatFailsAtOnceReturnsZero) {
    const ImportPatch loop("user32.dll", "GetMessageW", &GetMessageW,
                           [](auto*, LPMSG, HWND, UINT, UINT) { return BOOL{-1}; });
    EXPECT_EQ(Run(Address), 0);
    EXPECT_THAT(LogLines(), ElementsAreArray(StartLines()));
    EXPECT_THAT(boxes, IsEmpty());
}

TEST_F(ReceiverAppTest, AMessageLoopThatFailsLaterReturnsTheParameterOfTheLastMessage) {
    bool received = false;
    const ImportPatch loop("user32.dll", "GetMessageW", &GetMessageW,
                           [&received](auto*, LPMSG message, HWND window, UINT first, UINT last) -> BOOL {
                               EXPECT_EQ(window, nullptr);
                               EXPECT_EQ(first, 0U);
                               EXPECT_EQ(last, 0U);
                               if (std::exchange(received, true)) {
                                   return -1;
                               }
                               *message = {};
                               message->wParam = 0x500000009; // The low 32 bits are the exit code.
                               return 1;
                           });
    EXPECT_EQ(Run(Address), 9);
}

TEST_F(ReceiverAppTest, ARestartEmptiesTheLog) {
    EXPECT_EQ(Run(Address), 0);
    EndReceiver();
    app.emplace();
    EXPECT_EQ(Run(Address), 0);
    EXPECT_THAT(LogLines(), ElementsAreArray(StartLines()));
}

TEST_F(ReceiverAppTest, AFatalErrorIsLoggedAndShown) {
    app->ShowFatalError(L"Something is wrong.", AccessDenied);
    app->ShowFatalError(L"Something is wrong.", S_OK);
    app->ShowFatalError(L"Something is wrong.", static_cast<HRESULT>(0x8ABCDEF0));
    EXPECT_THAT(LogLines(), ElementsAre("Something is wrong. (HRESULT 0x80070005)", "Something is wrong.",
                                        "Something is wrong. (HRESULT 0x8ABCDEF0)"));
    ASSERT_EQ(boxes.size(), 3U);
    EXPECT_EQ(boxes[0].owner, nullptr);
    EXPECT_EQ(boxes[0].text, L"Something is wrong.\n\nHRESULT: 0x80070005");
    EXPECT_EQ(boxes[0].caption, L"Vistel");
    EXPECT_EQ(boxes[0].flags, 0x10U);
    EXPECT_EQ(boxes[1].text, L"Something is wrong.\n\nHRESULT: 0x00000000");
    EXPECT_EQ(boxes[2].text, L"Something is wrong.\n\nHRESULT: 0x8ABCDEF0");
}

} // namespace
} // namespace receiver
