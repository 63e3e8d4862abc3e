// Writes the published frames into an H.264 MP4 file in the user's Videos folder, through a Media Foundation sink
// writer. Recording means that a writer exists. UI thread only. COM must be initialized before Start.
#pragma once

#include "capture/sample_clock.h"
#include "platform/com_ptr.h"
#include "platform/media_foundation.h"

#include <windows.h>

#include <mfidl.h>
#include <mfreadwrite.h>

#include <cstdint>
#include <string>

namespace receiver {

class VideoRecorder {
public:
    VideoRecorder() = default;
    VideoRecorder(const VideoRecorder&) = delete;
    VideoRecorder& operator=(const VideoRecorder&) = delete;
    // Finalizes a running recording.
    ~VideoRecorder();

    [[nodiscard]] bool Recording() const noexcept { return static_cast<bool>(writer); }
    // Starts a file for frames of this size in pixels. HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS) while recording, else
    // the code of the first failing step. `outPath` may be null and is written only on success. A file that
    // a failed start leaves is not deleted.
    [[nodiscard]] HRESULT Start(std::uint32_t frameWidth, std::uint32_t frameHeight, std::wstring* outPath) noexcept;
    // Appends one tightly packed NV12 frame of `size` bytes. S_FALSE while idle; E_INVALIDARG for a null pointer or
    // another size than the recording's. A failure leaves the recording running.
    [[nodiscard]] HRESULT WriteFrame(const std::uint8_t* data, std::int32_t size) noexcept;
    // Finalizes the file and becomes idle regardless of the result. S_FALSE, with `outPath` untouched, while idle.
    [[nodiscard]] HRESULT Stop(std::wstring* outPath) noexcept;

private:
    // While recording. The application object is destroyed after the entry point's MFShutdown, and the writer needs
    // Media Foundation until it is released: destroyed after the writer.
    MediaFoundationStart mediaFoundation;
    ComPtr<IMFSinkWriter> writer;
    DWORD streamIndex = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint64_t startTick = 0; // milliseconds since system start
    std::int64_t lastSampleTime = NoSampleYet; // 100 ns units
    std::wstring path;
};

} // namespace receiver
