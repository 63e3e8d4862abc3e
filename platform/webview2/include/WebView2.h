// The part of the WebView2 binary interface that the receiver uses: interface identifiers, vtables in slot order,
// enumerations and the loader's entry point. Interfaces that only appear as parameters stay incomplete types.
// A build with the vendor's SDK replaces this folder and platform/webview2/loader.cpp by the SDK's own.
#pragma once

#include <windows.h>

#include <eventtoken.h>
#include <unknwn.h>

struct ICoreWebView2;
struct ICoreWebView2AcceleratorKeyPressedEventHandler;
struct ICoreWebView2AddScriptToExecuteOnDocumentCreatedCompletedHandler;
struct ICoreWebView2BasicAuthenticationRequestedEventHandler;
struct ICoreWebView2BrowserProcessExitedEventHandler;
struct ICoreWebView2CallDevToolsProtocolMethodCompletedHandler;
struct ICoreWebView2CapturePreviewCompletedHandler;
struct ICoreWebView2ClearServerCertificateErrorActionsCompletedHandler;
struct ICoreWebView2ClientCertificateRequestedEventHandler;
struct ICoreWebView2ContainsFullScreenElementChangedEventHandler;
struct ICoreWebView2ContentLoadingEventHandler;
struct ICoreWebView2ContextMenuItem;
struct ICoreWebView2ContextMenuRequestedEventHandler;
struct ICoreWebView2Controller;
struct ICoreWebView2ControllerOptions;
struct ICoreWebView2CookieManager;
struct ICoreWebView2CreateCoreWebView2CompositionControllerCompletedHandler;
struct ICoreWebView2CreateCoreWebView2ControllerCompletedHandler;
struct ICoreWebView2DOMContentLoadedEventHandler;
struct ICoreWebView2Deferral;
struct ICoreWebView2DevToolsProtocolEventReceiver;
struct ICoreWebView2DocumentTitleChangedEventHandler;
struct ICoreWebView2DownloadStartingEventHandler;
struct ICoreWebView2Environment;
struct ICoreWebView2EnvironmentOptions;
struct ICoreWebView2ExecuteScriptCompletedHandler;
struct ICoreWebView2FaviconChangedEventHandler;
struct ICoreWebView2FocusChangedEventHandler;
struct ICoreWebView2FrameCreatedEventHandler;
struct ICoreWebView2GetFaviconCompletedHandler;
struct ICoreWebView2HistoryChangedEventHandler;
struct ICoreWebView2IsDefaultDownloadDialogOpenChangedEventHandler;
struct ICoreWebView2IsDocumentPlayingAudioChangedEventHandler;
struct ICoreWebView2IsMutedChangedEventHandler;
struct ICoreWebView2MoveFocusRequestedEventHandler;
struct ICoreWebView2NavigationCompletedEventArgs;
struct ICoreWebView2NavigationCompletedEventHandler;
struct ICoreWebView2NavigationStartingEventHandler;
struct ICoreWebView2NewBrowserVersionAvailableEventHandler;
struct ICoreWebView2NewWindowRequestedEventHandler;
struct ICoreWebView2PermissionRequestedEventArgs;
struct ICoreWebView2PermissionRequestedEventHandler;
struct ICoreWebView2PointerInfo;
struct ICoreWebView2PrintCompletedHandler;
struct ICoreWebView2PrintSettings;
struct ICoreWebView2PrintToPdfCompletedHandler;
struct ICoreWebView2PrintToPdfStreamCompletedHandler;
struct ICoreWebView2ProcessFailedEventHandler;
struct ICoreWebView2ProcessInfoCollection;
struct ICoreWebView2ProcessInfosChangedEventHandler;
struct ICoreWebView2Profile;
struct ICoreWebView2ScriptDialogOpeningEventHandler;
struct ICoreWebView2ServerCertificateErrorDetectedEventHandler;
struct ICoreWebView2Settings;
struct ICoreWebView2SharedBuffer;
struct ICoreWebView2SourceChangedEventHandler;
struct ICoreWebView2StatusBarTextChangedEventHandler;
struct ICoreWebView2TrySuspendCompletedHandler;
struct ICoreWebView2WebMessageReceivedEventArgs;
struct ICoreWebView2WebMessageReceivedEventHandler;
struct ICoreWebView2WebResourceRequest;
struct ICoreWebView2WebResourceRequestedEventHandler;
struct ICoreWebView2WebResourceResponse;
struct ICoreWebView2WebResourceResponseReceivedEventHandler;
struct ICoreWebView2WindowCloseRequestedEventHandler;
struct ICoreWebView2ZoomFactorChangedEventHandler;

