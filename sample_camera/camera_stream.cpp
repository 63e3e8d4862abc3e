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

constexpr LONG PollPeriodMs = 1;
constexpr std::int64_t Rest100ns = 160000; // less than the interval of 60 frames per second

std::int64_t Now100ns() noexcept {
    using Unit = std::chrono::duration<std::int64_t, std::ratio<1, 10000000>>;
    return std::chrono::duration_cast<Unit>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Wakes the thread once per poll period. Windows' ordinary timers would make fifteen milliseconds of it.
class PollTimer {
public:
    PollTimer() noexcept {
        constexpr DWORD HighResolution = 0x2; // CREATE_WAITABLE_TIMER_HIGH_RESOLUTION, since Windows 10 1803
        timer.Reset(CreateWaitableTimerExW(nullptr, nullptr, HighResolution, TIMER_ALL_ACCESS));
        if (!timer) {
            timer.Reset(CreateWaitableTimerExW(nullptr, nullptr, 0, TIMER_ALL_ACCESS));
            raised = timeBeginPeriod(1) == TIMERR_NOERROR;
        }
        Begin(0);
    }
    PollTimer(const PollTimer&) = delete;
    PollTimer& operator=(const PollTimer&) = delete;
    ~PollTimer() {
        if (raised) {
            timeEndPeriod(1);
        }
    }

    // False once `stop` is signaled.
    [[nodiscard]] bool WaitUnless(HANDLE stop) const noexcept {
        const std::array handles{stop, timer.Get()};
        return WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), FALSE, INFINITE) ==
               WAIT_OBJECT_0 + 1;
    }

    // Makes the next wait a long one: soon after a frame there is no other one, and each poll costs processor time.
    void Rest() const noexcept { Begin(Rest100ns); }

private:
    // Wakes after a time, then periodically: one call of the system less for each wait.
    void Begin(std::int64_t delay100ns) const noexcept {
        LARGE_INTEGER due;
        due.QuadPart = -delay100ns;
        SetWaitableTimer(timer.Get(), &due, PollPeriodMs, nullptr, nullptr, FALSE);
    }

    receiver::UniqueHandle timer;
    bool raised = false;
};

void DrawReason(const vistel::FrameReader& reader, std::uint8_t* nv12, PictureSize size) noexcept {
    std::array<char, 160> text{};
    const DWORD error = reader.SystemError();
    (void)std::snprintf(text.data(), text.size(), error != 0 ? "No picture: %s, error %lu" : "No picture: %s",
                        vistel::Text(reader.State()), error);
    DrawCard(text.data(), nv12, size);
}

} // namespace

HRESULT CameraStream::Start(StreamTarget newTarget) noexcept {
    if (thread) {
        return S_FALSE;
    }
    source.reset(new (std::nothrow) std::uint8_t[vistel::MaxFrameSize]);
    scaled.reset(new (std::nothrow) std::uint8_t[vistel::MaxFrameSize]);
    stop.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!source || !scaled || !stop) {
        return E_OUTOFMEMORY;
    }
    RETURN_IF_FAILED(newTarget.allocator->Commit());
    target = std::move(newTarget);
    ownTime = {};
    thread.Reset(CreateThread(nullptr, 0, ThreadMain, this, 0, nullptr));
    if (!thread) {
        const HRESULT result = receiver::LastErrorResult();
        (void)target.allocator->Decommit();
        target = {};
        return result;
    }
    return S_OK;
}

void CameraStream::Run(ComPtr<IReferenceClock> newClock, REFERENCE_TIME newStartTime) noexcept {
    Pause(); // in case it runs already
    const std::lock_guard guard(lock);
    running = true;
    startTime = newClock ? newStartTime : ownTime.Run(Now100ns());
    clock = std::move(newClock);
}

void CameraStream::Pause() noexcept {
    const std::lock_guard guard(lock);
    if (running && !clock) {
        ownTime.Pause(Now100ns());
    }
    running = false;
    clock.Reset();
}

