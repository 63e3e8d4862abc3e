// The WebView2 objects of the small machine: see fuzz/windows/fake_windows.h.

#include "fuzz/support/require.h"
#include "fuzz/windows/fake_windows.h"

#include <string>

namespace receiver {
namespace {

// A program that keeps the address beyond the buffer's last reference reads unmapped memory.
class SharedBuffer final : public FakeObject<ICoreWebView2SharedBuffer> {
public:
    explicit SharedBuffer(UINT64 size) : memory_(static_cast<std::size_t>(size)) {}
    HRESULT get_Buffer(BYTE** bytes) override {
        const HRESULT result = Answer();
        *bytes = SUCCEEDED(result) ? memory_.Bytes().data() : nullptr;
        return result;
    }

private:
    GuardedMemory memory_;
};

class Settings final : public FakeObject<ICoreWebView2Settings> {
public:
    HRESULT put_AreDefaultContextMenusEnabled(BOOL) override { return Answer(); }
    HRESULT put_AreDevToolsEnabled(BOOL) override { return Answer(); }
    HRESULT put_IsStatusBarEnabled(BOOL) override { return Answer(); }
};

class WebView final : public FakeObject<ICoreWebView2_17> {
public:
    HRESULT get_Settings(ICoreWebView2Settings** settings) override { return HandOut<Settings>(settings); }
    HRESULT get_Source(LPWSTR* source) override {
        *source = nullptr;
        RETURN_IF_FAILED(Answer());
        *source = FakeWindows::Current().MakeString(L"https://receiver.example/");
        return S_OK;
    }
    HRESULT Navigate(LPCWSTR) override { return Answer(); }
    HRESULT NavigateToString(LPCWSTR) override { return Answer(); }
    HRESULT add_NavigationCompleted(ICoreWebView2NavigationCompletedEventHandler* handler,
                                    EventRegistrationToken* token) override {
        return Register(FakeWindows::Current().navigationHandler, handler, token);
    }
    HRESULT add_PermissionRequested(ICoreWebView2PermissionRequestedEventHandler* handler,
                                    EventRegistrationToken* token) override {
        return Register(FakeWindows::Current().permissionHandler, handler, token);
    }
    HRESULT add_WebMessageReceived(ICoreWebView2WebMessageReceivedEventHandler* handler,
                                   EventRegistrationToken* token) override {
        return Register(FakeWindows::Current().messageHandler, handler, token);
    }
    HRESULT PostWebMessageAsJson(LPCWSTR text) override {
        RETURN_IF_FAILED(Answer());
        FakeWindows::Current().posted.emplace_back(text);
        return S_OK;
    }
    HRESULT PostSharedBufferToScript(ICoreWebView2SharedBuffer* buffer, COREWEBVIEW2_SHARED_BUFFER_ACCESS,
                                     LPCWSTR additionalData) override {
        Require(buffer != nullptr, "a buffer is posted");
        RETURN_IF_FAILED(Answer());
        FakeWindows::Current().posted.push_back(std::wstring(L"slot ") + additionalData);
        return S_OK;
    }

private:
    template <typename Handler>
    static HRESULT Register(ComPtr<Handler>& place, Handler* handler, EventRegistrationToken* token) {
        RETURN_IF_FAILED(Answer());
        place = ComPtr<Handler>(handler);
        token->value = 1;
        return S_OK;
    }
};

class Controller final : public FakeObject<ICoreWebView2Controller> {
public:
    HRESULT put_Bounds(RECT) override { return Answer(); }
    HRESULT get_CoreWebView2(ICoreWebView2** webView) override { return HandOut<WebView>(webView); }
};

class Environment final : public FakeObject<ICoreWebView2Environment12> {
public:
    HRESULT
    CreateCoreWebView2Controller(HWND, ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler) override {
        RETURN_IF_FAILED(Answer());
        FakeWindows::Current().controllerHandler = ComPtr(handler);
        return S_OK;
    }
    HRESULT CreateSharedBuffer(UINT64 size, ICoreWebView2SharedBuffer** buffer) override {
        return HandOut<SharedBuffer>(buffer, size);
    }
};

class MessageArguments final : public FakeObject<ICoreWebView2WebMessageReceivedEventArgs> {
public:
    MessageArguments(const std::optional<std::wstring>& text, bool asNull) : text_(text), asNull_(asNull) {}
    HRESULT TryGetWebMessageAsString(LPWSTR* text) override {
        *text = nullptr;
        if (!text_) {
            return E_INVALIDARG;
        }
        RETURN_IF_FAILED(Answer());
        *text = asNull_ ? nullptr : FakeWindows::Current().MakeString(*text_);
        return S_OK;
    }

private:
    const std::optional<std::wstring>& text_;
    bool asNull_;
};

} // namespace

void FakeWindows::CompleteEnvironment() {
    const auto handler = std::move(environmentHandler);
    const HRESULT result = Answer();
    const auto environment = ComPtr<Environment>::Attach(SUCCEEDED(result) ? new Environment : nullptr);
    (void)handler->Invoke(result, environment.Get());
}

void FakeWindows::CompleteController() {
    const auto handler = std::move(controllerHandler);
    const HRESULT result = Answer();
    const auto controller = ComPtr<Controller>::Attach(SUCCEEDED(result) ? new Controller : nullptr);
    (void)handler->Invoke(result, controller.Get());
}

HRESULT FakeWindows::PostFromPage(const std::optional<std::wstring>& text, bool asNull) {
    const auto arguments = ComPtr<MessageArguments>::Attach(new MessageArguments(text, asNull));
    return messageHandler->Invoke(nullptr, arguments.Get());
}

void FakeWindows::ReleaseHandlers() {
    environmentHandler.Reset();
    controllerHandler.Reset();
    messageHandler.Reset();
    permissionHandler.Reset();
    navigationHandler.Reset();
}

} // namespace receiver

HRESULT CreateCoreWebView2EnvironmentWithOptions(PCWSTR, PCWSTR, ICoreWebView2EnvironmentOptions*,
                                                 ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
    RETURN_IF_FAILED(receiver::Answer());
    receiver::FakeWindows::Current().environmentHandler = receiver::ComPtr(handler);
    return S_OK;
}