// Enumerations whose values the receiver never uses; only their size matters.
enum COREWEBVIEW2_CAPTURE_PREVIEW_IMAGE_FORMAT : int;
enum COREWEBVIEW2_CONTEXT_MENU_ITEM_KIND : int;
enum COREWEBVIEW2_DEFAULT_DOWNLOAD_DIALOG_CORNER_ALIGNMENT : int;
enum COREWEBVIEW2_FAVICON_IMAGE_FORMAT : int;
enum COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND : int;
enum COREWEBVIEW2_MOVE_FOCUS_REASON : int;
enum COREWEBVIEW2_PRINT_DIALOG_KIND : int;
enum COREWEBVIEW2_WEB_RESOURCE_CONTEXT : int;

enum COREWEBVIEW2_PERMISSION_KIND : int {
    COREWEBVIEW2_PERMISSION_KIND_UNKNOWN_PERMISSION = 0,
    COREWEBVIEW2_PERMISSION_KIND_MICROPHONE = 1,
    COREWEBVIEW2_PERMISSION_KIND_CAMERA = 2,
    COREWEBVIEW2_PERMISSION_KIND_GEOLOCATION = 3,
    COREWEBVIEW2_PERMISSION_KIND_NOTIFICATIONS = 4,
    COREWEBVIEW2_PERMISSION_KIND_OTHER_SENSORS = 5,
    COREWEBVIEW2_PERMISSION_KIND_CLIPBOARD_READ = 6,
    COREWEBVIEW2_PERMISSION_KIND_MULTIPLE_AUTOMATIC_DOWNLOADS = 7,
    COREWEBVIEW2_PERMISSION_KIND_FILE_READ_WRITE = 8,
    COREWEBVIEW2_PERMISSION_KIND_AUTOPLAY = 9,
    COREWEBVIEW2_PERMISSION_KIND_LOCAL_FONTS = 10,
    COREWEBVIEW2_PERMISSION_KIND_MIDI_SYSTEM_EXCLUSIVE_MESSAGES = 11,
    COREWEBVIEW2_PERMISSION_KIND_WINDOW_MANAGEMENT = 12,
};

enum COREWEBVIEW2_PERMISSION_STATE : int {
    COREWEBVIEW2_PERMISSION_STATE_DEFAULT = 0,
    COREWEBVIEW2_PERMISSION_STATE_ALLOW = 1,
    COREWEBVIEW2_PERMISSION_STATE_DENY = 2,
};

enum COREWEBVIEW2_SHARED_BUFFER_ACCESS : int {
    COREWEBVIEW2_SHARED_BUFFER_ACCESS_READ_ONLY = 0,
    COREWEBVIEW2_SHARED_BUFFER_ACCESS_READ_WRITE = 1,
};

enum COREWEBVIEW2_WEB_ERROR_STATUS : int {
    COREWEBVIEW2_WEB_ERROR_STATUS_UNKNOWN = 0,
    COREWEBVIEW2_WEB_ERROR_STATUS_CERTIFICATE_COMMON_NAME_IS_INCORRECT = 1,
    COREWEBVIEW2_WEB_ERROR_STATUS_CERTIFICATE_EXPIRED = 2,
    COREWEBVIEW2_WEB_ERROR_STATUS_CLIENT_CERTIFICATE_CONTAINS_ERRORS = 3,
    COREWEBVIEW2_WEB_ERROR_STATUS_CERTIFICATE_REVOKED = 4,
    COREWEBVIEW2_WEB_ERROR_STATUS_CERTIFICATE_IS_INVALID = 5,
    COREWEBVIEW2_WEB_ERROR_STATUS_SERVER_UNREACHABLE = 6,
    COREWEBVIEW2_WEB_ERROR_STATUS_TIMEOUT = 7,
    COREWEBVIEW2_WEB_ERROR_STATUS_ERROR_HTTP_INVALID_SERVER_RESPONSE = 8,
    COREWEBVIEW2_WEB_ERROR_STATUS_CONNECTION_ABORTED = 9,
    COREWEBVIEW2_WEB_ERROR_STATUS_CONNECTION_RESET = 10,
    COREWEBVIEW2_WEB_ERROR_STATUS_DISCONNECTED = 11,
    COREWEBVIEW2_WEB_ERROR_STATUS_CANNOT_CONNECT = 12,
    COREWEBVIEW2_WEB_ERROR_STATUS_HOST_NAME_NOT_RESOLVED = 13,
    COREWEBVIEW2_WEB_ERROR_STATUS_OPERATION_CANCELED = 14,
    COREWEBVIEW2_WEB_ERROR_STATUS_REDIRECT_FAILED = 15,
    COREWEBVIEW2_WEB_ERROR_STATUS_UNEXPECTED_ERROR = 16,
    COREWEBVIEW2_WEB_ERROR_STATUS_VALID_AUTHENTICATION_CREDENTIALS_REQUIRED = 17,
    COREWEBVIEW2_WEB_ERROR_STATUS_VALID_PROXY_AUTHENTICATION_REQUIRED = 18,
};

inline constexpr IID IID_ICoreWebView2Environment = {
    0xB96D755E, 0x0319, 0x4E92, {0xA2, 0x96, 0x23, 0x43, 0x6F, 0x46, 0xA1, 0xFC}};
