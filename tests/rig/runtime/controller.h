// ICoreWebView2Controller: a child window that fills its bounds, and the web view shown in it.
#pragma once

#include "picture_window.h"
#include "stubs.h"
#include "web_view.h"

#include <memory>
#include <string>

namespace rig {

class Controller final : public ControllerStubs, private Page {
public:
    using CompletedHandler = ICoreWebView2CreateCoreWebView2ControllerCompletedHandler;

    // Makes the child window at once and calls `handler` when the server has the page.
    static HRESULT Start(const std::shared_ptr<Session>& newSession, HWND parent, CompletedHandler* handler);
    Controller(std::shared_ptr<Session> newSession, CompletedHandler* handler);

    HRESULT STDMETHODCALLTYPE get_IsVisible(BOOL* value) noexcept override;
    HRESULT STDMETHODCALLTYPE put_IsVisible(BOOL newVisible) noexcept override;
    HRESULT STDMETHODCALLTYPE get_Bounds(RECT* value) noexcept override;
    HRESULT STDMETHODCALLTYPE put_Bounds(RECT newBounds) noexcept override;
    HRESULT STDMETHODCALLTYPE get_ParentWindow(HWND* parent) noexcept override;
    HRESULT STDMETHODCALLTYPE NotifyParentWindowPositionChanged() noexcept override;
    HRESULT STDMETHODCALLTYPE Close() noexcept override;
    HRESULT STDMETHODCALLTYPE get_CoreWebView2(ICoreWebView2** value) noexcept override;

private:
    ~Controller() override;
    [[nodiscard]] HRESULT EnterOpen(const char* method) const;
    void OnLine(const Fields& line) override;
    void OnWindowDestroyed();
    void Complete(HRESULT result);

    std::string page;
    receiver::ComPtr<WebView> webView;
    receiver::ComPtr<CompletedHandler> pendingHandler;
    receiver::ComPtr<Controller> pendingSelf; // Until the handler has been called.
    std::unique_ptr<PictureWindow> window;
    RECT bounds{};
    BOOL visible = TRUE;
};

} // namespace rig
