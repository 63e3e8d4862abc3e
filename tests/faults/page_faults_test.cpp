// Lets every call fail while the page's messages and the browser's events are handled.
#include "tests/faults/fault_fixture.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <WebView2.h>

namespace receiver {
namespace {

constexpr char Report[] = R"(posted {"type":"diagnostics","diagnostics":{"windowsVersion":"10.0.22631",)"
                          R"("buildNumber":22631,"architecture":"x64","osSupported":true,"webView2Ready":true,)"
                          R"("virtualCameraRegistered":true,"appVersion":"0.1.3"}})";
constexpr char ReportWithoutVersion[] = R"(posted {"type":"diagnostics","diagnostics":{"windowsVersion":"0.0.0",)"
                                        R"("buildNumber":0,"architecture":"x64","osSupported":false,)"
                                        R"("webView2Ready":true,"virtualCameraRegistered":true,"appVersion":"0.1.3"}})";
constexpr char ReportWithoutCamera[] = R"(posted {"type":"diagnostics","diagnostics":{"windowsVersion":"10.0.22631",)"
                                       R"("buildNumber":22631,"architecture":"x64","osSupported":true,)"
                                       R"("webView2Ready":true,"virtualCameraRegistered":false,"appVersion":"0.1.3"}})";

TEST(FaultsOf, Ready) {
    FailEveryCallOf({
        .name = "ready",
        .prepare = [](FaultFixture& fixture) { fixture.OpenBrowser(); },
        .run = [](FaultFixture& fixture) { fixture.Post(L"ready"); },
        .good = {"result 0x00000000", "log Web message: ready", "log Shared frame buffers posted to script",
                 "log System diagnostics posted to script", Report},
        .unnoticed = "GetTempPathW GetEnvironmentVariableW RegCloseKey",
        .outcomes = {{"TryGetWebMessageAsString", {"result $"}},
                     {"ICoreWebView2Environment12 ICoreWebView2_17 CreateDirectoryW CreateFileW SetFilePointerEx "
                      "SetEndOfFile CreateFileMappingW MapViewOfFile CreateSharedBuffer get_Buffer "
                      "PostSharedBufferToScript",
                      {"result $", "log Web message: ready", "log Shared frame buffers posted to script (HRESULT $)"}},
                     {"PostWebMessageAsJson",
                      {"result 0x00000000", "log Web message: ready", "log Shared frame buffers posted to script",
                       "log System diagnostics posted to script (HRESULT $)", Report}},
                     {"GetModuleHandleW GetProcAddress RtlGetVersion",
                      {"result 0x00000000", "log Web message: ready", "log Shared frame buffers posted to script",
                       "log System diagnostics posted to script", ReportWithoutVersion}},
                     {"RegOpenKeyExW",
                      {"result 0x00000000", "log Web message: ready", "log Shared frame buffers posted to script",
                       "log System diagnostics posted to script", ReportWithoutCamera}}},
        .withoutMemory = {"result 0x8007000E"},
    });
}

TEST(FaultsOf, ReadyWhileTheCameraIsInUse) {
    FailEveryCallOf({
        .name = "ready-in-use",
        .prepare = [](FaultFixture& fixture) { fixture.OpenWithCameraInUse(); },
        .run = [](FaultFixture& fixture) { fixture.Post(L"ready"); },
        .good = {"result 0x00000000", "log Web message: ready", "log Shared frame buffers posted to script",
                 "log System diagnostics posted to script", Report, UsageOn},
        .unnoticed = "GetTempPathW RegCloseKey PostWebMessageAsJson#1",
        .outcomes = {{"TryGetWebMessageAsString", {"result $"}},
                     {"ICoreWebView2Environment12 ICoreWebView2_17 CreateSharedBuffer get_Buffer "
                      "PostSharedBufferToScript",
                      {"result $", "log Web message: ready", "log Shared frame buffers posted to script (HRESULT $)",
                       UsageOn}},
                     {"PostWebMessageAsJson#0",
                      {"result 0x00000000", "log Web message: ready", "log Shared frame buffers posted to script",
                       "log System diagnostics posted to script (HRESULT $)", Report, UsageOn}},
                     {"GetModuleHandleW GetProcAddress RtlGetVersion",
                      {"result 0x00000000", "log Web message: ready", "log Shared frame buffers posted to script",
                       "log System diagnostics posted to script", ReportWithoutVersion, UsageOn}},
                     {"RegOpenKeyExW",
                      {"result 0x00000000", "log Web message: ready", "log Shared frame buffers posted to script",
                       "log System diagnostics posted to script", ReportWithoutCamera, UsageOn}}},
        .withoutMemory = {"result 0x8007000E"},
    });
}

TEST(FaultsOf, UnknownText) {
    FailEveryCallOf({
        .name = "unknown-text",
        .prepare = [](FaultFixture& fixture) { fixture.OpenBrowser(); },
        .run = [](FaultFixture& fixture) { fixture.Post(L"error: the camera is gone"); },
        .good = {"result 0x00000000", "log Web message: error: the camera is gone"},
        .unnoticed = "GetTempPathW",
        .outcomes = {{"TryGetWebMessageAsString", {"result $"}}},
        .withoutMemory = {"result 0x8007000E"},
    });
}

TEST(FaultsOf, Quality) {
    FailEveryCallOf({
        .name = "quality",
        .prepare = [](FaultFixture& fixture) { fixture.OpenBrowser(); },
        .run = [](FaultFixture& fixture) { fixture.Post(L"quality:720p"); },
        .good = {"result 0x00000000", "log Video quality selected: 720p"},
        .unnoticed = "GetTempPathW",
        .outcomes = {{"TryGetWebMessageAsString", {"result $"}},
                     {"GetEnvironmentVariableW CreateDirectoryW GetFileAttributesW",
                      {"result 0x80004005", "log Video quality selected: 720p"}}},
        .withoutMemory = {"result 0x8007000E"},
    });
}

TEST(FaultsOf, Orientation) {
    const auto post = [](FaultFixture& fixture, const wchar_t* text) {
        RECT before{};
        RECT after{};
        GetWindowRect(FaultFixture::MainWindow(), &before);
        fixture.Post(text);
        GetWindowRect(FaultFixture::MainWindow(), &after);
        fixture.Note(EqualRect(&before, &after) != 0 ? "in its place" : "moved");
    };
    const auto toPortrait = [post](FaultFixture& fixture) {
        post(fixture, L"window:orientation:portrait");
        post(fixture, L"window:orientation:portrait"); // After a failure this one must apply the layout.
    };
    const Observations good{"result 0x00000000", "moved", "result 0x00000000", "in its place",
                            "log Receiver window layout: portrait"};
    FailEveryCallOf({
        .name = "orientation",
        .prepare = [](FaultFixture& fixture) { fixture.OpenWindow(); },
        .run = toPortrait,
        .good = good,
        .unnoticed = "GetTempPathW GetClientRect put_Bounds",
        .outcomes =
            {{"TryGetWebMessageAsString#1",
              {"result 0x00000000", "moved", "result $", "in its place", "log Receiver window layout: portrait"}},
             {"TryGetWebMessageAsString#0",
              {"result $", "in its place", "result 0x00000000", "moved", "log Receiver window layout: portrait"}},
             {"GetWindowRect AdjustWindowRectExForDpi GetMonitorInfoW SetWindowPos",
              {"result 0x00000000", "in its place", "result 0x00000000", "moved",
               "log Receiver window layout: portrait"}}},
        .withoutMemory = {"result 0x8007000E", "in its place", "moved"},
        .again =
            [post, toPortrait](FaultFixture& fixture) {
                post(fixture, L"window:orientation:landscape");
                (void)fixture.Observe();
                toPortrait(fixture);
            },
    });
}

TEST(FaultsOf, Permission) {
    FailEveryCallOf({
        .name = "permission",
        .prepare = [](FaultFixture& fixture) { fixture.OpenBrowser(); },
        .run =
            [](FaultFixture& fixture) {
                COREWEBVIEW2_PERMISSION_STATE state = COREWEBVIEW2_PERMISSION_STATE_DEFAULT;
                fixture.Product([&] {
                    return fixture.browser.RaisePermissionRequest(COREWEBVIEW2_PERMISSION_KIND_AUTOPLAY, state);
                });
                fixture.Note(state == COREWEBVIEW2_PERMISSION_STATE_ALLOW ? "allowed" : "left alone");
            },
        .good = {"result 0x00000000", "allowed"},
        .outcomes = {{"get_PermissionKind", {"result 0x00000000", "left alone"}},
                     {"put_State", {"result $", "left alone"}}},
    });
}

} // namespace
} // namespace receiver
