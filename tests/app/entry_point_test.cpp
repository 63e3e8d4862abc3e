// wWinMain: what it starts, the order in which it shuts that down, and the page that the command line selects.
#include "tests/capture/capture_folders.h"
#include "tests/capture/sink_writer_fake.h"
#include "tests/support/shell_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <mfapi.h>
#include <objbase.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace receiver {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class EntryPointTest : public ShellTest {
protected:
    void SetUp() override { app.reset(); } // The entry point creates its own object.

    // Runs the entry point; the calls of COM and Media Foundation are recorded among those of the browser.
    int Main(const wchar_t* commandLine, std::function<void()> newInLoop = {}) {
        const ImportPatch comStarts("ole32.dll", "CoInitializeEx", &CoInitializeEx,
                                    [this](auto* original, LPVOID reserved, DWORD model) {
                                        EXPECT_EQ(reserved, nullptr);
                                        browser.Note(L"CoInitializeEx " + std::to_wstring(model));
                                        return FAILED(comResult) ? comResult : original(reserved, model);
                                    });
        const ImportPatch comEnds("ole32.dll", "CoUninitialize", &CoUninitialize, [this](auto* original) {
            browser.Note(L"CoUninitialize");
            original();
        });
        const ImportPatch mediaStarts(
            "mfplat.dll", "MFStartup", &MFStartup, [this](auto* original, ULONG version, DWORD flags) {
                browser.Note(L"MFStartup " + std::to_wstring(version) + L' ' + std::to_wstring(flags));
                return FAILED(mediaResult) ? mediaResult : original(version, flags);
            });
        const ImportPatch mediaEnds("mfplat.dll", "MFShutdown", &MFShutdown, [this](auto* original) {
            browser.Note(L"MFShutdown");
            return original();
        });
        std::wstring text = commandLine != nullptr ? commandLine : L"";
        return RunLoopOf(
            [&] {
                std::optional<AllocationFault> fault;
                if (failingAllocation) {
                    fault.emplace(*failingAllocation);
                }
                const int exitCode =
                    wWinMain(instance, nullptr, commandLine != nullptr ? text.data() : nullptr, showCommand);
                allocationFailed = fault && fault->Happened();
                return exitCode;
            },
            std::move(newInLoop));
    }
    // The navigation of a start with this command line.
    std::wstring NavigationOf(const wchar_t* commandLine) {
        std::wstring navigation;
        EXPECT_EQ(Main(commandLine,
                       [&] {
                           (void)browser.TakeCalls();
                           browser.CompleteBoth();
                           const auto calls = browser.TakeCalls();
                           navigation = calls.at(calls.size() - 2); // The last call is "released Settings".
                       }),
                  0);
        EndReceiver();
        return navigation;
    }

    HINSTANCE instance = GetModuleHandleW(nullptr);
    int showCommand = SW_SHOWNORMAL;
    HRESULT comResult = S_OK; // a failure is returned instead of calling the system
    HRESULT mediaResult = S_OK;
    std::optional<unsigned> failingAllocation;
    bool allocationFailed = false; // in the last start
};

TEST_F(EntryPointTest, ShutsEverythingDownBeforeTheApplicationIsDestroyed) {
    EXPECT_EQ(Main(L"",
                   [this] {
                       EXPECT_EQ(browser.TakeCalls().at(1), L"MFStartup 131184 0"); // 0x00020070
                       browser.CompleteBoth();
                       EXPECT_EQ(browser.RaiseWebMessage(L"ready"), S_OK);
                       (void)browser.TakeCalls();
                   }),
              0);
    EXPECT_THAT(browser.TakeCalls(),
                ElementsAre(L"MFShutdown", L"CoUninitialize", L"released SharedBuffer1", L"released SharedBuffer0",
                            L"released WebView", L"released Controller", L"released Environment"));
}

// The recording has started Media Foundation once more, so that the writer still works after the first MFShutdown. The
// only view is that of the shared frame file.
TEST_F(EntryPointTest, FinalizesARecordingWhenTheApplicationIsDestroyed) {
    const CaptureFolders folders;
    SinkWriterFakes writers;
    const ImportPatch unmappings("kernel32.dll", "UnmapViewOfFile", &UnmapViewOfFile,
                                 [this](auto* original, LPCVOID view) {
                                     browser.Note(L"UnmapViewOfFile");
                                     return original(view);
                                 });
    EXPECT_EQ(Main(L"",
                   [&] {
                       browser.CompleteBoth();
                       EXPECT_EQ(browser.RaiseWebMessage(L"ready"), S_OK);
                       EXPECT_EQ(browser.RaiseWebMessage(L"media:record:start"), S_OK);
                       (void)browser.TakeCalls();
                       writers.onCall = [&](const std::string& call) { browser.Note({call.begin(), call.end()}); };
                   }),
              0);
    EXPECT_THAT(browser.TakeCalls(),
                ElementsAre(L"MFShutdown", L"CoUninitialize", L"Finalize", L"released", L"MFShutdown",
                            L"UnmapViewOfFile", L"released SharedBuffer1", L"released SharedBuffer0",
                            L"released WebView", L"released Controller", L"released Environment"));
}

