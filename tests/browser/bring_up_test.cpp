// From the environment request to the navigation, with the fake browser: calls, log lines, error boxes and results.
#include "page/receiver_page.h"
#include "tests/support/shell_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

namespace receiver {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr wchar_t Address[] = L"https://page.example/";
constexpr wchar_t AddressWithQuery[] = L"https://page.example/?clientVersion=0.1.3";
constexpr char UrlLine[] = "Receiver URL: https://page.example/?clientVersion=0.1.3";
constexpr char EnvironmentLine[] = "WebView2 environment callback";
constexpr char ControllerLine[] = "WebView2 controller callback";
constexpr char NavigationLine[] = "Receiver page navigation requested";
constexpr UINT ErrorBox = MB_OK | MB_ICONERROR;

std::wstring BoundsCall(HWND window) {
    RECT client{};
    GetClientRect(window, &client);
    return L"put_Bounds 0 0 " + std::to_wstring(client.right) + L' ' + std::to_wstring(client.bottom);
}

class BringUpTest : public ShellTest {
protected:
    std::wstring EnvironmentCall() const {
        return L"CreateCoreWebView2EnvironmentWithOptions (null) " + localAppData.wstring() + L"\\Vistel\\WebView2 0";
    }
    static std::wstring ControllerCall(HWND window) {
        return L"CreateCoreWebView2Controller " + std::to_wstring(reinterpret_cast<std::uintptr_t>(window));
    }
    // Every call of a successful start; the last but one is the navigation.
    std::vector<std::wstring> AllCalls(HWND window, const std::wstring& navigation) const {
        return {EnvironmentCall(),
                ControllerCall(window),
                L"get_CoreWebView2",
                BoundsCall(window),
                L"get_Settings",
                L"put_AreDefaultContextMenusEnabled 0",
                L"put_AreDevToolsEnabled 0",
                L"put_IsStatusBarEnabled 0",
                L"add_WebMessageReceived",
                L"add_PermissionRequested",
                L"add_NavigationCompleted",
                navigation,
                L"released Settings"};
    }
    // The calls up to and including the first of that name.
    std::vector<std::wstring> CallsUpTo(HWND window, const std::wstring& last) const {
        std::vector<std::wstring> calls = AllCalls(window, L"Navigate " + std::wstring(AddressWithQuery));
        while (!calls.back().starts_with(last)) {
            calls.pop_back();
        }
        return calls;
    }
    void ExpectOneBox(HWND owner, const std::wstring& text) const {
        ASSERT_EQ(boxes.size(), 1U);
        EXPECT_EQ(boxes[0].owner, owner);
        EXPECT_EQ(boxes[0].text, text);
        EXPECT_EQ(boxes[0].caption, L"Vistel");
        EXPECT_EQ(boxes[0].flags, ErrorBox);
    }
    void ExpectReleasedInOrder(const std::vector<std::wstring>& objects) {
        (void)browser.TakeCalls();
        EndReceiver();
        EXPECT_THAT(browser.TakeCalls(), ElementsAreArray(objects));
    }
};

TEST_F(BringUpTest, OpensTheHostedPage) {
    EXPECT_EQ(Run(Address,
                  [this] {
                      const HWND window = MainWindow();
                      EXPECT_EQ(browser.CompleteEnvironment(), S_OK);
                      EXPECT_EQ(browser.CompleteController(), S_OK);
                      EXPECT_THAT(browser.TakeCalls(),
                                  ElementsAreArray(AllCalls(window, L"Navigate " + std::wstring(AddressWithQuery))));
                      EXPECT_TRUE(IsWindowVisible(window));
                  }),
              0);
    EXPECT_THAT(LogLines(), ElementsAreArray(StartLines({EnvironmentLine, ControllerLine, UrlLine, NavigationLine})));
    EXPECT_THAT(boxes, IsEmpty());
    ExpectReleasedInOrder({L"released WebView", L"released Controller", L"released Environment"});
}

TEST_F(BringUpTest, OpensTheBuiltInPageWhenThereIsNoAddress) {
    Run(L"", [this] {
        const HWND window = MainWindow();
        browser.CompleteBoth();
        EXPECT_THAT(browser.TakeCalls(),
                    ElementsAreArray(AllCalls(window, L"NavigateToString " + std::wstring(ReceiverPage))));
    });
    EXPECT_THAT(LogLines(), ElementsAreArray(StartLines({EnvironmentLine, ControllerLine, NavigationLine})));
}

TEST_F(BringUpTest, KeepsTheQueryOfAnAddress) {
    Run(L"https://page.example/?room=7", [this] { browser.CompleteBoth(); });
    EXPECT_EQ(LogLines().at(LogLines().size() - 2), "Receiver URL: https://page.example/?room=7&clientVersion=0.1.3");
}

struct CompletionFailure {
    HRESULT result;
    bool withObject;
    HRESULT returned;
    const char* logged;
    const wchar_t* shown;
};

constexpr CompletionFailure CompletionFailures[] = {
    {E_ACCESSDENIED, false, E_ACCESSDENIED, " (HRESULT 0x80070005)", L"\n\nHRESULT: 0x80070005"},
    {E_FAIL, true, E_FAIL, " (HRESULT 0x80004005)", L"\n\nHRESULT: 0x80004005"},
    {HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), false, HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), " (HRESULT 0x80070002)",
     L"\n\nHRESULT: 0x80070002"},
    {S_OK, false, S_OK, "", L"\n\nHRESULT: 0x00000000"},
    {S_FALSE, false, S_FALSE, "", L"\n\nHRESULT: 0x00000001"},
};

