// The methods of WebView2 that the receiver calls, and those by which it is called.
#pragma once

#include <windows.h>

struct EventRegistrationToken {
    INT64 value;
};
enum COREWEBVIEW2_PERMISSION_KIND : int {
    COREWEBVIEW2_PERMISSION_KIND_UNKNOWN_PERMISSION = 0,
    COREWEBVIEW2_PERMISSION_KIND_AUTOPLAY = 9,
};
enum COREWEBVIEW2_PERMISSION_STATE : int { COREWEBVIEW2_PERMISSION_STATE_ALLOW = 1 };
enum COREWEBVIEW2_SHARED_BUFFER_ACCESS : int { COREWEBVIEW2_SHARED_BUFFER_ACCESS_READ_WRITE = 1 };
enum COREWEBVIEW2_WEB_ERROR_STATUS : int { COREWEBVIEW2_WEB_ERROR_STATUS_UNKNOWN = 0 };

struct ICoreWebView2;
struct ICoreWebView2Controller;
struct ICoreWebView2Environment;
struct ICoreWebView2EnvironmentOptions;

inline constexpr IID IID_ICoreWebView2Environment12{6, 0};
inline constexpr IID IID_ICoreWebView2_17{6, 1};
inline constexpr IID IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler{6, 2};
inline constexpr IID IID_ICoreWebView2CreateCoreWebView2ControllerCompletedHandler{6, 3};
inline constexpr IID IID_ICoreWebView2WebMessageReceivedEventHandler{6, 4};
inline constexpr IID IID_ICoreWebView2PermissionRequestedEventHandler{6, 5};
inline constexpr IID IID_ICoreWebView2NavigationCompletedEventHandler{6, 6};

struct ICoreWebView2WebMessageReceivedEventArgs : IUnknown {
    virtual HRESULT TryGetWebMessageAsString(LPWSTR* text) = 0;
};
struct ICoreWebView2PermissionRequestedEventArgs : IUnknown {
    virtual HRESULT get_PermissionKind(COREWEBVIEW2_PERMISSION_KIND* kind) = 0;
    virtual HRESULT put_State(COREWEBVIEW2_PERMISSION_STATE state) = 0;
};
struct ICoreWebView2NavigationCompletedEventArgs : IUnknown {
    virtual HRESULT get_IsSuccess(BOOL* success) = 0;
    virtual HRESULT get_WebErrorStatus(COREWEBVIEW2_WEB_ERROR_STATUS* status) = 0;
};

struct ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler : IUnknown {
    virtual HRESULT Invoke(HRESULT result, ICoreWebView2Environment* environment) = 0;
};
struct ICoreWebView2CreateCoreWebView2ControllerCompletedHandler : IUnknown {
    virtual HRESULT Invoke(HRESULT result, ICoreWebView2Controller* controller) = 0;
};
struct ICoreWebView2WebMessageReceivedEventHandler : IUnknown {
    virtual HRESULT Invoke(ICoreWebView2* sender, ICoreWebView2WebMessageReceivedEventArgs* args) = 0;
};
struct ICoreWebView2PermissionRequestedEventHandler : IUnknown {
    virtual HRESULT Invoke(ICoreWebView2* sender, ICoreWebView2PermissionRequestedEventArgs* args) = 0;
};
struct ICoreWebView2NavigationCompletedEventHandler : IUnknown {
    virtual HRESULT Invoke(ICoreWebView2* sender, ICoreWebView2NavigationCompletedEventArgs* args) = 0;
};

struct ICoreWebView2SharedBuffer : IUnknown {
    virtual HRESULT get_Buffer(BYTE** bytes) = 0;
};
struct ICoreWebView2Settings : IUnknown {
    virtual HRESULT put_AreDefaultContextMenusEnabled(BOOL enabled) = 0;
    virtual HRESULT put_AreDevToolsEnabled(BOOL enabled) = 0;
    virtual HRESULT put_IsStatusBarEnabled(BOOL enabled) = 0;
};
struct ICoreWebView2 : IUnknown {
    virtual HRESULT get_Settings(ICoreWebView2Settings** settings) = 0;
    virtual HRESULT get_Source(LPWSTR* source) = 0;
    virtual HRESULT Navigate(LPCWSTR address) = 0;
    virtual HRESULT NavigateToString(LPCWSTR page) = 0;
    virtual HRESULT add_NavigationCompleted(ICoreWebView2NavigationCompletedEventHandler* handler,
                                            EventRegistrationToken* token) = 0;
    virtual HRESULT add_PermissionRequested(ICoreWebView2PermissionRequestedEventHandler* handler,
                                            EventRegistrationToken* token) = 0;
    virtual HRESULT add_WebMessageReceived(ICoreWebView2WebMessageReceivedEventHandler* handler,
                                           EventRegistrationToken* token) = 0;
    virtual HRESULT PostWebMessageAsJson(LPCWSTR text) = 0;
};
struct ICoreWebView2_17 : ICoreWebView2 {
    virtual HRESULT PostSharedBufferToScript(ICoreWebView2SharedBuffer* buffer,
                                             COREWEBVIEW2_SHARED_BUFFER_ACCESS access, LPCWSTR additionalData) = 0;
};
struct ICoreWebView2Controller : IUnknown {
    virtual HRESULT put_Bounds(RECT bounds) = 0;
    virtual HRESULT get_CoreWebView2(ICoreWebView2** webView) = 0;
};
struct ICoreWebView2Environment : IUnknown {
    virtual HRESULT
    CreateCoreWebView2Controller(HWND parent, ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler) = 0;
};
struct ICoreWebView2Environment12 : ICoreWebView2Environment {
    virtual HRESULT CreateSharedBuffer(UINT64 size, ICoreWebView2SharedBuffer** buffer) = 0;
};

HRESULT CreateCoreWebView2EnvironmentWithOptions(PCWSTR browserFolder, PCWSTR userDataFolder,
                                                 ICoreWebView2EnvironmentOptions* options,
                                                 ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler);
