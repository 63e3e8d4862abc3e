// The thread that looks for new frames and delivers them, or the "no picture" card, to the connected pin.
#pragma once

#include "examples/camera/frame_reader.h"
#include "platform/com_ptr.h"
#include "platform/handles.h"
#include "sample_camera/frame_choice.h"
#include "sample_camera/media_type.h"
#include "sample_camera/own_time.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

namespace sample_camera {

using receiver::ComPtr;

// What a connection has agreed upon. The allocator is committed while a stream uses it.
struct StreamTarget {
    ComPtr<IMemInputPin> input;
    ComPtr<IMemAllocator> allocator;
    StreamFormat format;
};

// Start, Stop and the destructor belong to one thread at a time; Run and Pause may come from any.
class CameraStream {
public:
    CameraStream() noexcept = default;
    CameraStream(const CameraStream&) = delete;
    CameraStream& operator=(const CameraStream&) = delete;
    ~CameraStream() { Stop(); }

    // Starts the thread, paused. S_FALSE when it runs already.
    [[nodiscard]] HRESULT Start(StreamTarget newTarget) noexcept;
    // Delivers from the moment at which `newClock` shows `newStartTime`; without a clock, from now on.
    void Run(ComPtr<IReferenceClock> newClock, REFERENCE_TIME newStartTime) noexcept;
    void Pause() noexcept;
    // Ends the thread, even while it waits for a free buffer or in a filter downstream. The caller holds no lock that
    // downstream could need.
    void Stop() noexcept;

private:
    static DWORD WINAPI ThreadMain(void* stream) noexcept;
    void Deliver() noexcept;
    // True when a sample is ready to be sent.
    [[nodiscard]] bool Fill(vistel::FrameReader& reader, FrameChoice& choice, std::uint8_t* dst) noexcept;
    [[nodiscard]] HRESULT Send(IMediaSample& sample, REFERENCE_TIME time) const noexcept;
    // Time of the stream, negative before its start; empty while paused.
    [[nodiscard]] std::optional<REFERENCE_TIME> StreamTime() noexcept;

    StreamTarget target{};
    std::unique_ptr<std::uint8_t[]> source; // a frame as it was read
    std::unique_ptr<std::uint8_t[]> scaled; // the same in the application's size, or the card
    receiver::UniqueHandle stop;
    receiver::UniqueHandle thread;

    std::mutex lock; // guards what follows; held for moments only
    bool running = false;
    ComPtr<IReferenceClock> clock;
    REFERENCE_TIME startTime = 0;
    OwnTime ownTime; // for a graph without a clock
};

} // namespace sample_camera
