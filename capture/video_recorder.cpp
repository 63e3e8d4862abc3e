#include "capture/video_recorder.h"

namespace receiver {

HRESULT VideoRecorder::Start(std::uint32_t, std::uint32_t, std::wstring*) noexcept { return E_NOTIMPL; }
HRESULT VideoRecorder::WriteFrame(const std::uint8_t*, std::int32_t) noexcept { return S_FALSE; }
HRESULT VideoRecorder::Stop(std::wstring*) noexcept { return S_FALSE; }

} // namespace receiver