struct ICoreWebView2Environment : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE CreateCoreWebView2Controller(HWND, ICoreWebView2CreateCoreWebView2ControllerCompletedHandler*) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateWebResourceResponse(IStream*, int, LPCWSTR, LPCWSTR, ICoreWebView2WebResourceResponse**) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_BrowserVersionString(LPWSTR*) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_NewBrowserVersionAvailable(ICoreWebView2NewBrowserVersionAvailableEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_NewBrowserVersionAvailable(EventRegistrationToken) = 0;
};

inline constexpr IID IID_ICoreWebView2Environment2 = {
    0x41F3632B, 0x5EF4, 0x404F, {0xAD, 0x82, 0x2D, 0x60, 0x6C, 0x5A, 0x9A, 0x21}};
struct ICoreWebView2Environment2 : ICoreWebView2Environment {
    virtual HRESULT STDMETHODCALLTYPE CreateWebResourceRequest(LPCWSTR, LPCWSTR, IStream*, LPCWSTR, ICoreWebView2WebResourceRequest**) = 0;
};

inline constexpr IID IID_ICoreWebView2Environment3 = {
    0x80A22AE3, 0xBE7C, 0x4CE2, {0xAF, 0xE1, 0x5A, 0x50, 0x05, 0x6C, 0xDE, 0xEB}};
struct ICoreWebView2Environment3 : ICoreWebView2Environment2 {
    virtual HRESULT STDMETHODCALLTYPE CreateCoreWebView2CompositionController(HWND, ICoreWebView2CreateCoreWebView2CompositionControllerCompletedHandler*) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateCoreWebView2PointerInfo(ICoreWebView2PointerInfo**) = 0;
};

inline constexpr IID IID_ICoreWebView2Environment4 = {
    0x20944379, 0x6DCF, 0x41D6, {0xA0, 0xA0, 0xAB, 0xC0, 0xFC, 0x50, 0xDE, 0x0D}};
struct ICoreWebView2Environment4 : ICoreWebView2Environment3 {
    virtual HRESULT STDMETHODCALLTYPE GetAutomationProviderForWindow(HWND, IUnknown**) = 0;
};

inline constexpr IID IID_ICoreWebView2Environment5 = {
    0x319E423D, 0xE0D7, 0x4B8D, {0x92, 0x54, 0xAE, 0x94, 0x75, 0xDE, 0x9B, 0x17}};