TEST_F(BringUpTest, ShowsThatTheRuntimeIsUnavailable) {
    Run(Address, [this] {
        for (const CompletionFailure& failure : CompletionFailures) {
            boxes.clear();
            EXPECT_EQ(browser.CompleteEnvironment(failure.result, failure.withObject), failure.returned);
            ExpectOneBox(MainWindow(), std::wstring(L"WebView2 Runtime is unavailable.") + failure.shown);
            const auto lines = LogLines();
            EXPECT_EQ(lines.at(lines.size() - 2), std::string(EnvironmentLine) + failure.logged);
            EXPECT_EQ(lines.back(), std::string("WebView2 Runtime is unavailable.") + failure.logged);
        }
        EXPECT_THAT(browser.TakeCalls(), ElementsAre(EnvironmentCall(), L"released Environment"));
        EXPECT_TRUE(IsWindow(MainWindow()));
    });
    ExpectReleasedInOrder({});
}

TEST_F(BringUpTest, ShowsThatTheControllerCannotBeCreated) {
    Run(Address, [this] {
        const HWND window = MainWindow();
        EXPECT_EQ(browser.CompleteEnvironment(), S_OK);
        for (const CompletionFailure& failure : CompletionFailures) {
            boxes.clear();
            EXPECT_EQ(browser.CompleteController(failure.result, failure.withObject), failure.returned);
            ExpectOneBox(window, std::wstring(L"Unable to create the Vistel browser controller.") + failure.shown);
            const auto lines = LogLines();
            EXPECT_EQ(lines.at(lines.size() - 2), std::string(ControllerLine) + failure.logged);
            EXPECT_EQ(lines.back(), std::string("Unable to create the Vistel browser controller.") + failure.logged);
        }
        EXPECT_THAT(browser.TakeCalls(),
                    ElementsAre(EnvironmentCall(), ControllerCall(window), L"released Controller"));
        EXPECT_TRUE(IsWindow(window));
    });
    ExpectReleasedInOrder({L"released Environment"});
}

