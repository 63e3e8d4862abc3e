// What the program expects of the loader and of the WebView2 runtime, found as the program finds it.
#include "platform/com_callback.h"
#include "platform/com_ptr.h"
#include "platform/handles.h"
#include "tests/contract/clause.h"
#include "tests/support/apartment.h"
#include "tests/support/test_files.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <objbase.h> // The vendor's WebView2.h needs its macros.

#include <WebView2.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace receiver {
namespace {

constexpr ULONGLONG LimitMs = 60000;

// Runs the message loop.
bool Until(const std::function<bool()>& condition) {
    const ULONGLONG end = GetTickCount64() + LimitMs;
    while (!condition() && GetTickCount64() < end) {
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 100, QS_ALLINPUT);
        MSG message{};
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != 0) {
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
    }
    return condition();
}

// The search for a runtime, without starting one.
class LoaderContract : public testing::Test {
protected:
    // What the caller learns, from the call itself or later from its handler.
    HRESULT Search(const wchar_t* runtimeFolder) {
        const auto created = MakeCallback<EnvironmentCreated>(*this);
        outcome =
            CreateCoreWebView2EnvironmentWithOptions(runtimeFolder, folder.Path().c_str(), nullptr, created.Get());
        if (outcome == S_OK) {
            EXPECT_TRUE(Until([this] { return outcome != S_OK; }));
        }
        return outcome;
    }
    HRESULT OnEnvironment(HRESULT result, ICoreWebView2Environment* environment) {
        EXPECT_EQ(environment, nullptr);
        outcome = result;
        return S_OK;
    }
    using EnvironmentCreated =
        ComCallback<LoaderContract, ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler,
                    IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler, &LoaderContract::OnEnvironment>;

    const Apartment apartment;
    const PrivateFolder folder;
    HRESULT outcome = S_OK;
};

constexpr HRESULT FileNotFound = static_cast<HRESULT>(0x80070002);

TEST_F(LoaderContract, AFolderWithoutARuntimeIsNotFound) {
    Source("WebView2 Win32 C++ Globals");
    EXPECT_EQ(Search(folder.Path().c_str()), FileNotFound);
    EXPECT_EQ(Search((folder.Path() / L"missing").c_str()), FileNotFound);
}

