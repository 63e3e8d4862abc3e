// Brings the browser up: environment, controller, settings, event handlers, navigation; and the one permission granted.

#include "app/receiver_app.h"
#include "app/receiver_log.h"
#include "page/receiver_page.h"
#include "platform/com_callback.h"
#include "platform/hresult.h"

#include <string>

namespace receiver {
namespace {

template <typename Interface, const IID& InterfaceId, auto Operation>
using AppCallback = ComCallback<ReceiverApp, Interface, InterfaceId, Operation>;

using EnvironmentCallback =
    AppCallback<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler,
                IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler, &ReceiverApp::OnEnvironmentCreated>;
using ControllerCallback =
    AppCallback<ICoreWebView2CreateCoreWebView2ControllerCompletedHandler,
                IID_ICoreWebView2CreateCoreWebView2ControllerCompletedHandler, &ReceiverApp::OnControllerCreated>;
using WebMessageCallback =
    AppCallback<ICoreWebView2WebMessageReceivedEventHandler, IID_ICoreWebView2WebMessageReceivedEventHandler,
                &ReceiverApp::OnWebMessageReceived>;
using PermissionCallback =
    AppCallback<ICoreWebView2PermissionRequestedEventHandler, IID_ICoreWebView2PermissionRequestedEventHandler,
                &ReceiverApp::OnPermissionRequested>;
using NavigationCallback =
    AppCallback<ICoreWebView2NavigationCompletedEventHandler, IID_ICoreWebView2NavigationCompletedEventHandler,
                &ReceiverApp::OnNavigationCompleted>;

} // namespace

bool ReceiverApp::RequestEnvironment() {
    const auto handler = MakeCallback<EnvironmentCallback>(*this);
    const HRESULT result =
        handler ? CreateCoreWebView2EnvironmentWithOptions(nullptr, userDataFolder.c_str(), nullptr, handler.Get())
                : E_OUTOFMEMORY;
    if (FAILED(result)) {
        ShowFatalError(L"Unable to start the WebView2 environment.", result);
    }
    return SUCCEEDED(result);
}

HRESULT ReceiverApp::OnEnvironmentCreated(HRESULT result, ICoreWebView2Environment* createdEnvironment) {
    ReceiverLog::Write(L"WebView2 environment callback", result);
    if (FAILED(result) || createdEnvironment == nullptr) {
        ShowFatalError(L"WebView2 Runtime is unavailable.", result);
        return result;
    }
    environment = ComPtr(createdEnvironment);
    const auto handler = MakeCallback<ControllerCallback>(*this);
    return handler ? environment->CreateCoreWebView2Controller(window, handler.Get()) : E_OUTOFMEMORY;
}

HRESULT ReceiverApp::OnControllerCreated(HRESULT result, ICoreWebView2Controller* createdController) {
    ReceiverLog::Write(L"WebView2 controller callback", result);
    if (FAILED(result) || createdController == nullptr) {
        ShowFatalError(L"Unable to create the Vistel browser controller.", result);
        return result;
    }
    controller = ComPtr(createdController);
    RETURN_IF_FAILED(controller->get_CoreWebView2(webView.Put()));
    FitBrowserToWindow();

    ComPtr<ICoreWebView2Settings> settings;
    if (SUCCEEDED(webView->get_Settings(settings.Put()))) {
        // The page works with any of these left on.
        (void)settings->put_AreDefaultContextMenusEnabled(FALSE);
        (void)settings->put_AreDevToolsEnabled(FALSE);
        (void)settings->put_IsStatusBarEnabled(FALSE);
    }
    RETURN_IF_FAILED(RegisterHandlers());

    if (!receiverAddress.empty()) {
        ReceiverLog::Write(L"Receiver URL: ", receiverAddress);
    }
    const HRESULT navigation = NavigateToPage();
    ReceiverLog::Write(L"Receiver page navigation requested", navigation);
    if (FAILED(navigation)) {
        ShowFatalError(L"Unable to load the receiver page.", navigation);
    }
    return navigation;
}

HRESULT ReceiverApp::RegisterHandlers() {
    const auto webMessages = MakeCallback<WebMessageCallback>(*this);
    const auto permissions = MakeCallback<PermissionCallback>(*this);
    const auto navigations = MakeCallback<NavigationCallback>(*this);
    if (!webMessages || !permissions || !navigations) {
        return E_OUTOFMEMORY;
    }
    RETURN_IF_FAILED(webView->add_WebMessageReceived(webMessages.Get(), &messageTokens[0]));
    RETURN_IF_FAILED(webView->add_PermissionRequested(permissions.Get(), &messageTokens[1]));
    return webView->add_NavigationCompleted(navigations.Get(), &messageTokens[2]);
}

HRESULT ReceiverApp::NavigateToPage() noexcept {
    return receiverAddress.empty() ? webView->NavigateToString(ReceiverPage)
                                   : webView->Navigate(receiverAddress.c_str());
}

HRESULT ReceiverApp::OnPermissionRequested(ICoreWebView2*, ICoreWebView2PermissionRequestedEventArgs* args) noexcept {
    COREWEBVIEW2_PERMISSION_KIND kind = COREWEBVIEW2_PERMISSION_KIND_UNKNOWN_PERMISSION;
    if (FAILED(args->get_PermissionKind(&kind)) || kind != COREWEBVIEW2_PERMISSION_KIND_AUTOPLAY) {
        return S_OK; // All other permissions keep the browser's default handling.
    }
    return args->put_State(COREWEBVIEW2_PERMISSION_STATE_ALLOW);
}

HRESULT ReceiverApp::OnNavigationCompleted(ICoreWebView2*, ICoreWebView2NavigationCompletedEventArgs* args) {
    BOOL success = FALSE;
    COREWEBVIEW2_WEB_ERROR_STATUS status = COREWEBVIEW2_WEB_ERROR_STATUS_UNKNOWN;
    CoTaskString source;
    // A value that cannot be read is logged as 0 or empty.
    (void)args->get_IsSuccess(&success);
    (void)args->get_WebErrorStatus(&status);
    if (webView) {
        (void)webView->get_Source(source.Put());
    }
    ReceiverLog::Write(L"Navigation completed: success=" + std::to_wstring(success) + L", status=" +
                       std::to_wstring(static_cast<int>(status)) + L", source=" + (source ? source.Get() : L""));
    return S_OK;
}

} // namespace receiver
