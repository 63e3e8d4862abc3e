#include "sample_camera/camera_stream.h"

#include "platform/hresult.h"
#include "sample_camera/card.h"
#include "sample_camera/picture.h"

#include <objbase.h>
#include <timeapi.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <new>
#include <utility>

namespace sample_camera {
namespace {

constexpr LONG PollPeriodMs = 2;

std::int64_t Now100ns() noexcept {
    using Unit = std::chrono::duration<std::int64_t, std::ratio<1, 10000000>>;
    return std::chrono::duration_cast<Unit>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Wakes the thread every two milliseconds. Windows' ordinary timers would make fifteen of them.
class PollTimer {
public:
    PollTimer() noexcept {
        constexpr DWORD HighResolution = 0x2; // CREATE_WAITABLE_TIMER_HIGH_RESOLUTION, since Windows 10 1803
        timer_.Reset(CreateWaitableTimerExW(nullptr, nullptr, HighResolution, TIMER_ALL_ACCESS));
        if (!timer_) {
            timer_.Reset(CreateWaitableTimerExW(nullptr, nullptr, 0, TIMER_ALL_ACCESS));
            raised_ = timeBeginPeriod(1) == TIMERR_NOERROR;
        }
        LARGE_INTEGER due;
        due.QuadPart = 0; // at once, then periodically: one call of the system less for each wait
        SetWaitableTimer(timer_.Get(), &due, PollPeriodMs, nullptr, nullptr, FALSE);
    }
    PollTimer(const PollTimer&) = delete;
    PollTimer& operator=(const PollTimer&) = delete;
    ~PollTimer() {
        if (raised_) {
            timeEndPeriod(1);
        }
    }

    // False once `stop` is signaled.
    [[nodiscard]] bool WaitUnless(HANDLE stop) const noexcept {
        const std::array handles{stop, timer_.Get()};
        return WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), FALSE, INFINITE) ==
               WAIT_OBJECT_0 + 1;
    }

private:
    receiver::UniqueHandle timer_;
    bool raised_ = false;
};

void DrawReason(const vistel::FrameReader& reader, std::uint8_t* nv12, PictureSize size) noexcept {
    std::array<char, 160> text{};
    const DWORD error = reader.SystemError();
    (void)std::snprintf(text.data(), text.size(), error != 0 ? "No picture: %s, error %lu" : "No picture: %s",
                        vistel::Text(reader.State()), error);
    DrawCard(text.data(), nv12, size);
}

} // namespace

HRESULT CameraStream::Start(StreamTarget target) noexcept {
    if (thread_) {
        return S_FALSE;
    }
    source_.reset(new (std::nothrow) std::uint8_t[vistel::MaxFrameSize]);
    scaled_.reset(new (std::nothrow) std::uint8_t[vistel::MaxFrameSize]);
    stop_.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!source_ || !scaled_ || !stop_) {
        return E_OUTOFMEMORY;
    }
    RETURN_IF_FAILED(target.allocator->Commit());
    target_ = std::move(target);
    ownTime_ = {};
    thread_.Reset(CreateThread(nullptr, 0, ThreadMain, this, 0, nullptr));
    if (!thread_) {
        const HRESULT result = receiver::LastErrorResult();
        (void)target_.allocator->Decommit();
        target_ = {};
        return result;
    }
    return S_OK;
}

void CameraStream::Run(ComPtr<IReferenceClock> clock, REFERENCE_TIME startTime) noexcept {
    Pause(); // in case it runs already
    const std::lock_guard guard(lock_);
    running_ = true;
    startTime_ = clock ? startTime : ownTime_.Run(Now100ns());
    clock_ = std::move(clock);
}

void CameraStream::Pause() noexcept {
    const std::lock_guard guard(lock_);
    if (running_ && !clock_) {
        ownTime_.Pause(Now100ns());
    }
    running_ = false;
    clock_.Reset();
}