TEST_F(LoaderContract, TheVariableForTheFolderComesFirst) {
    Source("WebView2 Win32 C++ Globals");
    const VariableScope variable(L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", folder.Path().c_str());
    EXPECT_EQ(Search(nullptr), FileNotFound);
}

// A window with a browser in it, which records what the runtime calls.
class BrowserContract : public testing::Test {
protected:
    BrowserContract() { SimulatedByTheRig(); }

    void SetUp() override {
        window = CreateWindowExW(0, L"STATIC", L"", WS_OVERLAPPEDWINDOW, 0, 0, 640, 480, nullptr, nullptr,
                                 GetModuleHandleW(nullptr), nullptr);
        ASSERT_NE(window, nullptr);
        ShowWindow(window, SW_SHOWNOACTIVATE);
        const auto created = MakeCallback<EnvironmentCreated>(*this);
        ASSERT_EQ(CreateCoreWebView2EnvironmentWithOptions(nullptr, folder.Path().c_str(), nullptr, created.Get()),
                  S_OK);
        environmentCalledInside = environment.Get() != nullptr;
        ASSERT_TRUE(Until([this] { return static_cast<bool>(environment); }));
        const auto controlled = MakeCallback<ControllerCreated>(*this);
        ASSERT_EQ(environment->CreateCoreWebView2Controller(window, controlled.Get()), S_OK);
        controllerCalledInside = controller.Get() != nullptr;
        ASSERT_TRUE(Until([this] { return static_cast<bool>(controller); }));
        ASSERT_EQ(controller->get_CoreWebView2(webView.Put()), S_OK);
        EventRegistrationToken token{};
        ASSERT_EQ(webView->add_NavigationCompleted(MakeCallback<Navigated>(*this).Get(), &token), S_OK);
        ASSERT_EQ(webView->add_WebMessageReceived(MakeCallback<MessageReceived>(*this).Get(), &token), S_OK);
        ASSERT_EQ(webView->add_PermissionRequested(MakeCallback<PermissionRequested>(*this).Get(), &token), S_OK);
        RECT client{};
        GetClientRect(window, &client);
        ASSERT_EQ(controller->put_Bounds(client), S_OK);
    }
    void TearDown() override {
        if (controller) {
            EXPECT_EQ(controller->Close(), S_OK);
        }
        webView.Reset();
        controller.Reset();
        environment.Reset();
        DestroyWindow(window);
    }

    void Show(const wchar_t* html) {
        const std::size_t before = navigations.size();
        ASSERT_EQ(webView->NavigateToString(html), S_OK);
        ASSERT_TRUE(Until([&] { return navigations.size() > before; }));
        EXPECT_EQ(navigations.back(), 1);
    }
    bool Received(const std::wstring& text) {
        return Until([&] { return std::find(messages.begin(), messages.end(), text) != messages.end(); });
    }

    HRESULT OnEnvironment(HRESULT result, ICoreWebView2Environment* created) {
        NoteThread();
        EXPECT_EQ(result, S_OK);
        environment = ComPtr<ICoreWebView2Environment>(created);
        return S_OK;
    }
    HRESULT OnController(HRESULT result, ICoreWebView2Controller* created) {
        NoteThread();
        EXPECT_EQ(result, S_OK);
        controller = ComPtr<ICoreWebView2Controller>(created);
        return S_OK;
    }
    HRESULT OnNavigation(ICoreWebView2*, ICoreWebView2NavigationCompletedEventArgs* args) {
        NoteThread();
        BOOL success = FALSE;
        EXPECT_EQ(args->get_IsSuccess(&success), S_OK);
        navigations.push_back(success);
        return S_OK;
    }
    // A text as it is; anything else as "json: " and its JSON.
    HRESULT OnMessage(ICoreWebView2*, ICoreWebView2WebMessageReceivedEventArgs* args) {
        NoteThread();
        CoTaskString text;
        const HRESULT result = args->TryGetWebMessageAsString(text.Put());
        if (SUCCEEDED(result)) {
            messages.emplace_back(text.Get());
            return S_OK;
        }
        EXPECT_EQ(result, E_INVALIDARG);
        EXPECT_EQ(args->get_WebMessageAsJson(text.Put()), S_OK);
        messages.push_back(std::wstring(L"json: ") + text.Get());
        return S_OK;
    }
    HRESULT OnPermission(ICoreWebView2*, ICoreWebView2PermissionRequestedEventArgs* args) {
        NoteThread();
        COREWEBVIEW2_PERMISSION_KIND kind = COREWEBVIEW2_PERMISSION_KIND_UNKNOWN_PERMISSION;
        EXPECT_EQ(args->get_PermissionKind(&kind), S_OK);
        permissions.push_back(kind);
        return answer == COREWEBVIEW2_PERMISSION_STATE_DEFAULT ? S_OK : args->put_State(answer);
    }
    void NoteThread() const { EXPECT_EQ(GetCurrentThreadId(), thread); }

    using EnvironmentCreated =
        ComCallback<BrowserContract, ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler,
                    IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler, &BrowserContract::OnEnvironment>;
    using ControllerCreated =
        ComCallback<BrowserContract, ICoreWebView2CreateCoreWebView2ControllerCompletedHandler,
                    IID_ICoreWebView2CreateCoreWebView2ControllerCompletedHandler, &BrowserContract::OnController>;
    using Navigated = ComCallback<BrowserContract, ICoreWebView2NavigationCompletedEventHandler,
                                  IID_ICoreWebView2NavigationCompletedEventHandler, &BrowserContract::OnNavigation>;
    using MessageReceived = ComCallback<BrowserContract, ICoreWebView2WebMessageReceivedEventHandler,
                                        IID_ICoreWebView2WebMessageReceivedEventHandler, &BrowserContract::OnMessage>;
    using PermissionRequested =
        ComCallback<BrowserContract, ICoreWebView2PermissionRequestedEventHandler,
                    IID_ICoreWebView2PermissionRequestedEventHandler, &BrowserContract::OnPermission>;

    const Apartment apartment;
    const PrivateFolder folder;
    const DWORD thread = GetCurrentThreadId();
    HWND window = nullptr;
    ComPtr<ICoreWebView2Environment> environment;
    ComPtr<ICoreWebView2Controller> controller;
    ComPtr<ICoreWebView2> webView;
    bool environmentCalledInside = false; // the handler, before the call that was given it returned
    bool controllerCalledInside = false;
    std::vector<BOOL> navigations; // the success of each
    std::vector<std::wstring> messages;
    std::vector<COREWEBVIEW2_PERMISSION_KIND> permissions; // asked for
    COREWEBVIEW2_PERMISSION_STATE answer = COREWEBVIEW2_PERMISSION_STATE_DEFAULT;
};

constexpr wchar_t EmptyPage[] = L"<p>a page</p>";

TEST_F(BrowserContract, CallsHandlersLaterOnTheSameThread) {
    Source("Threading model for WebView2 apps");
    EXPECT_FALSE(environmentCalledInside);
    EXPECT_FALSE(controllerCalledInside);
    Show(EmptyPage); // The handlers compare the threads.
}

TEST_F(BrowserContract, TakesTheSettingsThatTheReceiverTurnsOff) {
    Source("ICoreWebView2Settings");
    ComPtr<ICoreWebView2Settings> settings;
    ASSERT_EQ(webView->get_Settings(settings.Put()), S_OK);
    EXPECT_EQ(settings->put_AreDefaultContextMenusEnabled(FALSE), S_OK);
    EXPECT_EQ(settings->put_AreDevToolsEnabled(FALSE), S_OK);
    EXPECT_EQ(settings->put_IsStatusBarEnabled(FALSE), S_OK);
    BOOL menus = TRUE;
    BOOL tools = TRUE;
    BOOL statusBar = TRUE;
    EXPECT_EQ(settings->get_AreDefaultContextMenusEnabled(&menus), S_OK);
    EXPECT_EQ(settings->get_AreDevToolsEnabled(&tools), S_OK);
    EXPECT_EQ(settings->get_IsStatusBarEnabled(&statusBar), S_OK);
    EXPECT_TRUE(menus == FALSE && tools == FALSE && statusBar == FALSE);
}

TEST_F(BrowserContract, ReportsANavigationThatFailedAndItsAddress) {
    Source("ICoreWebView2NavigationCompletedEventArgs");
    constexpr wchar_t ClosedPort[] = L"http://127.0.0.1:2/";
    ASSERT_EQ(webView->Navigate(ClosedPort), S_OK);
    ASSERT_TRUE(Until([this] { return !navigations.empty(); }));
    EXPECT_EQ(navigations.back(), FALSE);
    CoTaskString address;
    ASSERT_EQ(webView->get_Source(address.Put()), S_OK);
    EXPECT_STREQ(address.Get(), ClosedPort);
}

TEST_F(BrowserContract, DeliversTextsAndOtherMessagesInTheirOrder) {
    Source("ICoreWebView2WebMessageReceivedEventArgs");
    Show(L"<script>for (const message of ['one', { a: 1 }, 'two', '', null, 'last']) "
         L"chrome.webview.postMessage(message);</script>");
    ASSERT_TRUE(Received(L"last"));
    EXPECT_EQ(messages, (std::vector<std::wstring>{L"one", L"json: {\"a\":1}", L"two", L"", L"json: null", L"last"}));
}

TEST_F(BrowserContract, PostsJsonToThePage) {
    Source("ICoreWebView2::PostWebMessageAsJson");
    Show(L"<script>chrome.webview.addEventListener('message', "
         L"(event) => chrome.webview.postMessage(`${event.data.type} ${typeof event.data}`));</script>");
    EXPECT_EQ(webView->PostWebMessageAsJson(LR"({"type":"diagnostics"})"), S_OK);
    EXPECT_TRUE(Received(L"diagnostics object"));
    EXPECT_EQ(webView->PostWebMessageAsJson(L"{not json"), E_INVALIDARG);
}

TEST_F(BrowserContract, ASharedBufferHoldsWhatThePageWroteBeforeItsMessageAndOutlivesThePage) {
    Source("ICoreWebView2_17::PostSharedBufferToScript");
    constexpr UINT64 Size = 8'294'400;
    ComPtr<ICoreWebView2Environment12> maker;
    ComPtr<ICoreWebView2_17> poster;
    ASSERT_EQ(environment.As(IID_ICoreWebView2Environment12, maker), S_OK);
    ASSERT_EQ(webView.As(IID_ICoreWebView2_17, poster), S_OK);
    ComPtr<ICoreWebView2SharedBuffer> buffer;
    ASSERT_EQ(maker->CreateSharedBuffer(Size, buffer.Put()), S_OK);
    BYTE* bytes = nullptr;
    ASSERT_EQ(buffer->get_Buffer(&bytes), S_OK);
    EXPECT_EQ(bytes[Size - 1], 0);
    Show(L"<script>chrome.webview.addEventListener('sharedbufferreceived', (event) => {"
         L"const bytes = new Uint8Array(event.getBuffer()); bytes[0] = 1; bytes[bytes.length - 1] = 77;"
         L"chrome.webview.postMessage(`slot ${event.additionalData.slot} ${bytes.length}`); });</script>");
    ASSERT_EQ(
        poster->PostSharedBufferToScript(buffer.Get(), COREWEBVIEW2_SHARED_BUFFER_ACCESS_READ_WRITE, LR"({"slot":0})"),
        S_OK);
    ASSERT_TRUE(Received(L"slot 0 8294400"));
    EXPECT_EQ(bytes[0], 1);
    EXPECT_EQ(bytes[Size - 1], 77);
    Show(EmptyPage);
    EXPECT_EQ(bytes[Size - 1], 77);
    EXPECT_EQ(buffer->Close(), S_OK);
}

TEST_F(BrowserContract, SoundPlaysWithoutAUserOnlyIfTheProgramAllowsIt) {
    Source("CoreWebView2PermissionKind Enum");
    constexpr wchar_t Page[] = LR"(<script>
            // A WAV file of a second: the bytes of its header and then one value all the time.
            const file = 'UklGRmYfAABXQVZFZm10IBAAAAABAAEAQB8AAEAfAAABAAgAZGF0YUIfAAAA' + 'A'.repeat(10668);
            new Audio(`data:audio/wav;base64,${file}`).play().then(
                () => chrome.webview.postMessage('plays'), (error) => chrome.webview.postMessage(error.name));
        </script>)";
    Show(Page);
    EXPECT_TRUE(Received(L"NotAllowedError"));
    answer = COREWEBVIEW2_PERMISSION_STATE_ALLOW;
    Show(Page);
    EXPECT_TRUE(Received(L"plays"));
    ASSERT_FALSE(permissions.empty());
    EXPECT_EQ(permissions.back(), COREWEBVIEW2_PERMISSION_KIND_AUTOPLAY);
}

