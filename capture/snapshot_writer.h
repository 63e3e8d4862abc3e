// Saves a frame as a JPEG file in the user's Pictures folder, through the Windows Imaging Component.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

namespace receiver {

// Saves a tightly packed NV12 frame of `size` bytes. `outPath` is set as soon as the path has been made, so that a
// later failure still names the file. Returns the code of the first failing step; E_INVALIDARG for an unusable frame;
// E_FAIL when the encoder does not accept 24-bit BGR. An incomplete file that a failure leaves is not deleted.
[[nodiscard]] HRESULT SaveSnapshot(const std::uint8_t* frame, std::uint32_t size, std::uint32_t width,
                                   std::uint32_t height, std::wstring& outPath) noexcept;

} // namespace receiver
