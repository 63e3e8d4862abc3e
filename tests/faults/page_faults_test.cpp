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

constexpr char ReadyLine[] = "log Web message: ready";
constexpr char SlotsLine[] = "log Shared frame buffers posted to script";
constexpr char SlotsFailedLine[] = "log Shared frame buffers posted to script (HRESULT $)";
constexpr char ReportLine[] = "log System diagnostics posted to script";
constexpr char ReportFailedLine[] = "log System diagnostics posted to script (HRESULT $)";
constexpr char Ok[] = "result 0x00000000";

TEST(FaultsOf, Ready) {
    FailEveryCallOf({
        .name = "ready",
        .prepare = [](FaultFixture& fixture) { fixture.OpenBrowser(); },
        .run = [](FaultFixture& fixture) { fixture.Post(L"ready"); },
        .good = {ReadyLine, "call CreateDirectoryW", "call CreateFileW", "call CreateSharedBuffer",
                 "call PostSharedBufferToScript", "call CreateSharedBuffer", "call PostSharedBufferToScript", SlotsLine,
                 Report, ReportLine, Ok},
        .unnoticed = "GetTempPathW GetEnvironmentVariableW RegCloseKey",
        .outcomes = {{"TryGetWebMessageAsString", {"result $"}},
                     {"ICoreWebView2Environment12 ICoreWebView2_17 CreateDirectoryW CreateFileW SetFilePointerEx "
                      "SetEndOfFile CreateFileMappingW MapViewOfFile CreateSharedBuffer get_Buffer "
                      "PostSharedBufferToScript",
                      {ReadyLine, SlotsFailedLine, "result $"}},
                     {"PostWebMessageAsJson", {ReadyLine, SlotsLine, Report, ReportFailedLine, Ok}},
                     {"GetModuleHandleW GetProcAddress RtlGetVersion",
                      {ReadyLine, SlotsLine, ReportWithoutVersion, ReportLine, Ok}},
                     {"RegOpenKeyExW", {ReadyLine, SlotsLine, ReportWithoutCamera, ReportLine, Ok}}},
        .withoutMemory = {"result 0x8007000E"},
    });
}

TEST(FaultsOf, ReadyWhileTheCameraIsInUse) {
    FailEveryCallOf({
        .name = "ready-in-use",
        .prepare = [](FaultFixture& fixture) { fixture.OpenWithCameraInUse(); },
        .run = [](FaultFixture& fixture) { fixture.Post(L"ready"); },
        .good = {ReadyLine, "call CreateSharedBuffer", "call PostSharedBufferToScript", "call CreateSharedBuffer",
                 "call PostSharedBufferToScript", SlotsLine, Report, ReportLine, UsageOn, Ok},
        .unnoticed = "GetTempPathW RegCloseKey PostWebMessageAsJson#1",
        .outcomes = {{"TryGetWebMessageAsString", {"result $"}},
                     {"ICoreWebView2Environment12 ICoreWebView2_17 CreateSharedBuffer get_Buffer "
                      "PostSharedBufferToScript",
                      {ReadyLine, SlotsFailedLine, UsageOn, "result $"}},
                     {"PostWebMessageAsJson#0", {ReadyLine, SlotsLine, Report, ReportFailedLine, UsageOn, Ok}},
                     {"GetModuleHandleW GetProcAddress RtlGetVersion",
                      {ReadyLine, SlotsLine, ReportWithoutVersion, ReportLine, UsageOn, Ok}},
                     {"RegOpenKeyExW", {ReadyLine, SlotsLine, ReportWithoutCamera, ReportLine, UsageOn, Ok}}},
        .withoutMemory = {"result 0x8007000E"},
    });
}

TEST(FaultsOf, UnknownText) {
    FailEveryCallOf({
        .name = "unknown-text",
        .prepare = [](FaultFixture& fixture) { fixture.OpenBrowser(); },
        .run = [](FaultFixture& fixture) { fixture.Post(L"error: the camera is gone"); },
        .good = {"log Web message: error: the camera is gone", Ok},
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
        .good = {"call CreateDirectoryW", "log Video quality selected: 720p", Ok},
        .unnoticed = "GetTempPathW _write:quality",
        .outcomes = {{"TryGetWebMessageAsString", {"result $"}},
                     {"GetEnvironmentVariableW CreateDirectoryW GetFileAttributesW _wfopen:quality",
                      {"log Video quality selected: 720p", "result 0x80004005"}}},
        .otherFiles = {{0, "quality"}},
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
        fixture.NoteEvent(EqualRect(&before, &after) != 0 ? "in its place" : "moved");
    };
    const auto toPortrait = [post](FaultFixture& fixture) {
        post(fixture, L"window:orientation:portrait");
        post(fixture, L"window:orientation:portrait"); // After a failure this one must apply the layout.
    };
    constexpr char Line[] = "log Receiver window layout: portrait";
    FailEveryCallOf({
        .name = "orientation",
        .prepare = [](FaultFixture& fixture) { fixture.OpenWindow(); },
        .run = toPortrait,
        .good = {"call SetWindowPos", Line, Ok, "moved", Ok, "in its place"},
        .unnoticed = "GetTempPathW GetClientRect put_Bounds",
        .outcomes = {{"TryGetWebMessageAsString#1", {Line, Ok, "moved", "result $", "in its place"}},
                     {"TryGetWebMessageAsString#0", {"result $", "in its place", Line, Ok, "moved"}},
                     {"TryGetWebMessageAsString#0+", {"result $", "in its place", "result $", "in its place"}},
                     {"GetWindowRect AdjustWindowRectExForDpi GetMonitorInfoW SetWindowPos",
                      {Ok, "in its place", Line, Ok, "moved"}},
                     {"GetWindowRect+ AdjustWindowRectExForDpi+ GetMonitorInfoW+ SetWindowPos+",
                      {Ok, "in its place", Ok, "in its place"}}},
        .withoutMemory = {"result 0x8007000E", "result 0x8007000E", "in its place", "moved"},
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
                fixture.NoteEvent(state == COREWEBVIEW2_PERMISSION_STATE_ALLOW ? "allowed" : "left alone");
            },
        .good = {Ok, "allowed"},
        .outcomes = {{"get_PermissionKind", {Ok, "left alone"}}, {"put_State", {"result $", "left alone"}}},
    });
}

} // namespace
} // namespace receiver