TEST_F(BrowserContract, APageIsVisibleUnlessItsBoundsHaveNoArea) {
    Source("ICoreWebView2Controller::put_IsVisible");
    BOOL visible = FALSE;
    EXPECT_EQ(controller->get_IsVisible(&visible), S_OK);
    EXPECT_NE(visible, FALSE); // without having been asked
    Show(L"<script>const tell = () => chrome.webview.postMessage(document.visibilityState);"
         L"document.onvisibilitychange = tell; tell();</script>");
    EXPECT_TRUE(Received(L"visible"));
    messages.clear();
    ShowWindow(window, SW_MINIMIZE);
    EXPECT_EQ(controller->put_Bounds({}), S_OK);
    EXPECT_TRUE(Received(L"hidden"));
    ShowWindow(window, SW_RESTORE);
    EXPECT_EQ(controller->put_Bounds({0, 0, 320, 240}), S_OK);
    EXPECT_TRUE(Received(L"visible"));
}

TEST_F(BrowserContract, SurvivesThePagesProcessAndIsClosedByTheEndOfItsOwn) {
    Source("CoreWebView2ProcessFailedKind Enum");
    Show(EmptyPage);
    EXPECT_EQ(webView->Navigate(L"edge://kill"), S_OK); // ends the page's process
    EXPECT_EQ(webView->PostWebMessageAsJson(L"{}"), S_OK);
    EXPECT_EQ(webView->NavigateToString(L"<script>chrome.webview.postMessage('again');</script>"), S_OK);
    EXPECT_TRUE(Received(L"again"));

    EXPECT_EQ(webView->Navigate(L"edge://inducebrowsercrashforrealz"), S_OK); // ends the browser's process
    EXPECT_TRUE(Until([this] { return FAILED(webView->PostWebMessageAsJson(L"{}")); }));
    EXPECT_TRUE(FAILED(controller->put_Bounds({})));
    EXPECT_EQ(controller->Close(), S_OK);
}

TEST_F(BrowserContract, AClosedBrowserRefusesCalls) {
    Source("ICoreWebView2Controller::Close");
    Show(EmptyPage);
    EXPECT_EQ(controller->Close(), S_OK);
    EXPECT_EQ(webView->NavigateToString(EmptyPage), HRESULT_FROM_WIN32(ERROR_INVALID_STATE));
    EXPECT_EQ(webView->PostWebMessageAsJson(L"{}"), HRESULT_FROM_WIN32(ERROR_INVALID_STATE));
}

} // namespace
} // namespace receiver
