// The order of everything that a start, an event or a command of the page leads to: log lines, message boxes, calls of
// the system and of the sink writer, and calls of the browser, in one sequence.
#include "tests/capture/capture_folders.h"
#include "tests/capture/sink_writer_fake.h"
#include "tests/support/apartment.h"
#include "tests/support/shell_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace receiver {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::StartsWith;
using Events = std::vector<std::string>;
using Expected = std::vector<testing::Matcher<std::string>>;

constexpr wchar_t Address[] = L"https://page.example/";
constexpr char TextRead[] = "browser TryGetWebMessageAsString";
constexpr char UsageOn[] = "browser PostWebMessageAsJson {\"type\":\"virtual-camera-usage\",\"active\":true}";
constexpr char UsageOff[] = "browser PostWebMessageAsJson {\"type\":\"virtual-camera-usage\",\"active\":false}";

class EventOrderTest : public ShellTest {
protected:
    EventOrderTest() {
        writers.onCall = [this](const std::string& call) { NoteEvent("writer " + call); };
    }
    // Runs `body` while calls of the system are recorded.
    void WithCalls(const std::function<void()>& body) {
        const ImportPatch folderCreations("kernel32.dll", "CreateDirectoryW", &CreateDirectoryW,
                                          [this](auto* original, auto... arguments) {
                                              NoteEvent("call CreateDirectoryW");
                                              return original(arguments...);
                                          });
        // The receiver reads the clock when a frame is complete in the shared file, when a recording starts, before
        // each sample, and before each poll of the event.
        const ImportPatch clock("kernel32.dll", "GetTickCount64", &GetTickCount64, [this](auto*) {
            NoteEvent("call GetTickCount64");
            return tick;
        });
        const ImportPatch polls("kernel32.dll", "WaitForSingleObject", &WaitForSingleObject,
                                [this](auto* original, HANDLE object, DWORD timeoutMs) -> DWORD {
                                    if (timeoutMs != 0) {
                                        return original(object, timeoutMs); // of a thread of the test library
                                    }
                                    NoteEvent("call WaitForSingleObject");
                                    return signaled ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
                                });
        const ImportPatch creations("user32.dll", "CreateWindowExW", &CreateWindowExW,
                                    [this](auto* original, auto... arguments) {
                                        NoteEvent("call CreateWindowExW");
                                        return original(arguments...);
                                    });
        const ImportPatch timers("user32.dll", "SetTimer", &SetTimer, [this](auto*, HWND, UINT_PTR id, auto...) {
            NoteEvent("call SetTimer"); // No timer fires in a test.
            return id;
        });
        const ImportPatch shows("user32.dll", "ShowWindow", &ShowWindow, [this](auto* original, auto... arguments) {
            NoteEvent("call ShowWindow");
            return original(arguments...);
        });
        const ImportPatch updates("user32.dll", "UpdateWindow", &UpdateWindow, [this](auto* original, HWND window) {
            NoteEvent("call UpdateWindow");
            return original(window);
        });
        const ImportPatch moves("user32.dll", "SetWindowPos", &SetWindowPos, [this](auto* original, auto... arguments) {
            NoteEvent("call SetWindowPos");
            return original(arguments...);
        });
        const ImportPatch creation("ole32.dll", "CoCreateInstance", &CoCreateInstance,
                                   [this](auto* original, auto... arguments) {
                                       NoteEvent("call CoCreateInstance");
                                       return original(arguments...);
                                   });
        body();
    }
    // The events of a start up to the message loop, where `afterStart` is called, and of what that does.
    Events Start(const std::function<void()>& afterStart = {}) {
        WithCalls([&] {
            (void)Run(Address, [&] {
                if (afterStart) {
                    afterStart();
                }
                started = TakeEvents();
            });
        });
        return started.empty() ? TakeEvents() : started; // empty: the start failed before the loop
    }
    // The events of a text that the page posts.
    Events Post(const wchar_t* text) {
        Forget();
        WithCalls([&] { (void)browser.RaiseWebMessage(text); });
        return TakeEvents();
    }
    // The events when the window's timer fires.
    Events Poll(bool newSignaled) {
        Forget();
        signaled = newSignaled;
        tick += 4000;
        WithCalls([] { SendMessageW(MainWindow(), WM_TIMER, UsageTimer, 0); });
        return TakeEvents();
    }
    // Opens the browser; the page posts "ready" and a frame.
    void OpenReadyPage() {
        OpenBrowser();
        (void)Post(L"ready");
        (void)Post(GoodFrame);
    }
    static std::string Posted(const std::string& action, bool success, const std::wstring& path, std::uint32_t code) {
        std::string escaped;
        for (const char character : Narrow(path)) {
            escaped += character == '\\' ? "\\\\" : std::string(1, character);
        }
        return "browser PostWebMessageAsJson {\"type\":\"media-result\",\"action\":\"" + action +
               "\",\"success\":" + (success ? "true" : "false") + ",\"path\":\"" + escaped +
               "\",\"error\":" + std::to_string(code) + "}";
    }

