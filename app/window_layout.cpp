// Moves the window into a layout and keeps the browser filling it. The geometry itself is in app/window_placement.h.

#include "app/receiver_app.h"
#include "app/receiver_log.h"
#include "app/window_placement.h"

namespace receiver {
namespace {

WindowRectangle ToRectangle(const RECT& rect) noexcept { return {rect.left, rect.top, rect.right, rect.bottom}; }

} // namespace

void ReceiverApp::ApplyWindowLayout(std::int32_t clientWidth, std::int32_t clientHeight, std::wstring_view layout) {
    if (window == nullptr || IsIconic(window) != 0) {
        return;
    }
    if (IsZoomed(window) != 0) {
        // Deliberate: the layout is remembered although it is not applied; after the window has been restored, the
        // same layout is ignored below until another one arrives.
        layoutName = layout;
        ReceiverLog::Write(L"Receiver window layout changed while maximized; preserving maximized state");
        return;
    }
    if (layout == layoutName) {
        return;
    }
    RECT current{};
    RECT outer{0, 0, clientWidth, clientHeight};
    const auto style = static_cast<DWORD>(GetWindowLongPtrW(window, GWL_STYLE));
    const auto extendedStyle = static_cast<DWORD>(GetWindowLongPtrW(window, GWL_EXSTYLE));
    MONITORINFO monitor{};
    monitor.cbSize = sizeof(monitor);
    if (GetWindowRect(window, &current) == 0 ||
        AdjustWindowRectExForDpi(&outer, style, FALSE, extendedStyle, GetDpiForWindow(window)) == 0 ||
        GetMonitorInfoW(MonitorFromWindow(window, MONITOR_DEFAULTTONEAREST), &monitor) == 0) {
        return;
    }
    const WindowRectangle place = PlaceWindow(ToRectangle(current), outer.right - outer.left, outer.bottom - outer.top,
                                              ToRectangle(monitor.rcWork));
    if (SetWindowPos(window, nullptr, place.left, place.top, place.right - place.left, place.bottom - place.top,
                     SWP_NOZORDER | SWP_NOACTIVATE | SWP_NOOWNERZORDER) == 0) {
        return;
    }
    layoutName = layout;
    ReceiverLog::Write(L"Receiver window layout: ", layoutName);
}

void ReceiverApp::FitBrowserToWindow() noexcept {
    if (!controller || window == nullptr) {
        return;
    }
    RECT client{};
    (void)GetClientRect(window, &client); // It fails only for a destroyed window, which shows no browser.
    (void)controller->put_Bounds(client); // A browser that cannot be resized keeps its bounds.
}

} // namespace receiver