TEST_F(EntryPointTest, HandsItsInstanceAndShowCommandOn) {
    std::vector<int> commands;
    const ImportPatch shows("user32.dll", "ShowWindow", &ShowWindow, [&](auto* original, HWND window, int command) {
        commands.push_back(command);
        return original(window, command);
    });
    showCommand = SW_SHOWMAXIMIZED;
    EXPECT_EQ(Main(L""), 0);
    EXPECT_THAT(commands, ElementsAre(SW_SHOWMAXIMIZED));

    std::vector<HINSTANCE> instances;
    const ImportPatch registrations("user32.dll", "RegisterClassExW", &RegisterClassExW,
                                    [&](auto*, const WNDCLASSEXW* windowClass) {
                                        instances.push_back(windowClass->hInstance);
                                        return ATOM{0};
                                    });
    instance = GetModuleHandleW(L"kernel32.dll");
    EXPECT_EQ(Main(L""), 1);
    EXPECT_THAT(instances, ElementsAre(instance));
}

TEST_F(EntryPointTest, StartsComAsASingleThreadedApartmentAndMediaFoundationInFull) {
    EXPECT_EQ(Main(L"",
                   [this] {
                       const auto calls = browser.TakeCalls();
                       ASSERT_EQ(calls.size(), 3U);
                       EXPECT_EQ(calls[0], L"CoInitializeEx 2");
                       EXPECT_EQ(calls[1], L"MFStartup 131184 0");
                       EXPECT_THAT(calls[2], testing::StartsWith(L"CreateCoreWebView2EnvironmentWithOptions"));
                   }),
              0);
}

TEST_F(EntryPointTest, ExitsWhenComCannotBeStarted) {
    comResult = RPC_E_CHANGED_MODE;
    EXPECT_EQ(Main(L""), 1);
    EXPECT_THAT(browser.TakeCalls(), ElementsAre(L"CoInitializeEx 2"));
    EXPECT_EQ(MainWindow(), nullptr);
    EXPECT_FALSE(std::filesystem::exists(log));
    EXPECT_THAT(boxes, IsEmpty());
}

TEST_F(EntryPointTest, ExitsWhenMediaFoundationCannotBeStarted) {
    mediaResult = E_NOTIMPL;
    EXPECT_EQ(Main(L""), 1);
    EXPECT_THAT(browser.TakeCalls(), ElementsAre(L"CoInitializeEx 2", L"MFStartup 131184 0", L"CoUninitialize"));
    EXPECT_EQ(MainWindow(), nullptr);
    EXPECT_FALSE(std::filesystem::exists(log));
    EXPECT_THAT(boxes, IsEmpty());
}

TEST_F(EntryPointTest, ReturnsTheExitCodeOfTheRun) {
    EXPECT_EQ(Main(L"", [] { PostQuitMessage(5); }), 5);
}

TEST_F(EntryPointTest, ShutsEverythingDownAfterAFailedStart) {
    browser.Fail(L"CreateCoreWebView2EnvironmentWithOptions", E_FAIL);
    EXPECT_EQ(Main(L""), 1);
    const auto calls = browser.TakeCalls();
    ASSERT_EQ(calls.size(), 5U);
    EXPECT_EQ(calls[3], L"MFShutdown");
    EXPECT_EQ(calls[4], L"CoUninitialize");
}

TEST_F(EntryPointTest, ShutsEverythingDownWhenMemoryRunsOut) {
    failingAllocation = 0;
    EXPECT_EQ(Main(L"--url=https://page.example/with-an-address-on-the-heap"), 1);
    EXPECT_THAT(browser.TakeCalls(),
                ElementsAre(L"CoInitializeEx 2", L"MFStartup 131184 0", L"MFShutdown", L"CoUninitialize"));
}

TEST_F(EntryPointTest, NoAllocationFailureEscapes) {
    do {
        failingAllocation = failingAllocation ? *failingAllocation + 1 : 0;
        const int exitCode = Main(L"--url=https://page.example/with-an-address-on-the-heap");
        EndReceiver();
        EXPECT_TRUE(exitCode == 0 || (allocationFailed && exitCode == 1)) << exitCode;
        const auto calls = browser.TakeCalls();
        EXPECT_THAT(std::vector<std::wstring>(calls.end() - 2, calls.end()),
                    ElementsAre(L"MFShutdown", L"CoUninitialize"));
    } while (allocationFailed);
    EXPECT_GT(*failingAllocation, 0U);
}

TEST_F(EntryPointTest, OpensThePageOfTheCommandLine) {
    const std::wstring standard = L"Navigate " VISTEL_RECEIVER_URL L"?clientVersion=0.1.3";
    EXPECT_EQ(NavigationOf(nullptr), standard);
    EXPECT_EQ(NavigationOf(L""), standard);
    EXPECT_EQ(NavigationOf(L"--embedded "), standard);
    EXPECT_EQ(LogLines().at(6), "Receiver URL: " VISTEL_RECEIVER_URL "?clientVersion=0.1.3");
    EXPECT_EQ(NavigationOf(L"--url=\"https://page.example/a b\""),
              L"Navigate https://page.example/a b?clientVersion=0.1.3");
    EXPECT_THAT(NavigationOf(L"--embedded"), testing::StartsWith(L"NavigateToString "));
    EXPECT_THAT(NavigationOf(L"--url=\"\""), testing::StartsWith(L"NavigateToString "));
}

TEST_F(EntryPointTest, SendsTheInstallationIdToThePage) {
    std::filesystem::create_directory(programData / L"Vistel");
    WriteBytes(programData / L"Vistel" / L"installation-id.txt", "01234567-89AB-cdef-0123-456789abcdef\r\n");
    EXPECT_EQ(
        NavigationOf(L""),
        L"Navigate " VISTEL_RECEIVER_URL L"?installationId=01234567-89AB-cdef-0123-456789abcdef&clientVersion=0.1.3");
}

} // namespace
} // namespace receiver
