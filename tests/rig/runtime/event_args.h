// The argument objects of the three events. They belong to no thread and may outlive the callback.
#pragma once

#include "com_results.h"
#include "faults.h"

#include "platform/com_object.h"
#include "platform/hresult.h"

#include <WebView2.h>

#include <string>
#include <utility>

namespace rig {

class WebMessageReceivedArgs final : public receiver::ComObject<ICoreWebView2WebMessageReceivedEventArgs,
                                                                IID_ICoreWebView2WebMessageReceivedEventArgs> {
public:
    // `text` is the posted string itself, or else the JSON text of what was posted.
    WebMessageReceivedArgs(bool newIsString, std::wstring newText, std::wstring newSource)
        : isString(newIsString), text(std::move(newText)), source(std::move(newSource)) {}

    HRESULT STDMETHODCALLTYPE get_Source(LPWSTR* newSource) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return CopyText(source, newSource);
    }
    HRESULT STDMETHODCALLTYPE get_WebMessageAsJson(LPWSTR* json) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return CopyText(isString ? Quoted(text) : text, json);
    }
    HRESULT STDMETHODCALLTYPE TryGetWebMessageAsString(LPWSTR* value) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return isString ? CopyText(text, value) : E_INVALIDARG;
    }

private:
    ~WebMessageReceivedArgs() override = default;

    static std::wstring Quoted(const std::wstring& text) {
        std::wstring quoted = L"\"";
        for (const wchar_t c : text) {
            if (c == L'"' || c == L'\\') {
                quoted += L'\\';
                quoted += c;
            } else if (c < L' ' || (c >= 0xD800 && c <= 0xDFFF)) {
                wchar_t escape[7];
                wsprintfW(escape, L"\\u%04x", static_cast<unsigned>(c));
                quoted += escape;
            } else {
                quoted += c;
            }
        }
        return quoted + L'"';
    }

    bool isString;
    std::wstring text;
    std::wstring source;
};

class PermissionRequestedArgs final : public receiver::ComObject<ICoreWebView2PermissionRequestedEventArgs,
                                                                 IID_ICoreWebView2PermissionRequestedEventArgs> {
public:
    PermissionRequestedArgs(COREWEBVIEW2_PERMISSION_KIND newKind, std::wstring newUri, bool newUserInitiated)
        : kind(newKind), uri(std::move(newUri)), userInitiated(newUserInitiated ? TRUE : FALSE) {}

    HRESULT STDMETHODCALLTYPE get_Uri(LPWSTR* newUri) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return CopyText(uri, newUri);
    }
    HRESULT STDMETHODCALLTYPE get_PermissionKind(COREWEBVIEW2_PERMISSION_KIND* value) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return StoreResult(kind, value);
    }
    HRESULT STDMETHODCALLTYPE get_IsUserInitiated(BOOL* value) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return StoreResult(userInitiated, value);
    }
    HRESULT STDMETHODCALLTYPE get_State(COREWEBVIEW2_PERMISSION_STATE* value) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return StoreResult(state, value);
    }
    HRESULT STDMETHODCALLTYPE put_State(COREWEBVIEW2_PERMISSION_STATE newState) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        state = newState;
        return S_OK;
    }
    // Decisions are taken while the handler runs.
    HRESULT STDMETHODCALLTYPE GetDeferral(ICoreWebView2Deferral**) noexcept override { return E_NOTIMPL; }

    [[nodiscard]] COREWEBVIEW2_PERMISSION_STATE State() const { return state; }

private:
    ~PermissionRequestedArgs() override = default;

    COREWEBVIEW2_PERMISSION_KIND kind;
    std::wstring uri;
    BOOL userInitiated;
    COREWEBVIEW2_PERMISSION_STATE state = COREWEBVIEW2_PERMISSION_STATE_DEFAULT;
};

class NavigationCompletedArgs final : public receiver::ComObject<ICoreWebView2NavigationCompletedEventArgs,
                                                                 IID_ICoreWebView2NavigationCompletedEventArgs> {
public:
    NavigationCompletedArgs(bool newIsSuccess, COREWEBVIEW2_WEB_ERROR_STATUS newStatus, UINT64 newId)
        : isSuccess(newIsSuccess ? TRUE : FALSE), status(newStatus), id(newId) {}

    HRESULT STDMETHODCALLTYPE get_IsSuccess(BOOL* newIsSuccess) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return StoreResult(isSuccess, newIsSuccess);
    }
    HRESULT STDMETHODCALLTYPE get_WebErrorStatus(COREWEBVIEW2_WEB_ERROR_STATUS* value) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return StoreResult(status, value);
    }
    HRESULT STDMETHODCALLTYPE get_NavigationId(UINT64* value) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return StoreResult(id, value);
    }

private:
    ~NavigationCompletedArgs() override = default;

    BOOL isSuccess;
    COREWEBVIEW2_WEB_ERROR_STATUS status;
    UINT64 id;
};

} // namespace rig