TEST_F(BringUpTest, StopsSilentlyWhenTheControllerRequestFails) {
    browser.Fail(L"CreateCoreWebView2Controller", E_ABORT);
    Run(Address, [this] {
        const HWND window = MainWindow();
        EXPECT_EQ(browser.CompleteEnvironment(), E_ABORT);
        EXPECT_THAT(browser.TakeCalls(), ElementsAre(EnvironmentCall(), ControllerCall(window)));
        EXPECT_TRUE(IsWindow(window));
    });
    EXPECT_THAT(LogLines(), ElementsAreArray(StartLines({EnvironmentLine})));
    EXPECT_THAT(boxes, IsEmpty());
    ExpectReleasedInOrder({L"released Environment"});
}

class SilentStopTest : public BringUpTest {
protected:
    void ExpectSilentStop(const std::wstring& method, bool withSettings) {
        browser.Fail(method, RPC_E_WRONG_THREAD);
        Run(Address, [&, this] {
            const HWND window = MainWindow();
            EXPECT_EQ(browser.CompleteEnvironment(), S_OK);
            EXPECT_EQ(browser.CompleteController(), RPC_E_WRONG_THREAD);
            auto calls = CallsUpTo(window, method);
            if (withSettings) {
                calls.push_back(L"released Settings");
            }
            EXPECT_THAT(browser.TakeCalls(), ElementsAreArray(calls));
            EXPECT_TRUE(IsWindow(window));
        });
        EXPECT_THAT(LogLines(), ElementsAreArray(StartLines({EnvironmentLine, ControllerLine})));
        EXPECT_THAT(boxes, IsEmpty());
    }
};

TEST_F(SilentStopTest, WithoutAWebView) {
    ExpectSilentStop(L"get_CoreWebView2", false);
    ExpectReleasedInOrder({L"released Controller", L"released Environment"});
}

TEST_F(SilentStopTest, WithoutWebMessages) {
    ExpectSilentStop(L"add_WebMessageReceived", true);
    ExpectReleasedInOrder({L"released WebView", L"released Controller", L"released Environment"});
}

TEST_F(SilentStopTest, WithoutPermissionRequests) {
    ExpectSilentStop(L"add_PermissionRequested", true);
    ExpectReleasedInOrder({L"released WebView", L"released Controller", L"released Environment"});
}

TEST_F(SilentStopTest, WithoutNavigationEvents) {
    ExpectSilentStop(L"add_NavigationCompleted", true);
    ExpectReleasedInOrder({L"released WebView", L"released Controller", L"released Environment"});
}

TEST_F(BringUpTest, ContinuesWithoutSettings) {
    browser.Fail(L"get_Settings", E_NOTIMPL);
    Run(Address, [this] {
        browser.CompleteBoth();
        const auto calls = browser.TakeCalls();
        EXPECT_EQ(calls.at(4), L"get_Settings");
        EXPECT_EQ(calls.at(5), L"add_WebMessageReceived");
        EXPECT_EQ(calls.back(), L"Navigate " + std::wstring(AddressWithQuery));
    });
    EXPECT_THAT(LogLines(), ElementsAreArray(StartLines({EnvironmentLine, ControllerLine, UrlLine, NavigationLine})));
    EXPECT_THAT(boxes, IsEmpty());
}

TEST_F(BringUpTest, ContinuesWhenBoundsAndSettingsAreRefused) {
    for (const wchar_t* method :
         {L"put_Bounds", L"put_AreDefaultContextMenusEnabled", L"put_AreDevToolsEnabled", L"put_IsStatusBarEnabled"}) {
        browser.Fail(method, E_FAIL);
    }
    Run(Address, [this] {
        const HWND window = MainWindow();
        browser.CompleteBoth();
        EXPECT_THAT(browser.TakeCalls(),
                    ElementsAreArray(AllCalls(window, L"Navigate " + std::wstring(AddressWithQuery))));
    });
    EXPECT_THAT(boxes, IsEmpty());
}

