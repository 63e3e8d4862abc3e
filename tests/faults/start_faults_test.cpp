// Lets every call fail from the program's start to the navigated page, and to the program's end.
#include "tests/faults/fault_fixture.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <WebView2.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <string_view>

namespace receiver {
namespace {

constexpr char UrlLine[] =
    "log Receiver URL: https://page.example/?installationId=01234567-89ab-cdef-0123-456789abcdef&clientVersion=0.1.3";
constexpr char NavigatedLine[] = "log Navigation completed: success=1, status=11, source=https://receiver.example/page";

// A start without a failure, to the end of the program.
const Observations GoodStart{"call CoInitializeEx",
                             "call MFStartup",
                             "log Vistel receiver log",
                             "log Receiver starting",
                             "call CreateWindowExW",
                             "call CreateEventW",
                             "log Virtual camera usage monitor initialized",
                             "call SetTimer",
                             "call ShowWindow",
                             "call UpdateWindow",
                             "call CreateDirectoryW",
                             "call CreateDirectoryW",
                             "call CreateCoreWebView2EnvironmentWithOptions",
                             "log WebView2 environment request accepted",
                             "log WebView2 environment callback",
                             "call CreateCoreWebView2Controller",
                             "environment 0x00000000",
                             "log WebView2 controller callback",
                             "call add_WebMessageReceived",
                             "call add_PermissionRequested",
                             "call add_NavigationCompleted",
                             UrlLine,
                             "call Navigate",
                             "log Receiver page navigation requested",
                             "controller 0x00000000",
                             NavigatedLine,
                             "navigation 0x00000000",
                             "call KillTimer",
                             "call MFShutdown",
                             "call CoUninitialize",
                             "result 0x00000000"};

// What is observed of it up to and including `last`, then `more`.
Observations StartUpTo(std::string_view last, const Observations& more) {
    const Observations good = WithoutCalls(GoodStart);
    Observations observations(good.begin(), std::find(good.begin(), good.end(), last));
    observations.emplace_back(last);
    observations.insert(observations.end(), more.begin(), more.end());
    return observations;
}

// The whole of it, with `line` in place of `old`.
Observations StartWith(std::string_view line, std::string_view old) {
    Observations observations = WithoutCalls(GoodStart);
    std::replace(observations.begin(), observations.end(), std::string(old), std::string(line));
    return observations;
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
            fixture.NoteResult("environment", environment);
            if (FAILED(environment)) {
                return;
            }
            const HRESULT controller = fixture.browser.CompleteController();
            fixture.NoteResult("controller", controller);
            if (SUCCEEDED(controller)) {
                fixture.NoteResult("navigation", fixture.browser.RaiseNavigationCompleted(
                                                     TRUE, COREWEBVIEW2_WEB_ERROR_STATUS_DISCONNECTED));
            }
        });
}

