// Lets every call fail from the program's start to the navigated page, and to the program's end.
#include "browser/webview_callbacks.h"
#include "tests/faults/fault_fixture.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <WebView2.h>

#include <filesystem>

namespace receiver {
namespace {

constexpr char UrlLine[] =
    "log Receiver URL: https://page.example/?installationId=01234567-89ab-cdef-0123-456789abcdef&clientVersion=0.1.3";
constexpr char NavigatedLine[] = "log Navigation completed: success=1, status=11, source=https://receiver.example/page";

// `notes`, the first `count` lines of a start's log, and `more`.
Observations Lines(const Observations& notes, std::size_t count, const Observations& more = {}) {
    const Observations lines{"log Vistel receiver log",
                             "log Receiver starting",
                             "log Virtual camera usage monitor initialized",
                             "log WebView2 environment request accepted",
                             "log WebView2 environment callback",
                             "log WebView2 controller callback",
                             UrlLine,
                             "log Receiver page navigation requested",
                             NavigatedLine};
    Observations all = notes;
    all.insert(all.end(), lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(count));
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

Observations With(Observations lines, std::size_t index, const std::string& line) {
    lines.at(index) = line;
    return lines;
}

// The whole program, with a browser that completes as many steps as the program requests.
void RunProgram(FaultFixture& fixture) {
    fixture.EndReceiver(); // The entry point has an object of its own.
    std::wstring commandLine = L"--url=https://page.example/";
    const HINSTANCE instance = GetModuleHandleW(nullptr);
    fixture.RunLoopOf(
        [&] {
            fixture.Product([&] { return wWinMain(instance, nullptr, commandLine.data(), SW_SHOWNORMAL); });
            return 0;
        },
        [&] {
            const HRESULT environment = fixture.browser.CompleteEnvironment();
            fixture.Note("environment", environment);
            if (FAILED(environment)) {
                return;
            }
            const HRESULT controller = fixture.browser.CompleteController();
            fixture.Note("controller", controller);
            if (SUCCEEDED(controller)) {
                fixture.Note("navigation", fixture.browser.RaiseNavigationCompleted(
                                               TRUE, COREWEBVIEW2_WEB_ERROR_STATUS_DISCONNECTED));
            }
        });
}

TEST(FaultsOf, Start) {
    const Observations notes{"environment 0x00000000", "controller 0x00000000", "navigation 0x00000000",
                             "result 0x00000000"};
    const Observations good = Lines(notes, 9);
    const Observations withoutController{"environment 0x00000000", "controller $", "result 0x00000000"};
    FailEveryCallOf({
        .name = "start",
        .prepare =
            [](FaultFixture& fixture) {
                std::filesystem::create_directory(fixture.programData / L"Vistel");
                WriteBytes(fixture.programData / L"Vistel" / L"installation-id.txt",
                           "01234567-89ab-cdef-0123-456789abcdef");
            },
        .run = RunProgram,
        .good = good,
        .unnoticed = "GetTempPathW LoadIconW LoadCursorW ConvertStringSecurityDescriptorToSecurityDescriptorW SetTimer "
                     "LocalFree UpdateWindow GetClientRect get_Settings put_Bounds put_AreDefaultContextMenusEnabled "
                     "put_AreDevToolsEnabled put_IsStatusBarEnabled KillTimer CloseHandle MFShutdown",
        .outcomes = {{"CoInitializeEx MFStartup", {"result 0x00000001"}},
                     {"RegisterClassExW CreateWindowExW", Lines({"result 0x00000001"}, 2)},
                     {"CreateEventW", With(good, 6, "log Virtual camera usage monitor initialized (HRESULT $)")},
                     {"GetEnvironmentVariableW#0", With(good, 10,
                                                        "log Receiver URL: "
                                                        "https://page.example/?clientVersion=0.1.3")},
                     {"GetEnvironmentVariableW#1",
                      Lines({"result 0x00000001"}, 3,
                            {"log LOCALAPPDATA is unavailable. (HRESULT $)", "box LOCALAPPDATA is unavailable. $"})},
                     {"CreateDirectoryW", Lines({"result 0x00000001"}, 3,
                                                {"log Unable to create the WebView2 user-data folder. (HRESULT $)",
                                                 "box Unable to create the WebView2 user-data folder. $"})},
                     {"CreateCoreWebView2EnvironmentWithOptions",
                      Lines({"result 0x00000001"}, 3,
                            {"log Unable to start the WebView2 environment. (HRESULT $)",
                             "box Unable to start the WebView2 environment. $"})},
                     {"CreateCoreWebView2Controller", Lines({"environment $", "result 0x00000000"}, 5)},
                     {"get_CoreWebView2 add_WebMessageReceived add_PermissionRequested add_NavigationCompleted",
                      Lines(withoutController, 6)},
                     {"Navigate", Lines(withoutController, 7,
                                        {"log Receiver page navigation requested (HRESULT $)",
                                         "log Unable to load the receiver page. (HRESULT $)",
                                         "box Unable to load the receiver page. $"})},
                     {"get_IsSuccess", With(good, 12,
                                            "log Navigation completed: success=0, status=11, "
                                            "source=https://receiver.example/page")},
                     {"get_WebErrorStatus", With(good, 12,
                                                 "log Navigation completed: success=1, status=0, "
                                                 "source=https://receiver.example/page")},
                     {"get_Source", With(good, 12, "log Navigation completed: success=1, status=11, source=")}},
        .cutShort = "GetMessageW",
        .withoutMemory = {"result 0x00000001", "environment 0x8007000E", "controller 0x8007000E",
                          "navigation 0x8007000E",
                          // Without memory to read the file there is no identifier.
                          "log Receiver URL: https://page.example/?clientVersion=0.1.3",
                          "log Unable to start the WebView2 environment.",
                          "box Unable to start the WebView2 environment. 0x8007000E"},
    });
}

// Without a window, the built-in page.
void BringBrowserUp(FaultFixture& fixture) {
    const auto handler = MakeCallback<EnvironmentCallback>(*fixture.app);
    EXPECT_EQ(fixture.browser.RequestEnvironment(nullptr, nullptr, nullptr, handler.Get()), S_OK);
    fixture.Product([&] {
        const HRESULT result = fixture.browser.CompleteEnvironment();
        return FAILED(result) ? result : fixture.browser.CompleteController();
    });
}

TEST(FaultsOf, BringUp) {
    FailEveryCallOf({
        .name = "bring-up",
        .prepare = [](FaultFixture&) {},
        .run = BringBrowserUp,
        .good = {"result 0x00000000", "log WebView2 environment callback", "log WebView2 controller callback",
                 "log Receiver page navigation requested"},
        .unnoticed = "GetTempPathW get_Settings put_AreDefaultContextMenusEnabled put_AreDevToolsEnabled "
                     "put_IsStatusBarEnabled",
        .outcomes = {{"CreateCoreWebView2Controller", {"result $", "log WebView2 environment callback"}},
                     {"get_CoreWebView2 add_WebMessageReceived add_PermissionRequested add_NavigationCompleted",
                      {"result $", "log WebView2 environment callback", "log WebView2 controller callback"}},
                     {"NavigateToString",
                      {"result $", "log WebView2 environment callback", "log WebView2 controller callback",
                       "log Receiver page navigation requested (HRESULT $)",
                       "log Unable to load the receiver page. (HRESULT $)",
                       "box Unable to load the receiver page. $"}}},
        .withoutMemory = {"result 0x8007000E"},
    });
}

// The browser reports E_ABORT, which is 0x80004004.
TEST(FaultsOf, RefusedEnvironment) {
    FailEveryCallOf({
        .name = "refused-environment",
        .prepare =
            [](FaultFixture& fixture) {
                const auto handler = MakeCallback<EnvironmentCallback>(*fixture.app);
                EXPECT_EQ(fixture.browser.RequestEnvironment(nullptr, nullptr, nullptr, handler.Get()), S_OK);
            },
        .run =
            [](FaultFixture& fixture) {
                fixture.Product([&] { return fixture.browser.CompleteEnvironment(E_ABORT, false); });
            },
        .good = {"result 0x80004004", "log WebView2 environment callback (HRESULT 0x80004004)",
                 "log WebView2 Runtime is unavailable. (HRESULT 0x80004004)",
                 "box WebView2 Runtime is unavailable. 0x80004004"},
        .unnoticed = "GetTempPathW",
        .outcomes = {{"MessageBoxW",
                      {"result 0x80004004", "log WebView2 environment callback (HRESULT 0x80004004)",
                       "log WebView2 Runtime is unavailable. (HRESULT 0x80004004)"}}},
    });
}

TEST(FaultsOf, RefusedController) {
    FailEveryCallOf({
        .name = "refused-controller",
        .prepare =
            [](FaultFixture& fixture) {
                const auto handler = MakeCallback<EnvironmentCallback>(*fixture.app);
                EXPECT_EQ(fixture.browser.RequestEnvironment(nullptr, nullptr, nullptr, handler.Get()), S_OK);
                EXPECT_EQ(fixture.browser.CompleteEnvironment(), S_OK);
            },
        .run =
            [](FaultFixture& fixture) {
                fixture.Product([&] { return fixture.browser.CompleteController(E_ABORT, false); });
            },
        .good = {"result 0x80004004", "log WebView2 controller callback (HRESULT 0x80004004)",
                 "log Unable to create the Vistel browser controller. (HRESULT 0x80004004)",
                 "box Unable to create the Vistel browser controller. 0x80004004"},
        .unnoticed = "GetTempPathW",
        .outcomes = {{"MessageBoxW",
                      {"result 0x80004004", "log WebView2 controller callback (HRESULT 0x80004004)",
                       "log Unable to create the Vistel browser controller. (HRESULT 0x80004004)"}}},
    });
}

} // namespace
} // namespace receiver