TEST_F(BringUpTest, ShowsThatTheHostedPageCannotBeLoaded) {
    browser.Fail(L"Navigate", E_INVALIDARG);
    Run(Address, [this] {
        EXPECT_EQ(browser.CompleteEnvironment(), S_OK);
        EXPECT_EQ(browser.CompleteController(), E_INVALIDARG);
        ExpectOneBox(MainWindow(), L"Unable to load the receiver page.\n\nHRESULT: 0x80070057");
        EXPECT_EQ(browser.TakeCalls().back(), L"released Settings");
    });
    EXPECT_THAT(LogLines(), ElementsAreArray(StartLines({EnvironmentLine, ControllerLine, UrlLine,
                                                         "Receiver page navigation requested (HRESULT 0x80070057)",
                                                         "Unable to load the receiver page. (HRESULT 0x80070057)"})));
    ExpectReleasedInOrder({L"released WebView", L"released Controller", L"released Environment"});
}

TEST_F(BringUpTest, ShowsThatTheBuiltInPageCannotBeLoaded) {
    browser.Fail(L"NavigateToString", E_INVALIDARG);
    Run(L"", [this] {
        EXPECT_EQ(browser.CompleteEnvironment(), S_OK);
        EXPECT_EQ(browser.CompleteController(), E_INVALIDARG);
        ExpectOneBox(MainWindow(), L"Unable to load the receiver page.\n\nHRESULT: 0x80070057");
    });
    EXPECT_THAT(LogLines(), ElementsAreArray(StartLines({EnvironmentLine, ControllerLine,
                                                         "Receiver page navigation requested (HRESULT 0x80070057)",
                                                         "Unable to load the receiver page. (HRESULT 0x80070057)"})));
}

TEST_F(BringUpTest, StoringTheSameObjectsAgainKeepsThem) {
    Run(Address, [this] {
        browser.CompleteBoth();
        (void)browser.TakeCalls();
        browser.CompleteBoth();
        const auto calls = browser.TakeCalls();
        EXPECT_THAT(calls, testing::Not(testing::Contains(L"released Environment")));
        EXPECT_THAT(calls, testing::Not(testing::Contains(L"released Controller")));
        EXPECT_EQ(browser.RaiseNavigationCompleted(TRUE, COREWEBVIEW2_WEB_ERROR_STATUS_UNKNOWN), S_OK);
    });
    ExpectReleasedInOrder({L"released WebView", L"released Controller", L"released Environment"});
}

TEST_F(BringUpTest, ASecondControllerWithoutAWebViewRemovesTheBrowser) {
    browser.Fail(L"get_CoreWebView2", E_FAIL, 1);
    Run(Address, [this] {
        browser.CompleteBoth();
        (void)browser.TakeCalls();
        EXPECT_EQ(browser.CompleteController(), E_FAIL);
        EXPECT_THAT(browser.TakeCalls(), ElementsAre(L"released WebView", L"get_CoreWebView2"));
        EXPECT_EQ(app->PostJsonToPage(L"{}"), E_POINTER);
        EXPECT_THAT(browser.TakeCalls(), IsEmpty());
    });
}

TEST_F(BringUpTest, NoAllocationFailureEscapes) {
    OpenBrowser();
    bool failed = true;
    bool reported = false;
    for (unsigned allocation = 0; failed; ++allocation) {
        (void)browser.TakeCalls();
        const AllocationFault fault(allocation);
        const HRESULT environment = browser.CompleteEnvironment();
        const bool controllerRequested = !browser.TakeCalls().empty();
        EXPECT_EQ(environment, controllerRequested ? S_OK : E_OUTOFMEMORY) << allocation;
        const HRESULT controller = browser.CompleteController();
        EXPECT_TRUE(controller == S_OK || controller == E_OUTOFMEMORY) << controller;
        reported = reported || controller == E_OUTOFMEMORY;
        failed = fault.Happened();
    }
    EXPECT_TRUE(reported);
}

