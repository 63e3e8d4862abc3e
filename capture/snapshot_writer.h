// Saving a frame as a picture file. Not built yet.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

namespace receiver {

[[nodiscard]] HRESULT SaveSnapshot(const std::uint8_t* frame, std::uint32_t size, std::uint32_t width,
                                   std::uint32_t height, std::wstring& outPath) noexcept;

} // namespace receiver