TEST(FaultsOf, Start) {
    constexpr char Started[] = "log Receiver starting";
    constexpr char Monitored[] = "log Virtual camera usage monitor initialized";
    constexpr char Controlled[] = "log WebView2 controller callback";
    constexpr char Failed[] = "result 0x00000001";
    constexpr char Ended[] = "result 0x00000000";
    FailEveryCallOf({
        .name = "start",
        .prepare =
            [](FaultFixture& fixture) {
                std::filesystem::create_directory(fixture.programData / L"Vistel");
                WriteBytes(fixture.programData / L"Vistel" / L"installation-id.txt",
                           "01234567-89ab-cdef-0123-456789abcdef");
            },
        .run = RunProgram,
        .good = GoodStart,
        .unnoticed = "GetTempPathW LoadIconW LoadCursorW ConvertStringSecurityDescriptorToSecurityDescriptorW SetTimer "
                     "LocalFree UpdateWindow GetClientRect get_Settings put_Bounds put_AreDefaultContextMenusEnabled "
                     "put_AreDevToolsEnabled put_IsStatusBarEnabled KillTimer CloseHandle MFShutdown",
        .outcomes =
            {{"CoInitializeEx MFStartup", {Failed}},
             {"RegisterClassExW CreateWindowExW", StartUpTo(Started, {Failed})},
             {"CreateEventW", StartWith("log Virtual camera usage monitor initialized (HRESULT $)", Monitored)},
             {"GetEnvironmentVariableW#0 _wfopen:identifier _read",
              StartWith("log Receiver URL: https://page.example/?clientVersion=0.1.3", UrlLine)},
             {"GetEnvironmentVariableW#1 GetEnvironmentVariableW#0+",
              StartUpTo(Monitored, {"log LOCALAPPDATA is unavailable. (HRESULT $)",
                                    "box LOCALAPPDATA is unavailable. $", Failed})},
             {"CreateDirectoryW",
              StartUpTo(Monitored, {"log Unable to create the WebView2 user-data folder. (HRESULT $)",
                                    "box Unable to create the WebView2 user-data folder. $", Failed})},
             {"CreateCoreWebView2EnvironmentWithOptions",
              StartUpTo(Monitored, {"log Unable to start the WebView2 environment. (HRESULT $)",
                                    "box Unable to start the WebView2 environment. $", Failed})},
             {"CreateCoreWebView2Controller", StartUpTo("log WebView2 environment callback", {"environment $", Ended})},
             {"get_CoreWebView2 add_WebMessageReceived add_PermissionRequested add_NavigationCompleted",
              StartUpTo(Controlled, {"controller $", Ended})},
             {"Navigate", StartUpTo(UrlLine, {"log Receiver page navigation requested (HRESULT $)",
                                              "log Unable to load the receiver page. (HRESULT $)",
                                              "box Unable to load the receiver page. $", "controller $", Ended})},
             {"get_IsSuccess",
              StartWith("log Navigation completed: success=0, status=11, source=https://receiver.example/page",
                        NavigatedLine)},
             {"get_WebErrorStatus",
              StartWith("log Navigation completed: success=1, status=0, source=https://receiver.example/page",
                        NavigatedLine)},
             {"get_Source", StartWith("log Navigation completed: success=1, status=11, source=", NavigatedLine)}},
        .otherFiles = {{2, "identifier"}}, // after the log's first two lines
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
        .good = {"call CreateCoreWebView2EnvironmentWithOptions", "log WebView2 environment callback",
                 "call CreateCoreWebView2Controller", "log WebView2 controller callback", "call add_WebMessageReceived",
                 "call add_PermissionRequested", "call add_NavigationCompleted", "call NavigateToString",
                 "log Receiver page navigation requested", "result 0x00000000"},
        .unnoticed = "GetTempPathW get_Settings put_AreDefaultContextMenusEnabled put_AreDevToolsEnabled "
                     "put_IsStatusBarEnabled",
        .outcomes = {{"CreateCoreWebView2Controller", {"log WebView2 environment callback", "result $"}},
                     {"get_CoreWebView2 add_WebMessageReceived add_PermissionRequested add_NavigationCompleted",
                      {"log WebView2 environment callback", "log WebView2 controller callback", "result $"}},
                     {"NavigateToString",
                      {"log WebView2 environment callback", "log WebView2 controller callback",
                       "log Receiver page navigation requested (HRESULT $)",
                       "log Unable to load the receiver page. (HRESULT $)", "box Unable to load the receiver page. $",
                       "result $"}}},
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
        .good = {"log WebView2 environment callback (HRESULT 0x80004004)",
                 "log WebView2 Runtime is unavailable. (HRESULT 0x80004004)",
                 "box WebView2 Runtime is unavailable. 0x80004004", "result 0x80004004"},
        .unnoticed = "GetTempPathW",
        .outcomes = {{"MessageBoxW",
                      {"log WebView2 environment callback (HRESULT 0x80004004)",
                       "log WebView2 Runtime is unavailable. (HRESULT 0x80004004)", "result 0x80004004"}}},
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
        .good = {"log WebView2 controller callback (HRESULT 0x80004004)",
                 "log Unable to create the Vistel browser controller. (HRESULT 0x80004004)",
                 "box Unable to create the Vistel browser controller. 0x80004004", "result 0x80004004"},
        .unnoticed = "GetTempPathW",
        .outcomes = {{"MessageBoxW",
                      {"log WebView2 controller callback (HRESULT 0x80004004)",
                       "log Unable to create the Vistel browser controller. (HRESULT 0x80004004)",
                       "result 0x80004004"}}},
    });
}

} // namespace
} // namespace receiver
