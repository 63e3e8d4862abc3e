#include "web_view.h"

#include "event_args.h"
#include "faults.h"
#include "json_check.h"
#include "settings.h"
#include "shared_buffer.h"

#include "platform/hresult.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace rig {
namespace {

constexpr std::size_t MaxHtmlBytes = 2 * 1024 * 1024;

// A letter, then letters, digits, plus, hyphen or dot up to a colon.
bool HasScheme(std::wstring_view address) {
    const std::size_t colon = address.find(L':');
    if (colon == std::wstring_view::npos || colon == 0) {
        return false;
    }
    const auto isLetter = [](wchar_t c) { return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z'); };
    const std::wstring_view scheme = address.substr(0, colon);
    return isLetter(scheme.front()) && std::all_of(scheme.begin(), scheme.end(), [&](wchar_t c) {
               return isLetter(c) || (c >= L'0' && c <= L'9') || c == L'+' || c == L'-' || c == L'.';
           });
}

} // namespace

WebView::WebView(std::shared_ptr<Session> newSession, std::string newPage)
    : WebViewStubs(std::move(newSession)), page(std::move(newPage)),
      settings(receiver::ComPtr<Settings>::Attach(new Settings(session, page))) {}

WebView::~WebView() = default;

HRESULT WebView::EnterOpen(const char* method) const {
    RETURN_IF_FAILED(Enter(method));
    return closed ? BrowserClosed : S_OK;
}

HRESULT WebView::QueryInterface(REFIID id, void** object) noexcept {
    if (IsEqualIID(id, IID_ICoreWebView2_17) && FAILED(FaultFor("ICoreWebView2_17"))) {
        return WebViewStubs::QueryInterface(IID_NULL, object);
    }
    return WebViewStubs::QueryInterface(id, object);
}

HRESULT WebView::get_Settings(ICoreWebView2Settings** value) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    if (value == nullptr) {
        return E_POINTER;
    }
    settings->AddRef();
    *value = settings.Get();
    return S_OK;
}

HRESULT WebView::get_Source(LPWSTR* value) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    return CopyText(source, value);
}

HRESULT WebView::Navigate(LPCWSTR address) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    if (address == nullptr || !HasScheme(address)) {
        return E_INVALIDARG;
    }
    session->Send("navigate", page, ToUtf8(address));
    return S_OK;
}

HRESULT WebView::NavigateToString(LPCWSTR html) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    const std::string text = ToUtf8(html == nullptr ? L"" : html);
    if (html == nullptr || text.size() > MaxHtmlBytes) {
        return E_INVALIDARG;
    }
    session->Send("html", page, text);
    return S_OK;
}

HRESULT WebView::PostWebMessageAsJson(LPCWSTR json) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    if (!settings->IsWebMessageEnabled_) {
        return E_ACCESSDENIED;
    }
    if (json == nullptr || !IsJson(json)) {
        return E_INVALIDARG;
    }
    session->Send("json", page, ToUtf8(json));
    return S_OK;
}

HRESULT WebView::PostSharedBufferToScript(ICoreWebView2SharedBuffer* buffer, COREWEBVIEW2_SHARED_BUFFER_ACCESS access,
                                          LPCWSTR additionalDataAsJson) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    if (buffer == nullptr) {
        return E_POINTER;
    }
    UINT64 size = 0;
    RETURN_IF_FAILED(buffer->get_Size(&size)); // Says so when the buffer is closed.
    const std::wstring_view data = additionalDataAsJson == nullptr ? L"" : additionalDataAsJson;
    if (!data.empty() && !IsJson(data)) {
        return E_INVALIDARG;
    }
    const char* const mode = access == COREWEBVIEW2_SHARED_BUFFER_ACCESS_READ_WRITE ? "read-write" : "read-only";
    session->Send("buffer", page, static_cast<SharedBuffer*>(buffer)->Name(), std::to_string(size), mode, ToUtf8(data));
    return S_OK;
}

HRESULT WebView::add_NavigationCompleted(ICoreWebView2NavigationCompletedEventHandler* handler,
                                         EventRegistrationToken* token) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    return navigationCompleted.Add(handler, token);
}

HRESULT WebView::remove_NavigationCompleted(EventRegistrationToken token) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    return navigationCompleted.Remove(token);
}

HRESULT WebView::add_PermissionRequested(ICoreWebView2PermissionRequestedEventHandler* handler,
                                         EventRegistrationToken* token) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    return permissionRequested.Add(handler, token);
}

HRESULT WebView::remove_PermissionRequested(EventRegistrationToken token) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    return permissionRequested.Remove(token);
}

HRESULT WebView::add_WebMessageReceived(ICoreWebView2WebMessageReceivedEventHandler* handler,
                                        EventRegistrationToken* token) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    return webMessageReceived.Add(handler, token);
}

HRESULT WebView::remove_WebMessageReceived(EventRegistrationToken token) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    return webMessageReceived.Remove(token);
}

void WebView::OnLine(const Fields& line) {
    if (closed) {
        return;
    }
    if (line[0] == "message") {
        OnMessage(line);
    } else if (line[0] == "permission") {
        OnPermission(line);
    } else if (line[0] == "navigation") {
        OnNavigation(line);
    } else if (line[0] == "source") {
        source = ToWide(line.at(2));
    }
}

void WebView::Close() {
    closed = true;
    navigationCompleted.Clear();
    permissionRequested.Clear();
    webMessageReceived.Clear();
}

void WebView::OnMessage(const Fields& line) {
    const bool isString = line.at(2) == "string";
    const auto args = receiver::ComPtr<WebMessageReceivedArgs>::Attach(
        new WebMessageReceivedArgs(isString, ToWide(line.at(3)), ToWide(line.at(4))));
    LARGE_INTEGER before;
    LARGE_INTEGER after;
    QueryPerformanceCounter(&before);
    const HRESULT result = webMessageReceived.Raise(this, args.Get());
    QueryPerformanceCounter(&after);
    if (isString && line.at(3).starts_with("frame:")) {
        session->RecordCallback(after.QuadPart - before.QuadPart, result);
    } else {
        session->Send("handled", page, HexCode(result), line.at(3));
    }
}

void WebView::OnPermission(const Fields& line) {
    const auto kind = static_cast<COREWEBVIEW2_PERMISSION_KIND>(std::strtol(line.at(3).c_str(), nullptr, 10));
    const auto args = receiver::ComPtr<PermissionRequestedArgs>::Attach(
        new PermissionRequestedArgs(kind, ToWide(line.at(4)), line.at(5) == "true"));
    (void)permissionRequested.Raise(this, args.Get());
    session->Send("permission", page, line.at(2), std::to_string(args->State()));
}

void WebView::OnNavigation(const Fields& line) {
    source = ToWide(line.at(4));
    const auto status = static_cast<COREWEBVIEW2_WEB_ERROR_STATUS>(std::strtol(line.at(3).c_str(), nullptr, 10));
    const auto args = receiver::ComPtr<NavigationCompletedArgs>::Attach(
        new NavigationCompletedArgs(line.at(2) == "true", status, ++navigationId));
    (void)navigationCompleted.Raise(this, args.Get());
}

} // namespace rig
