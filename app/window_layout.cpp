// The window's shape and the browser's place in it.

#include "app/receiver_app.h"

namespace receiver {

void ReceiverApp::ApplyWindowLayout(std::int32_t, std::int32_t, std::wstring_view) {
    // The layout modes are not built yet: the window keeps its shape.
}

void ReceiverApp::FitBrowserToWindow() noexcept {
    if (!controller || window == nullptr) {
        return;
    }
    RECT client{};
    (void)GetClientRect(window, &client); // It fails for a window that is gone, and then nobody looks.
    (void)controller->put_Bounds(client); // A browser that cannot be resized keeps its old place.
}

} // namespace receiver
