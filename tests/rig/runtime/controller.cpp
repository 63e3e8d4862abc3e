#include "controller.h"

#include "platform/hresult.h"

#include <utility>

namespace rig {

HRESULT Controller::Start(const std::shared_ptr<Session>& session, HWND parent, CompletedHandler* handler) {
    auto controller = receiver::ComPtr<Controller>::Attach(new Controller(session, handler));
    Controller* const borrowed = controller.Get(); // The window ends before the controller does.
    controller->window_ = PictureWindow::Create(
        parent, [borrowed] { borrowed->OnWindowDestroyed(); },
        [borrowed] { borrowed->session_->Send("painted", borrowed->page_); });
    if (!controller->window_) {
        return receiver::LastErrorResult();
    }
    controller->pendingSelf_ = controller;
    session->Send("controller", controller->page_);
    return S_OK;
}

Controller::Controller(std::shared_ptr<Session> session, CompletedHandler* handler)
    : ControllerStubs(std::move(session)), page_(session_->AddPage(this)),
      webView_(receiver::ComPtr<WebView>::Attach(new WebView(session_, page_))), pendingHandler_(handler) {}

Controller::~Controller() { (void)Controller::Close(); }

HRESULT Controller::EnterOpen(const char* method) const {
    RETURN_IF_FAILED(Enter(method));
    return webView_->IsClosed() ? BrowserClosed : S_OK;
}

HRESULT Controller::get_IsVisible(BOOL* visible) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    return StoreResult(visible_, visible);
}

HRESULT Controller::put_IsVisible(BOOL visible) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    visible_ = visible;
    ShowWindow(window_->Handle(), visible ? SW_SHOWNA : SW_HIDE);
    return S_OK;
}

HRESULT Controller::get_Bounds(RECT* bounds) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    return StoreResult(bounds_, bounds);
}

HRESULT Controller::put_Bounds(RECT bounds) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    bounds_ = bounds;
    const int width = bounds.right - bounds.left;
    const int height = bounds.bottom - bounds.top;
    SetWindowPos(window_->Handle(), nullptr, bounds.left, bounds.top, width, height, SWP_NOZORDER | SWP_NOACTIVATE);
    session_->Send("bounds", page_, std::to_string(width), std::to_string(height));
    return S_OK;
}

HRESULT Controller::get_ParentWindow(HWND* parent) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    return StoreResult(GetParent(window_->Handle()), parent);
}

HRESULT Controller::NotifyParentWindowPositionChanged() noexcept { return EnterOpen(__func__); }

HRESULT Controller::Close() noexcept {
    if (webView_->IsClosed()) {
        return S_OK;
    }
    webView_->Close();
    window_.reset();
    session_->SendCallbackRecords();
    session_->Send("close", page_);
    session_->RemovePage(page_);
    return S_OK;
}

HRESULT Controller::get_CoreWebView2(ICoreWebView2** webView) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    if (webView == nullptr) {
        return E_POINTER;
    }
    webView_->AddRef();
    *webView = webView_.Get();
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
        if (window_) {
            window_->ShowFile(ToWide(line.at(2)));
        }
    } else {
        webView_->OnLine(line);
    }
}

void Controller::OnWindowDestroyed() {
    const receiver::ComPtr<Controller> alive(this);
    Complete(E_ABORT);
    (void)Close();
}

// Does nothing when the handler has been called already.
void Controller::Complete(HRESULT result) {
    const receiver::ComPtr<Controller> self = std::exchange(pendingSelf_, {});
    const receiver::ComPtr<CompletedHandler> handler = std::exchange(pendingHandler_, {});
    if (handler) {
        (void)handler->Invoke(result, SUCCEEDED(result) ? this : nullptr);
    }
}

} // namespace rig
