// Whether the virtual camera, which is a separate product, is installed.
#pragma once

namespace receiver {

// Whether the camera's COM server is registered for 64-bit processes; whether its file exists is not checked.
[[nodiscard]] bool IsVirtualCameraRegistered() noexcept;

} // namespace receiver