void CameraStream::Stop() noexcept {
    Pause();
    if (!thread_) {
        return;
    }
    SetEvent(stop_.Get());
    (void)target_.allocator->Decommit(); // ends a wait for a free buffer
    // Ends a wait in Receive: a renderer that is paused keeps its sample. Graphs stop renderers first, applications
    // that stop filters themselves may not.
    ComPtr<IPin> peer;
    if (SUCCEEDED(target_.input.As(IID_IPin, peer))) {
        (void)peer->BeginFlush();
    }
    WaitForSingleObject(thread_.Get(), INFINITE);
    if (peer) {
        (void)peer->EndFlush();
    }
    thread_.Reset();
    stop_.Reset();
    target_ = {};
    source_.reset();
    scaled_.reset();
}

DWORD WINAPI CameraStream::ThreadMain(void* stream) noexcept {
    const HRESULT initialized = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    static_cast<CameraStream*>(stream)->Deliver();
    if (SUCCEEDED(initialized)) {
        CoUninitialize();
    }
    return 0;
}

void CameraStream::Deliver() noexcept {
    const PollTimer timer;
    const vistel::UsageSignal usage;
    vistel::FrameReader reader;
    FrameChoice choice(target_.format.interval100ns);
    ComPtr<IMediaSample> sample;
    REFERENCE_TIME lastTime = -1;
    while (timer.WaitUnless(stop_.Get())) {
        const std::optional<REFERENCE_TIME> time = StreamTime();
        // Graphs let the stream's time begin some time after Run, after a pause as well. Until it has come again to
        // where it was, nothing is delivered: times must rise, and a renderer holds a sample back whose time is to
        // come.
        if (!time || *time <= lastTime || !choice.IsTimeToLook(Now100ns())) {
            continue;
        }
        if (!sample && target_.allocator->GetBuffer(sample.Put(), nullptr, nullptr, 0) != S_OK) {
            return;
        }
        BYTE* dst = nullptr;
        if (sample->GetPointer(&dst) != S_OK ||
            sample->GetSize() < static_cast<LONG>(ImageBytes(target_.format.video))) {
            return;
        }
        if (!Fill(reader, choice, dst)) {
            continue;
        }
        usage.Signal();
        if (Send(*sample.Get(), *time) != S_OK) {
            return; // downstream wants nothing more until the next start
        }
        sample.Reset();
        lastTime = *time;
    }
}

bool CameraStream::Fill(vistel::FrameReader& reader, FrameChoice& choice, std::uint8_t* dst) noexcept {
    const VideoFormat& format = target_.format.video;
    const bool isNv12 = format.pixels == PixelFormat::Nv12;
    vistel::FrameInfo frame;
    const vistel::ReadResult result = reader.Read(frame, [&](std::uint32_t width, std::uint32_t height) {
        const bool asItIs = isNv12 && PictureSize{width, height} == format.size;
        return vistel::Destination{asItIs ? dst : source_.get(), width};
    });
    const bool live = reader.State() == vistel::PictureState::Live;
    switch (choice.Choose(result == vistel::ReadResult::NewFrame, live, Now100ns())) {
    case Delivery::Nothing:
        return false;
    case Delivery::Card:
        DrawReason(reader, scaled_.get(), format.size);
        ConvertNv12(scaled_.get(), dst, format);
        return true;
    case Delivery::Frame:
        break;
    }
    const PictureSize frameSize{frame.width, frame.height};
    if (!isNv12 || frameSize != format.size) {
        ConvertFrame(source_.get(), frameSize, scaled_.get(), dst, format);
    }
    return true;
}

HRESULT CameraStream::Send(IMediaSample& sample, REFERENCE_TIME time) const noexcept {
    REFERENCE_TIME end = time + target_.format.interval100ns;
    RETURN_IF_FAILED(sample.SetTime(&time, &end));
    RETURN_IF_FAILED(sample.SetActualDataLength(static_cast<LONG>(ImageBytes(target_.format.video))));
    RETURN_IF_FAILED(sample.SetSyncPoint(TRUE));
    return target_.input->Receive(&sample);
}

std::optional<REFERENCE_TIME> CameraStream::StreamTime() noexcept {
    ComPtr<IReferenceClock> clock;
    REFERENCE_TIME start = 0;
    {
        const std::lock_guard guard(lock_);
        if (!running_) {
            return std::nullopt;
        }
        clock = clock_;
        start = startTime_;
    }
    REFERENCE_TIME now = Now100ns();
    if (clock && FAILED(clock->GetTime(&now))) {
        return std::nullopt;
    }
    return now - start;
}

} // namespace sample_camera