    const Apartment apartment; // for the snapshot's encoder
    const CaptureFolders captures;
    SinkWriterFakes writers;
    ULONGLONG tick = 1000;
    bool signaled = false;
    Events started;
};

Expected operator+(Expected first, const Expected& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

const Expected MonitorAndWindow = {"log Vistel receiver log", "log Receiver starting",
                                   "call CreateWindowExW",    "log Virtual camera usage monitor initialized",
                                   "call SetTimer",           "call ShowWindow",
                                   "call UpdateWindow"};
const Expected Folders = {"call CreateDirectoryW", "call CreateDirectoryW"};
const Expected Requested = {StartsWith("browser CreateCoreWebView2EnvironmentWithOptions "),
                            "log WebView2 environment request accepted"};
const Expected EnvironmentCompleted = {"log WebView2 environment callback",
                                       StartsWith("browser CreateCoreWebView2Controller ")};
const Expected BrowserOpened = {"log WebView2 controller callback",
                                "browser get_CoreWebView2",
                                StartsWith("browser put_Bounds "),
                                "browser get_Settings",
                                "browser put_AreDefaultContextMenusEnabled 0",
                                "browser put_AreDevToolsEnabled 0",
                                "browser put_IsStatusBarEnabled 0",
                                "browser add_WebMessageReceived",
                                "browser add_PermissionRequested",
                                "browser add_NavigationCompleted",
                                "log Receiver URL: https://page.example/?clientVersion=0.1.3",
                                "browser Navigate https://page.example/?clientVersion=0.1.3"};

TEST_F(EventOrderTest, Start) {
    EXPECT_THAT(Start([this] { browser.CompleteBoth(); }),
                ElementsAreArray(MonitorAndWindow + Folders + Requested + EnvironmentCompleted + BrowserOpened +
                                 Expected{"log Receiver page navigation requested", "browser released Settings"}));
}

TEST_F(EventOrderTest, StartWithoutAVariable) {
    const VariableScope unset(L"LOCALAPPDATA", nullptr);
    EXPECT_THAT(Start(),
                ElementsAreArray(MonitorAndWindow + Expected{"log LOCALAPPDATA is unavailable. (HRESULT 0x800700CB)",
                                                             "box LOCALAPPDATA is unavailable.\n\n"
                                                             "HRESULT: 0x800700CB"}));
}

TEST_F(EventOrderTest, StartWithoutAFolder) {
    std::filesystem::remove(localAppData);
    EXPECT_THAT(Start(), ElementsAreArray(
                             MonitorAndWindow +
                             Expected{"call CreateDirectoryW",
                                      "log Unable to create the WebView2 user-data folder. (HRESULT 0x80070003)",
                                      "box Unable to create the WebView2 user-data folder.\n\nHRESULT: 0x80070003"}));
}

TEST_F(EventOrderTest, StartWithoutAnEnvironment) {
    browser.Fail(L"CreateCoreWebView2EnvironmentWithOptions", E_ABORT);
    EXPECT_THAT(Start(), ElementsAreArray(MonitorAndWindow + Folders +
                                          Expected{Requested[0],
                                                   "log Unable to start the WebView2 environment. (HRESULT 0x80004004)",
                                                   "box Unable to start the WebView2 environment.\n\n"
                                                   "HRESULT: 0x80004004"}));
}

TEST_F(EventOrderTest, FailuresOfTheBrowser) {
    (void)Start([this] {
        (void)TakeEvents();
        (void)browser.CompleteEnvironment(E_ABORT, false);
        EXPECT_THAT(TakeEvents(), ElementsAre("log WebView2 environment callback (HRESULT 0x80004004)",
                                              "log WebView2 Runtime is unavailable. (HRESULT 0x80004004)",
                                              "box WebView2 Runtime is unavailable.\n\nHRESULT: 0x80004004"));
        (void)browser.CompleteEnvironment();
        (void)TakeEvents();
        (void)browser.CompleteController(E_ABORT, false);
        EXPECT_THAT(TakeEvents(),
                    ElementsAre("log WebView2 controller callback (HRESULT 0x80004004)",
                                "log Unable to create the Vistel browser controller. (HRESULT 0x80004004)",
                                "box Unable to create the Vistel browser controller.\n\nHRESULT: 0x80004004"));
        browser.Fail(L"Navigate", E_ABORT);
        (void)browser.CompleteController();
        EXPECT_THAT(
            TakeEvents(),
            ElementsAreArray(BrowserOpened + Expected{"log Receiver page navigation requested (HRESULT 0x80004004)",
                                                      "log Unable to load the receiver page. (HRESULT 0x80004004)",
                                                      "box Unable to load the receiver page.\n\nHRESULT: 0x80004004",
                                                      "browser released Settings"}));
    });
}

TEST_F(EventOrderTest, Navigation) {
    OpenBrowser();
    Forget();
    (void)browser.RaiseNavigationCompleted(TRUE, COREWEBVIEW2_WEB_ERROR_STATUS_UNKNOWN);
    EXPECT_THAT(TakeEvents(),
                ElementsAre("browser get_IsSuccess", "browser get_WebErrorStatus", "browser get_Source",
                            "log Navigation completed: success=1, status=0, source=https://receiver.example/page"));
}

// The shared frame file is opened before the first slot is created.
TEST_F(EventOrderTest, Ready) {
    OpenBrowser();
    const Expected queries = {TextRead, "log Web message: ready", "browser ICoreWebView2Environment12",
                              "browser ICoreWebView2_17"};
    const Expected report = {"log Shared frame buffers posted to script",
                             StartsWith("browser PostWebMessageAsJson {\"type\":\"diagnostics\","),
                             "log System diagnostics posted to script"};
    EXPECT_THAT(
        Post(L"ready"),
        ElementsAreArray(queries +
                         Expected{"call CreateDirectoryW", "browser CreateSharedBuffer 8294400", "browser get_Buffer",
                                  "browser PostSharedBufferToScript SharedBuffer0 1 {\"slot\":0}",
                                  "browser CreateSharedBuffer 8294400", "browser get_Buffer",
                                  "browser PostSharedBufferToScript SharedBuffer1 1 {\"slot\":1}"} +
                         report));
    EXPECT_THAT(Post(L"ready"),
                ElementsAreArray(
                    queries +
                    Expected{"browser released SharedBuffer0", "browser CreateSharedBuffer 8294400",
                             "browser get_Buffer", "browser PostSharedBufferToScript SharedBuffer2 1 {\"slot\":0}",
                             "browser released SharedBuffer1", "browser CreateSharedBuffer 8294400",
                             "browser get_Buffer", "browser PostSharedBufferToScript SharedBuffer3 1 {\"slot\":1}"} +
                    report));
}

TEST_F(EventOrderTest, Frame) {
    OpenBrowser();
    (void)Post(L"ready");
    EXPECT_THAT(Post(GoodFrame), ElementsAre(TextRead, "log First frame descriptor: " + Narrow(GoodFrame),
                                             "call GetTickCount64", "log First browser frame published"));
    EXPECT_THAT(Post(GoodFrame), ElementsAre(TextRead, "call GetTickCount64"));
}

TEST_F(EventOrderTest, Snapshot) {
    OpenReadyPage();
    EXPECT_THAT(Post(L"media:snapshot"),
                ElementsAre(TextRead, "call CreateDirectoryW", "call CoCreateInstance", "log Snapshot requested",
                            Posted("snapshot", true, captures.PicturePath(), 0)));
    std::filesystem::remove(captures.PicturePath());
    std::filesystem::create_directory(captures.PicturePath());
    const Events failed = Post(L"media:snapshot");
    ASSERT_EQ(failed.size(), 5U);
    EXPECT_THAT(failed[3], StartsWith("log Snapshot requested (HRESULT 0x80"));
    EXPECT_THAT(failed[4], StartsWith("browser PostWebMessageAsJson {\"type\":\"media-result\""));
}

TEST_F(EventOrderTest, Recording) {
    OpenReadyPage();
    EXPECT_THAT(Post(L"media:record:start"),
                ElementsAre(TextRead, "call CreateDirectoryW", "writer Create", "writer AddStream",
                            "writer SetInputMediaType", "writer BeginWriting", "call GetTickCount64",
                            "log Recording started", Posted("recording-started", true, captures.VideoPath(), 0)));
    EXPECT_THAT(Post(L"media:record:start"), ElementsAre(TextRead, "log Recording started (HRESULT 0x800700B7)",
                                                         Posted("recording-started", false, L"", 0x800700B7)));
    // The first time is that of the published frame, the second that of the sample.
    EXPECT_THAT(Post(GoodFrame),
                ElementsAre(TextRead, "call GetTickCount64", "call GetTickCount64", "writer WriteSample"));
    EXPECT_THAT(Post(L"media:record:stop"),
                ElementsAre(TextRead, "writer Finalize", "writer released", "log Recording stopped",
                            Posted("recording-stopped", true, captures.VideoPath(), 0)));
    EXPECT_THAT(Post(L"media:record:stop"),
                ElementsAre(TextRead, "log Recording stopped", Posted("recording-stopped", true, L"", 1)));
}

TEST_F(EventOrderTest, AFrameThatCannotBeRecorded) {
    OpenBrowser();
    (void)Post(L"ready");
    (void)Post(L"media:record:start");
    writers.Fail("WriteSample", E_ABORT);
    EXPECT_THAT(Post(GoodFrame),
                ElementsAre(TextRead, "log First frame descriptor: " + Narrow(GoodFrame), "call GetTickCount64",
                            "call GetTickCount64", "writer WriteSample", "writer Finalize", "writer released",
                            Posted("recording-failed", false, captures.VideoPath(), 0x80004004),
                            "log First browser frame published (HRESULT 0x80004004)"));
}

TEST_F(EventOrderTest, Quality) {
    OpenReadyPage();
    (void)Post(L"media:record:start");
    const Expected stopped = {TextRead, "writer Finalize", "writer released",
                              Posted("recording-stopped", true, captures.VideoPath(), 0)};
    EXPECT_THAT(Post(L"quality:1080p"),
                ElementsAreArray(stopped + Expected{"call CreateDirectoryW", "log Video quality selected: 1080p"}));
    (void)Post(L"media:record:start");
    EXPECT_THAT(Post(L"quality:4k"), ElementsAreArray(stopped));
    EXPECT_THAT(Post(L"quality:720p"),
                ElementsAre(TextRead, "call CreateDirectoryW", "log Video quality selected: 720p"));
}

TEST_F(EventOrderTest, Orientation) {
    InLoop([this] {
        EXPECT_THAT(Post(L"window:orientation:portrait"),
                    ElementsAre(TextRead, "call SetWindowPos", StartsWith("browser put_Bounds "),
                                "log Receiver window layout: portrait"));
        EXPECT_THAT(Post(L"window:orientation:portrait"), ElementsAre(TextRead));
    });
}

TEST_F(EventOrderTest, Usage) {
    InLoop([this] {
        (void)Post(L"ready");
        EXPECT_THAT(Poll(true), ElementsAre("call GetTickCount64", "call WaitForSingleObject",
                                            "log Virtual camera consumer started requesting frames", UsageOn));
        EXPECT_EQ(Post(L"ready").back(), UsageOn);
        EXPECT_THAT(Poll(false), ElementsAre("call GetTickCount64", "call WaitForSingleObject",
                                             "log Virtual camera consumer stopped requesting frames", UsageOff));
    });
}

TEST_F(EventOrderTest, AnyOtherText) {
    OpenBrowser();
    EXPECT_THAT(Post(L"error: no camera"), ElementsAre(TextRead, "log Web message: error: no camera"));
}

} // namespace
} // namespace receiver
