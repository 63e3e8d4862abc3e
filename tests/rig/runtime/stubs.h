// The methods that nothing here needs: each reports itself to the browser server as "stub NAME" and answers E_NOTIMPL.
#pragma once

#include "com_results.h"
#include "session.h"

#include "platform/com_object.h"

#include <WebView2.h>

#include <memory>
#include <utility>

// Declares a method that is only reported. The rest of the arguments are its parameter types.
#define RIG_STUB(name, ...)                                                                                            \
    HRESULT STDMETHODCALLTYPE name(__VA_ARGS__) noexcept override { return this->session->ReportStub(#name); }
// Both halves of an event; `handler` is the middle of the handler's interface name.
#define RIG_STUB_EVENT_OF(name, handler)                                                                               \
    RIG_STUB(add_##name, ICoreWebView2##handler##EventHandler*, EventRegistrationToken*)                               \
    RIG_STUB(remove_##name, EventRegistrationToken)
#define RIG_STUB_EVENT(name) RIG_STUB_EVENT_OF(name, name)

namespace rig {

// An object of a session. Enter stands at the top of every method that is implemented.
template <typename Interface, const IID&... Identifiers>
class SessionObject : public receiver::ComObject<Interface, Identifiers...> {
public:
    explicit SessionObject(std::shared_ptr<Session> newSession) : session(std::move(newSession)) {}

protected:
    [[nodiscard]] HRESULT Enter(const char* method) const { return session->Enter(method); }

    std::shared_ptr<Session> session;
};

class EnvironmentStubs
    : public SessionObject<ICoreWebView2Environment12, IID_ICoreWebView2Environment, IID_ICoreWebView2Environment2,
                           IID_ICoreWebView2Environment3, IID_ICoreWebView2Environment4, IID_ICoreWebView2Environment5,
                           IID_ICoreWebView2Environment6, IID_ICoreWebView2Environment7, IID_ICoreWebView2Environment8,
                           IID_ICoreWebView2Environment9, IID_ICoreWebView2Environment10,
                           IID_ICoreWebView2Environment11, IID_ICoreWebView2Environment12> {
public:
    using SessionObject::SessionObject;

    RIG_STUB(CreateWebResourceResponse, IStream*, int, LPCWSTR, LPCWSTR, ICoreWebView2WebResourceResponse**)
    RIG_STUB_EVENT(NewBrowserVersionAvailable)
    RIG_STUB(CreateWebResourceRequest, LPCWSTR, LPCWSTR, IStream*, LPCWSTR, ICoreWebView2WebResourceRequest**)
    RIG_STUB(CreateCoreWebView2CompositionController, HWND,
             ICoreWebView2CreateCoreWebView2CompositionControllerCompletedHandler*)
    RIG_STUB(CreateCoreWebView2PointerInfo, ICoreWebView2PointerInfo**)
    RIG_STUB(GetAutomationProviderForWindow, HWND, IUnknown**)
    RIG_STUB_EVENT(BrowserProcessExited)
    RIG_STUB(CreatePrintSettings, ICoreWebView2PrintSettings**)
    RIG_STUB_EVENT(ProcessInfosChanged)
    RIG_STUB(GetProcessInfos, ICoreWebView2ProcessInfoCollection**)
    RIG_STUB(CreateContextMenuItem, LPCWSTR, IStream*, COREWEBVIEW2_CONTEXT_MENU_ITEM_KIND,
             ICoreWebView2ContextMenuItem**)
    RIG_STUB(CreateCoreWebView2ControllerOptions, ICoreWebView2ControllerOptions**)
    RIG_STUB(CreateCoreWebView2ControllerWithOptions, HWND, ICoreWebView2ControllerOptions*,
             ICoreWebView2CreateCoreWebView2ControllerCompletedHandler*)
    RIG_STUB(CreateCoreWebView2CompositionControllerWithOptions, HWND, ICoreWebView2ControllerOptions*,
             ICoreWebView2CreateCoreWebView2CompositionControllerCompletedHandler*)
    RIG_STUB(get_FailureReportFolderPath, LPWSTR*)
};

class ControllerStubs : public SessionObject<ICoreWebView2Controller, IID_ICoreWebView2Controller> {
public:
    using SessionObject::SessionObject;

    RIG_STUB(get_ZoomFactor, double*)
    RIG_STUB(put_ZoomFactor, double)
    RIG_STUB_EVENT(ZoomFactorChanged)
    RIG_STUB(SetBoundsAndZoomFactor, RECT, double)
    RIG_STUB(MoveFocus, COREWEBVIEW2_MOVE_FOCUS_REASON)
    RIG_STUB_EVENT(MoveFocusRequested)
    RIG_STUB_EVENT_OF(GotFocus, FocusChanged)
    RIG_STUB_EVENT_OF(LostFocus, FocusChanged)
    RIG_STUB_EVENT(AcceleratorKeyPressed)
    RIG_STUB(put_ParentWindow, HWND)
};

class WebViewStubs
    : public SessionObject<ICoreWebView2_17, IID_ICoreWebView2, IID_ICoreWebView2_2, IID_ICoreWebView2_3,
                           IID_ICoreWebView2_4, IID_ICoreWebView2_5, IID_ICoreWebView2_6, IID_ICoreWebView2_7,
                           IID_ICoreWebView2_8, IID_ICoreWebView2_9, IID_ICoreWebView2_10, IID_ICoreWebView2_11,
                           IID_ICoreWebView2_12, IID_ICoreWebView2_13, IID_ICoreWebView2_14, IID_ICoreWebView2_15,
                           IID_ICoreWebView2_16, IID_ICoreWebView2_17> {
public:
    using SessionObject::SessionObject;

    RIG_STUB_EVENT(NavigationStarting)
    RIG_STUB_EVENT(ContentLoading)
    RIG_STUB_EVENT(SourceChanged)
    RIG_STUB_EVENT(HistoryChanged)
    RIG_STUB_EVENT_OF(FrameNavigationStarting, NavigationStarting)
    RIG_STUB_EVENT_OF(FrameNavigationCompleted, NavigationCompleted)
    RIG_STUB_EVENT(ScriptDialogOpening)
    RIG_STUB_EVENT(ProcessFailed)
    RIG_STUB(AddScriptToExecuteOnDocumentCreated, LPCWSTR,
             ICoreWebView2AddScriptToExecuteOnDocumentCreatedCompletedHandler*)
    RIG_STUB(RemoveScriptToExecuteOnDocumentCreated, LPCWSTR)
    RIG_STUB(ExecuteScript, LPCWSTR, ICoreWebView2ExecuteScriptCompletedHandler*)
    RIG_STUB(CapturePreview, COREWEBVIEW2_CAPTURE_PREVIEW_IMAGE_FORMAT, IStream*,
             ICoreWebView2CapturePreviewCompletedHandler*)
    RIG_STUB(Reload)
    RIG_STUB(PostWebMessageAsString, LPCWSTR)
    RIG_STUB(CallDevToolsProtocolMethod, LPCWSTR, LPCWSTR, ICoreWebView2CallDevToolsProtocolMethodCompletedHandler*)
    RIG_STUB(get_BrowserProcessId, UINT32*)
    RIG_STUB(get_CanGoBack, BOOL*)
    RIG_STUB(get_CanGoForward, BOOL*)
    RIG_STUB(GoBack)
    RIG_STUB(GoForward)
    RIG_STUB(GetDevToolsProtocolEventReceiver, LPCWSTR, ICoreWebView2DevToolsProtocolEventReceiver**)
    RIG_STUB(Stop)
    RIG_STUB_EVENT(NewWindowRequested)
    RIG_STUB_EVENT(DocumentTitleChanged)
    RIG_STUB(get_DocumentTitle, LPWSTR*)
    RIG_STUB(AddHostObjectToScript, LPCWSTR, VARIANT*)
    RIG_STUB(RemoveHostObjectFromScript, LPCWSTR)
    RIG_STUB(OpenDevToolsWindow)
    RIG_STUB_EVENT(ContainsFullScreenElementChanged)
    RIG_STUB(get_ContainsFullScreenElement, BOOL*)
    RIG_STUB_EVENT(WebResourceRequested)
    RIG_STUB(AddWebResourceRequestedFilter, LPCWSTR, COREWEBVIEW2_WEB_RESOURCE_CONTEXT)
    RIG_STUB(RemoveWebResourceRequestedFilter, LPCWSTR, COREWEBVIEW2_WEB_RESOURCE_CONTEXT)
    RIG_STUB_EVENT(WindowCloseRequested)
    RIG_STUB_EVENT(WebResourceResponseReceived)
    RIG_STUB(NavigateWithWebResourceRequest, ICoreWebView2WebResourceRequest*)
    RIG_STUB_EVENT(DOMContentLoaded)
    RIG_STUB(get_CookieManager, ICoreWebView2CookieManager**)
    RIG_STUB(get_Environment, ICoreWebView2Environment**)
    RIG_STUB(TrySuspend, ICoreWebView2TrySuspendCompletedHandler*)
    RIG_STUB(Resume)
    RIG_STUB(get_IsSuspended, BOOL*)
    RIG_STUB(SetVirtualHostNameToFolderMapping, LPCWSTR, LPCWSTR, COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND)
    RIG_STUB(ClearVirtualHostNameToFolderMapping, LPCWSTR)
    RIG_STUB_EVENT(FrameCreated)
    RIG_STUB_EVENT(DownloadStarting)
    RIG_STUB_EVENT(ClientCertificateRequested)
    RIG_STUB(OpenTaskManagerWindow)
    RIG_STUB(PrintToPdf, LPCWSTR, ICoreWebView2PrintSettings*, ICoreWebView2PrintToPdfCompletedHandler*)
    RIG_STUB_EVENT(IsMutedChanged)
    RIG_STUB(get_IsMuted, BOOL*)
    RIG_STUB(put_IsMuted, BOOL)
    RIG_STUB_EVENT(IsDocumentPlayingAudioChanged)
    RIG_STUB(get_IsDocumentPlayingAudio, BOOL*)
    RIG_STUB_EVENT(IsDefaultDownloadDialogOpenChanged)
    RIG_STUB(get_IsDefaultDownloadDialogOpen, BOOL*)
    RIG_STUB(OpenDefaultDownloadDialog)
    RIG_STUB(CloseDefaultDownloadDialog)
    RIG_STUB(get_DefaultDownloadDialogCornerAlignment, COREWEBVIEW2_DEFAULT_DOWNLOAD_DIALOG_CORNER_ALIGNMENT*)
    RIG_STUB(put_DefaultDownloadDialogCornerAlignment, COREWEBVIEW2_DEFAULT_DOWNLOAD_DIALOG_CORNER_ALIGNMENT)
    RIG_STUB(get_DefaultDownloadDialogMargin, POINT*)
    RIG_STUB(put_DefaultDownloadDialogMargin, POINT)
    RIG_STUB_EVENT(BasicAuthenticationRequested)
    RIG_STUB(CallDevToolsProtocolMethodForSession, LPCWSTR, LPCWSTR, LPCWSTR,
             ICoreWebView2CallDevToolsProtocolMethodCompletedHandler*)
    RIG_STUB_EVENT(ContextMenuRequested)
    RIG_STUB_EVENT(StatusBarTextChanged)
    RIG_STUB(get_StatusBarText, LPWSTR*)
    RIG_STUB(get_Profile, ICoreWebView2Profile**)
    RIG_STUB_EVENT(ServerCertificateErrorDetected)
    RIG_STUB(ClearServerCertificateErrorActions, ICoreWebView2ClearServerCertificateErrorActionsCompletedHandler*)
    RIG_STUB_EVENT(FaviconChanged)
    RIG_STUB(get_FaviconUri, LPWSTR*)
    RIG_STUB(GetFavicon, COREWEBVIEW2_FAVICON_IMAGE_FORMAT, ICoreWebView2GetFaviconCompletedHandler*)
    RIG_STUB(Print, ICoreWebView2PrintSettings*, ICoreWebView2PrintCompletedHandler*)
    RIG_STUB(ShowPrintUI, COREWEBVIEW2_PRINT_DIALOG_KIND)
    RIG_STUB(PrintToPdfStream, ICoreWebView2PrintSettings*, ICoreWebView2PrintToPdfStreamCompletedHandler*)
};

} // namespace rig