TEST_F(BringUpTest, AllowsAutoplayAndLeavesEveryOtherPermissionAlone) {
    OpenBrowser();
    for (int kind = 0; kind <= 13; ++kind) {
        auto state = COREWEBVIEW2_PERMISSION_STATE_DEFAULT;
        EXPECT_EQ(browser.RaisePermissionRequest(static_cast<COREWEBVIEW2_PERMISSION_KIND>(kind), state), S_OK);
        if (kind == 9) {
            EXPECT_EQ(state, COREWEBVIEW2_PERMISSION_STATE_ALLOW);
            EXPECT_THAT(browser.TakeCalls(), ElementsAre(L"get_PermissionKind", L"put_State 1"));
        } else {
            EXPECT_EQ(state, COREWEBVIEW2_PERMISSION_STATE_DEFAULT);
            EXPECT_THAT(browser.TakeCalls(), ElementsAre(L"get_PermissionKind")) << kind;
        }
    }
}

TEST_F(BringUpTest, LeavesAPermissionAloneWhenItsKindCannotBeRead) {
    OpenBrowser();
    browser.Fail(L"get_PermissionKind", E_FAIL);
    auto state = COREWEBVIEW2_PERMISSION_STATE_DENY;
    EXPECT_EQ(browser.RaisePermissionRequest(COREWEBVIEW2_PERMISSION_KIND_AUTOPLAY, state), S_OK);
    EXPECT_EQ(state, COREWEBVIEW2_PERMISSION_STATE_DENY);
    EXPECT_THAT(browser.TakeCalls(), ElementsAre(L"get_PermissionKind"));
}

TEST_F(BringUpTest, ReturnsTheCodeOfARefusedPermission) {
    OpenBrowser();
    browser.Fail(L"put_State", E_ABORT);
    auto state = COREWEBVIEW2_PERMISSION_STATE_DEFAULT;
    EXPECT_EQ(browser.RaisePermissionRequest(COREWEBVIEW2_PERMISSION_KIND_AUTOPLAY, state), E_ABORT);
}

TEST_F(BringUpTest, LogsTheResultOfANavigation) {
    OpenBrowser();
    EXPECT_EQ(browser.RaiseNavigationCompleted(TRUE, COREWEBVIEW2_WEB_ERROR_STATUS_UNKNOWN), S_OK);
    browser.source = L"https://gone.example/";
    EXPECT_EQ(browser.RaiseNavigationCompleted(FALSE, COREWEBVIEW2_WEB_ERROR_STATUS_HOST_NAME_NOT_RESOLVED), S_OK);
    const auto lines = LogLines();
    EXPECT_EQ(lines.at(lines.size() - 2),
              "Navigation completed: success=1, status=0, source=https://receiver.example/page");
    EXPECT_EQ(lines.back(), "Navigation completed: success=0, status=13, source=https://gone.example/");
    EXPECT_THAT(boxes, IsEmpty());
}

TEST_F(BringUpTest, LogsZeroOrNothingForANavigationValueThatCannotBeRead) {
    OpenBrowser();
    browser.Fail(L"get_IsSuccess", E_FAIL, 0);
    EXPECT_EQ(browser.RaiseNavigationCompleted(TRUE, COREWEBVIEW2_WEB_ERROR_STATUS_TIMEOUT), S_OK);
    EXPECT_EQ(LogLines().back(), "Navigation completed: success=0, status=7, source=https://receiver.example/page");
    browser.Fail(L"get_WebErrorStatus", E_FAIL, 1);
    browser.Fail(L"get_Source", E_FAIL, 1);
    EXPECT_EQ(browser.RaiseNavigationCompleted(TRUE, COREWEBVIEW2_WEB_ERROR_STATUS_TIMEOUT), S_OK);
    EXPECT_EQ(LogLines().back(), "Navigation completed: success=1, status=0, source=");
}

} // namespace
} // namespace receiver
