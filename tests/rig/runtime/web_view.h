// ICoreWebView2 to ICoreWebView2_17: navigation, messages and shared buffers of one page.
#pragma once

#include "stubs.h"

#include <map>
#include <string>
#include <utility>

namespace rig {

// What every call answers once the controller is closed or the browser has ended.
inline constexpr HRESULT BrowserClosed = static_cast<HRESULT>(0x8007139F); // HRESULT_FROM_WIN32(ERROR_INVALID_STATE)

// The handlers of one event, in the order in which they were added.
template <typename Handler>
class EventHandlers {
public:
    HRESULT Add(Handler* handler, EventRegistrationToken* token) {
        if (handler == nullptr || token == nullptr) {
            return E_POINTER;
        }
        token->value = ++lastToken;
        handlers.emplace(token->value, handler);
        return S_OK;
    }
    HRESULT Remove(EventRegistrationToken token) {
        handlers.erase(token.value);
        return S_OK;
    }
    void Clear() { handlers.clear(); }

    // Calls every handler; the result is that of the last. A handler may remove handlers or close the web view.
    template <typename Sender, typename Arguments>
    HRESULT Raise(Sender* sender, Arguments* arguments) const {
        HRESULT result = S_OK;
        for (const auto& [token, handler] : std::map(handlers)) {
            result = handler->Invoke(sender, arguments);
        }
        return result;
    }

private:
    std::map<INT64, receiver::ComPtr<Handler>> handlers;
    INT64 lastToken = 0;
};

class Settings;

class WebView final : public WebViewStubs {
public:
    WebView(std::shared_ptr<Session> newSession, std::string newPage);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) noexcept override;
    HRESULT STDMETHODCALLTYPE get_Settings(ICoreWebView2Settings** value) noexcept override;
    HRESULT STDMETHODCALLTYPE get_Source(LPWSTR* value) noexcept override;
    HRESULT STDMETHODCALLTYPE Navigate(LPCWSTR address) noexcept override;
    HRESULT STDMETHODCALLTYPE NavigateToString(LPCWSTR html) noexcept override;
    HRESULT STDMETHODCALLTYPE PostWebMessageAsJson(LPCWSTR json) noexcept override;
    HRESULT STDMETHODCALLTYPE PostSharedBufferToScript(ICoreWebView2SharedBuffer* buffer,
                                                       COREWEBVIEW2_SHARED_BUFFER_ACCESS access,
                                                       LPCWSTR additionalDataAsJson) noexcept override;
    HRESULT STDMETHODCALLTYPE add_NavigationCompleted(ICoreWebView2NavigationCompletedEventHandler* handler,
                                                      EventRegistrationToken* token) noexcept override;
    HRESULT STDMETHODCALLTYPE remove_NavigationCompleted(EventRegistrationToken token) noexcept override;
    HRESULT STDMETHODCALLTYPE add_PermissionRequested(ICoreWebView2PermissionRequestedEventHandler* handler,
                                                      EventRegistrationToken* token) noexcept override;
    HRESULT STDMETHODCALLTYPE remove_PermissionRequested(EventRegistrationToken token) noexcept override;
    HRESULT STDMETHODCALLTYPE add_WebMessageReceived(ICoreWebView2WebMessageReceivedEventHandler* handler,
                                                     EventRegistrationToken* token) noexcept override;
    HRESULT STDMETHODCALLTYPE remove_WebMessageReceived(EventRegistrationToken token) noexcept override;

    void OnLine(const Fields& line);
    void Close();
    [[nodiscard]] bool IsClosed() const { return closed; }

private:
    ~WebView() override;
    [[nodiscard]] HRESULT EnterOpen(const char* method) const;
    void OnMessage(const Fields& line);
    void OnPermission(const Fields& line);
    void OnNavigation(const Fields& line);

    std::string page;
    receiver::ComPtr<Settings> settings;
    std::wstring source = L"about:blank";
    EventHandlers<ICoreWebView2NavigationCompletedEventHandler> navigationCompleted;
    EventHandlers<ICoreWebView2PermissionRequestedEventHandler> permissionRequested;
    EventHandlers<ICoreWebView2WebMessageReceivedEventHandler> webMessageReceived;
    UINT64 navigationId = 0;
    bool closed = false;
};

} // namespace rig