void CameraStream::Stop() noexcept {
    Pause();
    if (!thread) {
        return;
    }
    SetEvent(stop.Get());
    (void)target.allocator->Decommit(); // ends a wait for a free buffer
    // Ends a wait in Receive: a renderer that is paused keeps its sample. Graphs stop renderers first, applications
    // that stop filters themselves may not.
    ComPtr<IPin> peer;
    if (SUCCEEDED(target.input.As(IID_IPin, peer))) {
        (void)peer->BeginFlush();
    }
    WaitForSingleObject(thread.Get(), INFINITE);
    if (peer) {
        (void)peer->EndFlush();
    }
    thread.Reset();
    stop.Reset();
    target = {};
    source.reset();
    scaled.reset();
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
    FrameChoice choice(target.format.interval100ns);
    ComPtr<IMediaSample> sample;
    REFERENCE_TIME lastTime = -1;
    while (timer.WaitUnless(stop.Get())) {
        const std::optional<REFERENCE_TIME> time = StreamTime();
        if (!time) {
            timer.Rest();
            continue;
        }
        // Graphs let the stream's time begin some time after Run, after a pause as well. Until it has come again to
        // where it was, nothing is delivered: times must rise, and a renderer holds a sample back whose time is to
        // come.
        if (*time <= lastTime || !choice.IsTimeToLook(Now100ns())) {
            continue;
        }
        if (!sample && target.allocator->GetBuffer(sample.Put(), nullptr, nullptr, 0) != S_OK) {
            return;
        }
        BYTE* dst = nullptr;
        if (sample->GetPointer(&dst) != S_OK ||
            sample->GetSize() < static_cast<LONG>(ImageBytes(target.format.video))) {
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
        timer.Rest();
    }
}

bool CameraStream::Fill(vistel::FrameReader& reader, FrameChoice& choice, std::uint8_t* dst) noexcept {
    const VideoFormat& format = target.format.video;
    const bool isNv12 = format.pixels == PixelFormat::Nv12;
    vistel::FrameInfo frame;
    const vistel::ReadResult result = reader.Read(frame, [&](std::uint32_t width, std::uint32_t height) {
        const bool asItIs = isNv12 && PictureSize{width, height} == format.size;
        return vistel::Destination{asItIs ? dst : source.get(), width};
    });
    const bool live = reader.State() == vistel::PictureState::Live;
    switch (choice.Choose(result == vistel::ReadResult::NewFrame, live, Now100ns())) {
    case Delivery::Nothing:
        return false;
    case Delivery::Card:
        DrawReason(reader, scaled.get(), format.size);
        ConvertNv12(scaled.get(), dst, format);
        return true;
    case Delivery::Frame:
        break;
    }
    const PictureSize frameSize{frame.width, frame.height};
    if (!isNv12 || frameSize != format.size) {
        ConvertFrame(source.get(), frameSize, scaled.get(), dst, format);
    }
    return true;
}

HRESULT CameraStream::Send(IMediaSample& sample, REFERENCE_TIME time) const noexcept {
    REFERENCE_TIME end = time + target.format.interval100ns;
    RETURN_IF_FAILED(sample.SetTime(&time, &end));
    RETURN_IF_FAILED(sample.SetActualDataLength(static_cast<LONG>(ImageBytes(target.format.video))));
    RETURN_IF_FAILED(sample.SetSyncPoint(TRUE));
    return target.input->Receive(&sample);
}

std::optional<REFERENCE_TIME> CameraStream::StreamTime() noexcept {
    ComPtr<IReferenceClock> currentClock;
    REFERENCE_TIME start = 0;
    {
        const std::lock_guard guard(lock);
        if (!running) {
            return std::nullopt;
        }
        currentClock = clock;
        start = startTime;
    }
    REFERENCE_TIME now = Now100ns();
    if (currentClock && FAILED(currentClock->GetTime(&now))) {
        return std::nullopt;
    }
    return now - start;
}

} // namespace sample_camera
