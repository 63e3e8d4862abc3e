// An application's capture graph around the sample camera: the camera, a grabber that keeps every sample, a renderer
// that drops them. All but the camera is the system's own.
#pragma once

#include "platform/com_ptr.h"
#include "sample_camera/media_type.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

struct ISampleGrabberCB;

namespace sample_camera {

using receiver::ComPtr;

// Generous: the machine may be busy with something else.
inline constexpr std::chrono::seconds Limit{60};

struct Sample {
    REFERENCE_TIME start = 0;
    REFERENCE_TIME end = 0;
    bool timed = false;
    std::vector<std::uint8_t> bytes;
    std::chrono::steady_clock::time_point arrived;
    double threadUs = 0; // CPU time so far of the thread that has delivered it, in microseconds
};

// A camera of the built DLL, or of another one, made without any registration. Null when that fails.
[[nodiscard]] ComPtr<IBaseFilter> MakeCamera();
[[nodiscard]] ComPtr<IBaseFilter> MakeCamera(const std::wstring& dll);
// The camera's only pin.
[[nodiscard]] ComPtr<IPin> CapturePin(const ComPtr<IBaseFilter>& camera);
// The system's filter that hands samples to its client, and its input.
[[nodiscard]] ComPtr<IBaseFilter> MakeGrabber();
[[nodiscard]] ComPtr<IPin> InputPin(const ComPtr<IBaseFilter>& grabber);

class CaptureGraph {
public:
    explicit CaptureGraph(ComPtr<IBaseFilter> newCamera = MakeCamera());
    CaptureGraph(const CaptureGraph&) = delete;
    CaptureGraph& operator=(const CaptureGraph&) = delete;
    ~CaptureGraph();

    [[nodiscard]] ComPtr<IBaseFilter> Camera() const { return camera; }
    [[nodiscard]] ComPtr<IBaseFilter> Renderer() const { return renderer; }
    [[nodiscard]] HRESULT SetFormat(const StreamFormat& format);
    // Connects all, as a stream of this category; null: of any.
    [[nodiscard]] HRESULT Render(const GUID* category);
    [[nodiscard]] HRESULT Run();
    [[nodiscard]] HRESULT Pause();
    [[nodiscard]] HRESULT Stop();
    // Lets the graph run without a clock.
    [[nodiscard]] HRESULT RemoveClock();
    // Takes the camera out of the graph, whatever it is doing.
    [[nodiscard]] HRESULT RemoveCamera();

    // The oldest sample not taken yet; empty when none comes within `limit`.
    [[nodiscard]] std::optional<Sample> Next(std::chrono::milliseconds limit = Limit);
    void ForgetSamples();
    // From now on only so many bytes of each sample are kept.
    void KeepBytes(std::size_t count) { keptBytes = count; }
    // From now on samples are kept and never given back to the camera, until the end of the graph.
    void HoldSamples();
    // Waits until so many samples are held.
    [[nodiscard]] bool WaitForHeld(std::size_t count);

private:
    class Grabber;

    ComPtr<IBaseFilter> camera;
    ComPtr<IGraphBuilder> graph;
    ComPtr<ICaptureGraphBuilder2> builder;
    ComPtr<IBaseFilter> grabberFilter;
    ComPtr<IBaseFilter> renderer;
    ComPtr<IMediaControl> control;

    std::mutex lock;
    std::condition_variable changed;
    std::deque<Sample> samples;
    std::vector<ComPtr<IMediaSample>> held;
    bool holding = false;
    std::atomic<std::size_t> keptBytes = SIZE_MAX;
    ComPtr<ISampleGrabberCB> grabber;
};

} // namespace sample_camera
