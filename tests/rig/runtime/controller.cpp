#include "controller.h"

#include "platform/hresult.h"

#include <utility>

namespace rig {

HRESULT Controller::Start(const std::shared_ptr<Session>& newSession, HWND parent, CompletedHandler* handler) {
    auto controller = receiver::ComPtr<Controller>::Attach(new Controller(newSession, handler));
    Controller* const borrowed = controller.Get(); // The window ends before the controller does.
    controller->window = PictureWindow::Create(
        parent, [borrowed] { borrowed->OnWindowDestroyed(); },
        [borrowed] { borrowed->session->Send("painted", borrowed->page); });
    if (!controller->window) {
        return receiver::LastErrorResult();
    }
    controller->pendingSelf = controller;
    newSession->Send("controller", controller->page);
    return S_OK;
}

Controller::Controller(std::shared_ptr<Session> newSession, CompletedHandler* handler)
    : ControllerStubs(std::move(newSession)), page(session->AddPage(this)),
      webView(receiver::ComPtr<WebView>::Attach(new WebView(session, page))), pendingHandler(handler) {}

Controller::~Controller() { (void)Controller::Close(); }

HRESULT Controller::EnterOpen(const char* method) const {
    RETURN_IF_FAILED(Enter(method));
    return webView->IsClosed() ? BrowserClosed : S_OK;
}

HRESULT Controller::get_IsVisible(BOOL* value) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    return StoreResult(visible, value);
}

HRESULT Controller::put_IsVisible(BOOL newVisible) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    visible = newVisible;
    ShowWindow(window->Handle(), newVisible ? SW_SHOWNA : SW_HIDE);
    return S_OK;
}

HRESULT Controller::get_Bounds(RECT* value) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    return StoreResult(bounds, value);
}

HRESULT Controller::put_Bounds(RECT newBounds) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    bounds = newBounds;
    const int width = newBounds.right - newBounds.left;
    const int height = newBounds.bottom - newBounds.top;
    SetWindowPos(window->Handle(), nullptr, newBounds.left, newBounds.top, width, height,
                 SWP_NOZORDER | SWP_NOACTIVATE);
    session->Send("bounds", page, std::to_string(width), std::to_string(height));
    return S_OK;
}

HRESULT Controller::get_ParentWindow(HWND* parent) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    return StoreResult(GetParent(window->Handle()), parent);
}

HRESULT Controller::NotifyParentWindowPositionChanged() noexcept { return EnterOpen(__func__); }

HRESULT Controller::Close() noexcept {
    if (webView->IsClosed()) {
        return S_OK;
    }
    webView->Close();
    window.reset();
    session->SendCallbackRecords();
    session->Send("close", page);
    session->RemovePage(page);
    return S_OK;
}

HRESULT Controller::get_CoreWebView2(ICoreWebView2** value) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    if (value == nullptr) {
        return E_POINTER;
    }
    webView->AddRef();
    *value = webView.Get();
    return S_OK;
}

void Controller::OnLine(const Fields& line) {
    const receiver::ComPtr<Controller> alive(this); // The host may let go of it in a callback.
    if (line[0] == "controller") {
        Complete(S_OK);
    } else if (line[0] == "controller-failed") {
        Complete(E_FAIL);
    } else if (line[0] == "gone") {
        Complete(E_FAIL);
        (void)Close();
    } else if (line[0] == "picture") {
        if (window) {
            window->ShowFile(ToWide(line.at(2)));
        }
    } else {
        webView->OnLine(line);
    }
}

void Controller::OnWindowDestroyed() {
    const receiver::ComPtr<Controller> alive(this);
    Complete(E_ABORT);
    (void)Close();
}

// Does nothing when the handler has been called already.
void Controller::Complete(HRESULT result) {
    const receiver::ComPtr<Controller> self = std::exchange(pendingSelf, {});
    const receiver::ComPtr<CompletedHandler> handler = std::exchange(pendingHandler, {});
    if (handler) {
        (void)handler->Invoke(result, SUCCEEDED(result) ? this : nullptr);
    }
}

} // namespace rig