struct ICoreWebView2Environment5 : ICoreWebView2Environment4 {
    virtual HRESULT STDMETHODCALLTYPE add_BrowserProcessExited(ICoreWebView2BrowserProcessExitedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_BrowserProcessExited(EventRegistrationToken) = 0;
};

inline constexpr IID IID_ICoreWebView2Environment6 = {
    0xE59EE362, 0xACBD, 0x4857, {0x9A, 0x8E, 0xD3, 0x64, 0x4D, 0x94, 0x59, 0xA9}};
struct ICoreWebView2Environment6 : ICoreWebView2Environment5 {
    virtual HRESULT STDMETHODCALLTYPE CreatePrintSettings(ICoreWebView2PrintSettings**) = 0;
};

inline constexpr IID IID_ICoreWebView2Environment7 = {
    0x43C22296, 0x3BBD, 0x43A4, {0x9C, 0x00, 0x5C, 0x0D, 0xF6, 0xDD, 0x29, 0xA2}};
struct ICoreWebView2Environment7 : ICoreWebView2Environment6 {
    virtual HRESULT STDMETHODCALLTYPE get_UserDataFolder(LPWSTR*) = 0;
};

inline constexpr IID IID_ICoreWebView2Environment8 = {
    0xD6EB91DD, 0xC3D2, 0x45E5, {0xBD, 0x29, 0x6D, 0xC2, 0xBC, 0x4D, 0xE9, 0xCF}};
struct ICoreWebView2Environment8 : ICoreWebView2Environment7 {
    virtual HRESULT STDMETHODCALLTYPE add_ProcessInfosChanged(ICoreWebView2ProcessInfosChangedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_ProcessInfosChanged(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetProcessInfos(ICoreWebView2ProcessInfoCollection**) = 0;
};

inline constexpr IID IID_ICoreWebView2Environment9 = {
    0xF06F41BF, 0x4B5A, 0x49D8, {0xB9, 0xF6, 0xFA, 0x16, 0xCD, 0x29, 0xF2, 0x74}};
struct ICoreWebView2Environment9 : ICoreWebView2Environment8 {
    virtual HRESULT STDMETHODCALLTYPE CreateContextMenuItem(LPCWSTR, IStream*, COREWEBVIEW2_CONTEXT_MENU_ITEM_KIND, ICoreWebView2ContextMenuItem**) = 0;
};

inline constexpr IID IID_ICoreWebView2Environment10 = {
    0xEE0EB9DF, 0x6F12, 0x46CE, {0xB5, 0x3F, 0x3F, 0x47, 0xB9, 0xC9, 0x28, 0xE0}};
struct ICoreWebView2Environment10 : ICoreWebView2Environment9 {
    virtual HRESULT STDMETHODCALLTYPE CreateCoreWebView2ControllerOptions(ICoreWebView2ControllerOptions**) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateCoreWebView2ControllerWithOptions(HWND, ICoreWebView2ControllerOptions*, ICoreWebView2CreateCoreWebView2ControllerCompletedHandler*) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateCoreWebView2CompositionControllerWithOptions(HWND, ICoreWebView2ControllerOptions*, ICoreWebView2CreateCoreWebView2CompositionControllerCompletedHandler*) = 0;
};

inline constexpr IID IID_ICoreWebView2Environment11 = {
    0xF0913DC6, 0xA0EC, 0x42EF, {0x98, 0x05, 0x91, 0xDF, 0xF3, 0xA2, 0x96, 0x6A}};
struct ICoreWebView2Environment11 : ICoreWebView2Environment10 {
    virtual HRESULT STDMETHODCALLTYPE get_FailureReportFolderPath(LPWSTR*) = 0;
};

inline constexpr IID IID_ICoreWebView2Environment12 = {
    0xF503DB9B, 0x739F, 0x48DD, {0xB1, 0x51, 0xFD, 0xFC, 0xF2, 0x53, 0xF5, 0x4E}};
struct ICoreWebView2Environment12 : ICoreWebView2Environment11 {
    virtual HRESULT STDMETHODCALLTYPE CreateSharedBuffer(UINT64, ICoreWebView2SharedBuffer**) = 0;
};

inline constexpr IID IID_ICoreWebView2Controller = {
    0x4D00C0D1, 0x9434, 0x4EB6, {0x80, 0x78, 0x86, 0x97, 0xA5, 0x60, 0x33, 0x4F}};
struct ICoreWebView2Controller : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE get_IsVisible(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_IsVisible(BOOL) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Bounds(RECT*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Bounds(RECT) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ZoomFactor(double*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_ZoomFactor(double) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_ZoomFactorChanged(ICoreWebView2ZoomFactorChangedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_ZoomFactorChanged(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetBoundsAndZoomFactor(RECT, double) = 0;
    virtual HRESULT STDMETHODCALLTYPE MoveFocus(COREWEBVIEW2_MOVE_FOCUS_REASON) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_MoveFocusRequested(ICoreWebView2MoveFocusRequestedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_MoveFocusRequested(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_GotFocus(ICoreWebView2FocusChangedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_GotFocus(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_LostFocus(ICoreWebView2FocusChangedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_LostFocus(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_AcceleratorKeyPressed(ICoreWebView2AcceleratorKeyPressedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_AcceleratorKeyPressed(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ParentWindow(HWND*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_ParentWindow(HWND) = 0;
    virtual HRESULT STDMETHODCALLTYPE NotifyParentWindowPositionChanged() = 0;
    virtual HRESULT STDMETHODCALLTYPE Close() = 0;
    virtual HRESULT STDMETHODCALLTYPE get_CoreWebView2(ICoreWebView2**) = 0;
};

inline constexpr IID IID_ICoreWebView2 = {
    0x76ECEACB, 0x0462, 0x4D94, {0xAC, 0x83, 0x42, 0x3A, 0x67, 0x93, 0x77, 0x5E}};
struct ICoreWebView2 : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE get_Settings(ICoreWebView2Settings**) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Source(LPWSTR*) = 0;
    virtual HRESULT STDMETHODCALLTYPE Navigate(LPCWSTR) = 0;
    virtual HRESULT STDMETHODCALLTYPE NavigateToString(LPCWSTR) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_NavigationStarting(ICoreWebView2NavigationStartingEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_NavigationStarting(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_ContentLoading(ICoreWebView2ContentLoadingEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_ContentLoading(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_SourceChanged(ICoreWebView2SourceChangedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_SourceChanged(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_HistoryChanged(ICoreWebView2HistoryChangedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_HistoryChanged(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_NavigationCompleted(ICoreWebView2NavigationCompletedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_NavigationCompleted(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_FrameNavigationStarting(ICoreWebView2NavigationStartingEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_FrameNavigationStarting(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_FrameNavigationCompleted(ICoreWebView2NavigationCompletedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_FrameNavigationCompleted(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_ScriptDialogOpening(ICoreWebView2ScriptDialogOpeningEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_ScriptDialogOpening(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_PermissionRequested(ICoreWebView2PermissionRequestedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_PermissionRequested(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_ProcessFailed(ICoreWebView2ProcessFailedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_ProcessFailed(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddScriptToExecuteOnDocumentCreated(LPCWSTR, ICoreWebView2AddScriptToExecuteOnDocumentCreatedCompletedHandler*) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveScriptToExecuteOnDocumentCreated(LPCWSTR) = 0;
    virtual HRESULT STDMETHODCALLTYPE ExecuteScript(LPCWSTR, ICoreWebView2ExecuteScriptCompletedHandler*) = 0;
    virtual HRESULT STDMETHODCALLTYPE CapturePreview(COREWEBVIEW2_CAPTURE_PREVIEW_IMAGE_FORMAT, IStream*, ICoreWebView2CapturePreviewCompletedHandler*) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reload() = 0;
    virtual HRESULT STDMETHODCALLTYPE PostWebMessageAsJson(LPCWSTR) = 0;
    virtual HRESULT STDMETHODCALLTYPE PostWebMessageAsString(LPCWSTR) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_WebMessageReceived(ICoreWebView2WebMessageReceivedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_WebMessageReceived(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE CallDevToolsProtocolMethod(LPCWSTR, LPCWSTR, ICoreWebView2CallDevToolsProtocolMethodCompletedHandler*) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_BrowserProcessId(UINT32*) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_CanGoBack(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_CanGoForward(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE GoBack() = 0;
    virtual HRESULT STDMETHODCALLTYPE GoForward() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDevToolsProtocolEventReceiver(LPCWSTR, ICoreWebView2DevToolsProtocolEventReceiver**) = 0;
    virtual HRESULT STDMETHODCALLTYPE Stop() = 0;
    virtual HRESULT STDMETHODCALLTYPE add_NewWindowRequested(ICoreWebView2NewWindowRequestedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_NewWindowRequested(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_DocumentTitleChanged(ICoreWebView2DocumentTitleChangedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_DocumentTitleChanged(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_DocumentTitle(LPWSTR*) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddHostObjectToScript(LPCWSTR, VARIANT*) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveHostObjectFromScript(LPCWSTR) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenDevToolsWindow() = 0;
    virtual HRESULT STDMETHODCALLTYPE add_ContainsFullScreenElementChanged(ICoreWebView2ContainsFullScreenElementChangedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_ContainsFullScreenElementChanged(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ContainsFullScreenElement(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_WebResourceRequested(ICoreWebView2WebResourceRequestedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_WebResourceRequested(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddWebResourceRequestedFilter(LPCWSTR, COREWEBVIEW2_WEB_RESOURCE_CONTEXT) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveWebResourceRequestedFilter(LPCWSTR, COREWEBVIEW2_WEB_RESOURCE_CONTEXT) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_WindowCloseRequested(ICoreWebView2WindowCloseRequestedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_WindowCloseRequested(EventRegistrationToken) = 0;
};

inline constexpr IID IID_ICoreWebView2_2 = {
    0x9E8F0CF8, 0xE670, 0x4B5E, {0xB2, 0xBC, 0x73, 0xE0, 0x61, 0xE3, 0x18, 0x4C}};
struct ICoreWebView2_2 : ICoreWebView2 {
    virtual HRESULT STDMETHODCALLTYPE add_WebResourceResponseReceived(ICoreWebView2WebResourceResponseReceivedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_WebResourceResponseReceived(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE NavigateWithWebResourceRequest(ICoreWebView2WebResourceRequest*) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_DOMContentLoaded(ICoreWebView2DOMContentLoadedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_DOMContentLoaded(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_CookieManager(ICoreWebView2CookieManager**) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Environment(ICoreWebView2Environment**) = 0;
};

inline constexpr IID IID_ICoreWebView2_3 = {
    0xA0D6DF20, 0x3B92, 0x416D, {0xAA, 0x0C, 0x43, 0x7A, 0x9C, 0x72, 0x78, 0x57}};
struct ICoreWebView2_3 : ICoreWebView2_2 {
    virtual HRESULT STDMETHODCALLTYPE TrySuspend(ICoreWebView2TrySuspendCompletedHandler*) = 0;
    virtual HRESULT STDMETHODCALLTYPE Resume() = 0;
    virtual HRESULT STDMETHODCALLTYPE get_IsSuspended(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetVirtualHostNameToFolderMapping(LPCWSTR, LPCWSTR, COREWEBVIEW2_HOST_RESOURCE_ACCESS_KIND) = 0;
    virtual HRESULT STDMETHODCALLTYPE ClearVirtualHostNameToFolderMapping(LPCWSTR) = 0;
};

inline constexpr IID IID_ICoreWebView2_4 = {
    0x20D02D59, 0x6DF2, 0x42DC, {0xBD, 0x06, 0xF9, 0x8A, 0x69, 0x4B, 0x13, 0x02}};
struct ICoreWebView2_4 : ICoreWebView2_3 {
    virtual HRESULT STDMETHODCALLTYPE add_FrameCreated(ICoreWebView2FrameCreatedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_FrameCreated(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_DownloadStarting(ICoreWebView2DownloadStartingEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_DownloadStarting(EventRegistrationToken) = 0;
};

inline constexpr IID IID_ICoreWebView2_5 = {
    0xBEDB11B8, 0xD63C, 0x11EB, {0xB8, 0xBC, 0x02, 0x42, 0xAC, 0x13, 0x00, 0x03}};
struct ICoreWebView2_5 : ICoreWebView2_4 {
    virtual HRESULT STDMETHODCALLTYPE add_ClientCertificateRequested(ICoreWebView2ClientCertificateRequestedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_ClientCertificateRequested(EventRegistrationToken) = 0;
};

inline constexpr IID IID_ICoreWebView2_6 = {
    0x499AADAC, 0xD92C, 0x4589, {0x8A, 0x75, 0x11, 0x1B, 0xFC, 0x16, 0x77, 0x95}};
struct ICoreWebView2_6 : ICoreWebView2_5 {
    virtual HRESULT STDMETHODCALLTYPE OpenTaskManagerWindow() = 0;
};

inline constexpr IID IID_ICoreWebView2_7 = {
    0x79C24D83, 0x09A3, 0x45AE, {0x94, 0x18, 0x48, 0x7F, 0x32, 0xA5, 0x87, 0x40}};
struct ICoreWebView2_7 : ICoreWebView2_6 {
    virtual HRESULT STDMETHODCALLTYPE PrintToPdf(LPCWSTR, ICoreWebView2PrintSettings*, ICoreWebView2PrintToPdfCompletedHandler*) = 0;
};

inline constexpr IID IID_ICoreWebView2_8 = {
    0xE9632730, 0x6E1E, 0x43AB, {0xB7, 0xB8, 0x7B, 0x2C, 0x9E, 0x62, 0xE0, 0x94}};
struct ICoreWebView2_8 : ICoreWebView2_7 {
    virtual HRESULT STDMETHODCALLTYPE add_IsMutedChanged(ICoreWebView2IsMutedChangedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_IsMutedChanged(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_IsMuted(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_IsMuted(BOOL) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_IsDocumentPlayingAudioChanged(ICoreWebView2IsDocumentPlayingAudioChangedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_IsDocumentPlayingAudioChanged(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_IsDocumentPlayingAudio(BOOL*) = 0;
};

inline constexpr IID IID_ICoreWebView2_9 = {
    0x4D7B2EAB, 0x9FDC, 0x468D, {0xB9, 0x98, 0xA9, 0x26, 0x0B, 0x5E, 0xD6, 0x51}};
struct ICoreWebView2_9 : ICoreWebView2_8 {
    virtual HRESULT STDMETHODCALLTYPE add_IsDefaultDownloadDialogOpenChanged(ICoreWebView2IsDefaultDownloadDialogOpenChangedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_IsDefaultDownloadDialogOpenChanged(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_IsDefaultDownloadDialogOpen(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenDefaultDownloadDialog() = 0;
    virtual HRESULT STDMETHODCALLTYPE CloseDefaultDownloadDialog() = 0;
    virtual HRESULT STDMETHODCALLTYPE get_DefaultDownloadDialogCornerAlignment(COREWEBVIEW2_DEFAULT_DOWNLOAD_DIALOG_CORNER_ALIGNMENT*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_DefaultDownloadDialogCornerAlignment(COREWEBVIEW2_DEFAULT_DOWNLOAD_DIALOG_CORNER_ALIGNMENT) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_DefaultDownloadDialogMargin(POINT*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_DefaultDownloadDialogMargin(POINT) = 0;
};

inline constexpr IID IID_ICoreWebView2_10 = {
    0xB1690564, 0x6F5A, 0x4983, {0x8E, 0x48, 0x31, 0xD1, 0x14, 0x3F, 0xEC, 0xDB}};
struct ICoreWebView2_10 : ICoreWebView2_9 {
    virtual HRESULT STDMETHODCALLTYPE add_BasicAuthenticationRequested(ICoreWebView2BasicAuthenticationRequestedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_BasicAuthenticationRequested(EventRegistrationToken) = 0;
};

inline constexpr IID IID_ICoreWebView2_11 = {
    0x0BE78E56, 0xC193, 0x4051, {0xB9, 0x43, 0x23, 0xB4, 0x60, 0xC0, 0x8B, 0xDB}};
struct ICoreWebView2_11 : ICoreWebView2_10 {
    virtual HRESULT STDMETHODCALLTYPE CallDevToolsProtocolMethodForSession(LPCWSTR, LPCWSTR, LPCWSTR, ICoreWebView2CallDevToolsProtocolMethodCompletedHandler*) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_ContextMenuRequested(ICoreWebView2ContextMenuRequestedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_ContextMenuRequested(EventRegistrationToken) = 0;
};

inline constexpr IID IID_ICoreWebView2_12 = {
    0x35D69927, 0xBCFA, 0x4566, {0x93, 0x49, 0x6B, 0x3E, 0x0D, 0x15, 0x4C, 0xAC}};
struct ICoreWebView2_12 : ICoreWebView2_11 {
    virtual HRESULT STDMETHODCALLTYPE add_StatusBarTextChanged(ICoreWebView2StatusBarTextChangedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_StatusBarTextChanged(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_StatusBarText(LPWSTR*) = 0;
};

inline constexpr IID IID_ICoreWebView2_13 = {
    0xF75F09A8, 0x667E, 0x4983, {0x88, 0xD6, 0xC8, 0x77, 0x3F, 0x31, 0x5E, 0x84}};
struct ICoreWebView2_13 : ICoreWebView2_12 {
    virtual HRESULT STDMETHODCALLTYPE get_Profile(ICoreWebView2Profile**) = 0;
};

inline constexpr IID IID_ICoreWebView2_14 = {
    0x6DAA4F10, 0x4A90, 0x4753, {0x88, 0x98, 0x77, 0xC5, 0xDF, 0x53, 0x41, 0x65}};
struct ICoreWebView2_14 : ICoreWebView2_13 {
    virtual HRESULT STDMETHODCALLTYPE add_ServerCertificateErrorDetected(ICoreWebView2ServerCertificateErrorDetectedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_ServerCertificateErrorDetected(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE ClearServerCertificateErrorActions(ICoreWebView2ClearServerCertificateErrorActionsCompletedHandler*) = 0;
};

inline constexpr IID IID_ICoreWebView2_15 = {
    0x517B2D1D, 0x7DAE, 0x4A66, {0xA4, 0xF4, 0x10, 0x35, 0x2F, 0xFB, 0x95, 0x18}};
struct ICoreWebView2_15 : ICoreWebView2_14 {
    virtual HRESULT STDMETHODCALLTYPE add_FaviconChanged(ICoreWebView2FaviconChangedEventHandler*, EventRegistrationToken*) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_FaviconChanged(EventRegistrationToken) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_FaviconUri(LPWSTR*) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetFavicon(COREWEBVIEW2_FAVICON_IMAGE_FORMAT, ICoreWebView2GetFaviconCompletedHandler*) = 0;
};

inline constexpr IID IID_ICoreWebView2_16 = {
    0x0EB34DC9, 0x9F91, 0x41E1, {0x86, 0x39, 0x95, 0xCD, 0x59, 0x43, 0x90, 0x6B}};
struct ICoreWebView2_16 : ICoreWebView2_15 {
    virtual HRESULT STDMETHODCALLTYPE Print(ICoreWebView2PrintSettings*, ICoreWebView2PrintCompletedHandler*) = 0;
    virtual HRESULT STDMETHODCALLTYPE ShowPrintUI(COREWEBVIEW2_PRINT_DIALOG_KIND) = 0;
    virtual HRESULT STDMETHODCALLTYPE PrintToPdfStream(ICoreWebView2PrintSettings*, ICoreWebView2PrintToPdfStreamCompletedHandler*) = 0;
};

inline constexpr IID IID_ICoreWebView2_17 = {
    0x702E75D4, 0xFD44, 0x434D, {0x9D, 0x70, 0x1A, 0x68, 0xA6, 0xB1, 0x19, 0x2A}};
struct ICoreWebView2_17 : ICoreWebView2_16 {
    virtual HRESULT STDMETHODCALLTYPE PostSharedBufferToScript(ICoreWebView2SharedBuffer*, COREWEBVIEW2_SHARED_BUFFER_ACCESS, LPCWSTR) = 0;
};

inline constexpr IID IID_ICoreWebView2Settings = {
    0xE562E4F0, 0xD7FA, 0x43AC, {0x8D, 0x71, 0xC0, 0x51, 0x50, 0x49, 0x9F, 0x00}};
struct ICoreWebView2Settings : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE get_IsScriptEnabled(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_IsScriptEnabled(BOOL) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_IsWebMessageEnabled(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_IsWebMessageEnabled(BOOL) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_AreDefaultScriptDialogsEnabled(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_AreDefaultScriptDialogsEnabled(BOOL) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_IsStatusBarEnabled(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_IsStatusBarEnabled(BOOL) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_AreDevToolsEnabled(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_AreDevToolsEnabled(BOOL) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_AreDefaultContextMenusEnabled(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_AreDefaultContextMenusEnabled(BOOL) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_AreHostObjectsAllowed(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_AreHostObjectsAllowed(BOOL) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_IsZoomControlEnabled(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_IsZoomControlEnabled(BOOL) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_IsBuiltInErrorPageEnabled(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_IsBuiltInErrorPageEnabled(BOOL) = 0;
};

inline constexpr IID IID_ICoreWebView2SharedBuffer = {
    0xB747A495, 0x0C6F, 0x449E, {0x97, 0xB8, 0x2F, 0x81, 0xE9, 0xD6, 0xAB, 0x43}};
struct ICoreWebView2SharedBuffer : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE get_Size(UINT64*) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Buffer(BYTE**) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenStream(IStream**) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_FileMappingHandle(HANDLE*) = 0;
    virtual HRESULT STDMETHODCALLTYPE Close() = 0;
};

inline constexpr IID IID_ICoreWebView2WebMessageReceivedEventArgs = {
    0x0F99A40C, 0xE962, 0x4207, {0x9E, 0x92, 0xE3, 0xD5, 0x42, 0xEF, 0xF8, 0x49}};
struct ICoreWebView2WebMessageReceivedEventArgs : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE get_Source(LPWSTR*) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_WebMessageAsJson(LPWSTR*) = 0;
    virtual HRESULT STDMETHODCALLTYPE TryGetWebMessageAsString(LPWSTR*) = 0;
};

inline constexpr IID IID_ICoreWebView2PermissionRequestedEventArgs = {
    0x973AE2EF, 0xFF18, 0x4894, {0x8F, 0xB2, 0x3C, 0x75, 0x8F, 0x04, 0x68, 0x10}};
struct ICoreWebView2PermissionRequestedEventArgs : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE get_Uri(LPWSTR*) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_PermissionKind(COREWEBVIEW2_PERMISSION_KIND*) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_IsUserInitiated(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_State(COREWEBVIEW2_PERMISSION_STATE*) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_State(COREWEBVIEW2_PERMISSION_STATE) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDeferral(ICoreWebView2Deferral**) = 0;
};

inline constexpr IID IID_ICoreWebView2NavigationCompletedEventArgs = {
    0x30D68B7D, 0x20D9, 0x4752, {0xA9, 0xCA, 0xEC, 0x84, 0x48, 0xFB, 0xB5, 0xC1}};
struct ICoreWebView2NavigationCompletedEventArgs : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE get_IsSuccess(BOOL*) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_WebErrorStatus(COREWEBVIEW2_WEB_ERROR_STATUS*) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_NavigationId(UINT64*) = 0;
};

inline constexpr IID IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler = {
    0x4E8A3389, 0xC9D8, 0x4BD2, {0xB6, 0xB5, 0x12, 0x4F, 0xEE, 0x6C, 0xC1, 0x4D}};
struct ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Invoke(HRESULT, ICoreWebView2Environment*) = 0;
};

inline constexpr IID IID_ICoreWebView2CreateCoreWebView2ControllerCompletedHandler = {
    0x6C4819F3, 0xC9B7, 0x4260, {0x81, 0x27, 0xC9, 0xF5, 0xBD, 0xE7, 0xF6, 0x8C}};
struct ICoreWebView2CreateCoreWebView2ControllerCompletedHandler : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Invoke(HRESULT, ICoreWebView2Controller*) = 0;
};

inline constexpr IID IID_ICoreWebView2WebMessageReceivedEventHandler = {
    0x57213F19, 0x00E6, 0x49FA, {0x8E, 0x07, 0x89, 0x8E, 0xA0, 0x1E, 0xCB, 0xD2}};
struct ICoreWebView2WebMessageReceivedEventHandler : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Invoke(ICoreWebView2*, ICoreWebView2WebMessageReceivedEventArgs*) = 0;
};

inline constexpr IID IID_ICoreWebView2PermissionRequestedEventHandler = {
    0x15E1C6A3, 0xC72A, 0x4DF3, {0x91, 0xD7, 0xD0, 0x97, 0xFB, 0xEC, 0x6B, 0xFD}};
struct ICoreWebView2PermissionRequestedEventHandler : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Invoke(ICoreWebView2*, ICoreWebView2PermissionRequestedEventArgs*) = 0;
};

inline constexpr IID IID_ICoreWebView2NavigationCompletedEventHandler = {
    0xD33A35BF, 0x1C49, 0x4F98, {0x93, 0xAB, 0x00, 0x6E, 0x05, 0x33, 0xFE, 0x1C}};
struct ICoreWebView2NavigationCompletedEventHandler : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Invoke(ICoreWebView2*, ICoreWebView2NavigationCompletedEventArgs*) = 0;
};

// Creates the environment of the installed runtime. `browserExecutableFolder` null or empty: the installed (Evergreen)
// runtime. `userDataFolder` null: chosen by the runtime. The handler is called from the message loop of the calling
// thread, which must be a single-threaded apartment. Returns E_POINTER for a null handler.
extern "C" HRESULT STDMETHODCALLTYPE CreateCoreWebView2EnvironmentWithOptions(
    PCWSTR browserExecutableFolder,
    PCWSTR userDataFolder,
    ICoreWebView2EnvironmentOptions* environmentOptions,
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* environmentCreatedHandler);

static_assert(sizeof(void*) == 8 && sizeof(BOOL) == 4, "the declarations above describe the x64 interface");
static_assert(sizeof(EventRegistrationToken) == 8 && sizeof(RECT) == 16 && sizeof(POINT) == 8);
static_assert(sizeof(COREWEBVIEW2_PERMISSION_KIND) == 4 && sizeof(COREWEBVIEW2_WEB_ERROR_STATUS) == 4);
