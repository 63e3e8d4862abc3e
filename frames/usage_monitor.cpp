// Watches whether some application is using the virtual camera.

#include "app/receiver_app.h"

namespace receiver {

void ReceiverApp::InitializeUsageMonitor() noexcept {
    // Not built yet: without the event there is no timer, and the camera counts as idle.
}

void ReceiverApp::OnUsageTimer() noexcept {}

} // namespace receiver
