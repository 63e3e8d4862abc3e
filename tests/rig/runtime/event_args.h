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
    WebMessageReceivedArgs(bool isString, std::wstring text, std::wstring source)
        : isString_(isString), text_(std::move(text)), source_(std::move(source)) {}

    HRESULT STDMETHODCALLTYPE get_Source(LPWSTR* source) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return CopyText(source_, source);
    }
    HRESULT STDMETHODCALLTYPE get_WebMessageAsJson(LPWSTR* json) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return CopyText(isString_ ? Quoted(text_) : text_, json);
    }
    HRESULT STDMETHODCALLTYPE TryGetWebMessageAsString(LPWSTR* text) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return isString_ ? CopyText(text_, text) : E_INVALIDARG;
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

    bool isString_;
    std::wstring text_;
    std::wstring source_;
};

class PermissionRequestedArgs final : public receiver::ComObject<ICoreWebView2PermissionRequestedEventArgs,
                                                                 IID_ICoreWebView2PermissionRequestedEventArgs> {
public:
    PermissionRequestedArgs(COREWEBVIEW2_PERMISSION_KIND kind, std::wstring uri, bool userInitiated)
        : kind_(kind), uri_(std::move(uri)), userInitiated_(userInitiated ? TRUE : FALSE) {}

    HRESULT STDMETHODCALLTYPE get_Uri(LPWSTR* uri) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return CopyText(uri_, uri);
    }
    HRESULT STDMETHODCALLTYPE get_PermissionKind(COREWEBVIEW2_PERMISSION_KIND* kind) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return StoreResult(kind_, kind);
    }
    HRESULT STDMETHODCALLTYPE get_IsUserInitiated(BOOL* userInitiated) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return StoreResult(userInitiated_, userInitiated);
    }
    HRESULT STDMETHODCALLTYPE get_State(COREWEBVIEW2_PERMISSION_STATE* state) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return StoreResult(state_, state);
    }
    HRESULT STDMETHODCALLTYPE put_State(COREWEBVIEW2_PERMISSION_STATE state) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        state_ = state;
        return S_OK;
    }
    // Decisions are taken while the handler runs.
    HRESULT STDMETHODCALLTYPE GetDeferral(ICoreWebView2Deferral**) noexcept override { return E_NOTIMPL; }

    [[nodiscard]] COREWEBVIEW2_PERMISSION_STATE State() const { return state_; }

private:
    ~PermissionRequestedArgs() override = default;

    COREWEBVIEW2_PERMISSION_KIND kind_;
    std::wstring uri_;
    BOOL userInitiated_;
    COREWEBVIEW2_PERMISSION_STATE state_ = COREWEBVIEW2_PERMISSION_STATE_DEFAULT;
};

class NavigationCompletedArgs final : public receiver::ComObject<ICoreWebView2NavigationCompletedEventArgs,
                                                                 IID_ICoreWebView2NavigationCompletedEventArgs> {
public:
    NavigationCompletedArgs(bool isSuccess, COREWEBVIEW2_WEB_ERROR_STATUS status, UINT64 id)
        : isSuccess_(isSuccess ? TRUE : FALSE), status_(status), id_(id) {}

    HRESULT STDMETHODCALLTYPE get_IsSuccess(BOOL* isSuccess) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return StoreResult(isSuccess_, isSuccess);
    }
    HRESULT STDMETHODCALLTYPE get_WebErrorStatus(COREWEBVIEW2_WEB_ERROR_STATUS* status) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return StoreResult(status_, status);
    }
    HRESULT STDMETHODCALLTYPE get_NavigationId(UINT64* id) noexcept override {
        RETURN_IF_FAILED(FaultFor(__func__));
        return StoreResult(id_, id);
    }

private:
    ~NavigationCompletedArgs() override = default;

    BOOL isSuccess_;
    COREWEBVIEW2_WEB_ERROR_STATUS status_;
    UINT64 id_;
};

} // namespace rig
