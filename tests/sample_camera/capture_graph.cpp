#include "tests/sample_camera/capture_graph.h"

#include "platform/hresult.h"
#include "tests/frames/frame_file_process.h"

#include <qedit.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace sample_camera {
namespace {

// Missing in the cross compiler's libraries.
constexpr CLSID SampleGrabberClass{0xC1F400A0, 0x3F08, 0x11D3, {0x9F, 0x0B, 0x00, 0x60, 0x08, 0x03, 0x9E, 0x37}};
constexpr CLSID NullRendererClass{0xC1F400A4, 0x3F08, 0x11D3, {0x9F, 0x0B, 0x00, 0x60, 0x08, 0x03, 0x9E, 0x37}};

ComPtr<IBaseFilter> MakeFilter(const CLSID& id) {
    ComPtr<IBaseFilter> filter;
    EXPECT_EQ(CoCreateInstance(id, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter, filter.PutVoid()), S_OK);
    return filter;
}

// CPU time of this thread so far.
double ThreadTimeUs() {
    FILETIME created{};
    FILETIME exited{};
    FILETIME kernel{};
    FILETIME user{};
    GetThreadTimes(GetCurrentThread(), &created, &exited, &kernel, &user);
    const auto us = [](const FILETIME& time) {
        return static_cast<double>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime) / 10;
    };
    return us(kernel) + us(user);
}

} // namespace

ComPtr<IBaseFilter> MakeCamera() { return MakeCamera(receiver::BuiltProgram(VISTEL_SAMPLE_CAMERA)); }

ComPtr<IBaseFilter> MakeCamera(const std::wstring& dll) {
    // Never freed: from its first object on the DLL stays loaded anyway.
    const HMODULE module = LoadLibraryW(dll.c_str());
    const auto getClassObject = reinterpret_cast<decltype(&DllGetClassObject)>(
        reinterpret_cast<void*>(GetProcAddress(module, "DllGetClassObject")));
    constexpr CLSID CameraClass{0xC132191D, 0x7DC1, 0x4EB6, {0x89, 0x14, 0xB9, 0x12, 0xB1, 0x5C, 0x22, 0xB0}};
    ComPtr<IClassFactory> factory;
    ComPtr<IBaseFilter> camera;
    if (getClassObject != nullptr && SUCCEEDED(getClassObject(CameraClass, IID_IClassFactory, factory.PutVoid()))) {
        EXPECT_EQ(factory->CreateInstance(nullptr, IID_IBaseFilter, camera.PutVoid()), S_OK);
    }
    EXPECT_TRUE(camera);
    return camera;
}

ComPtr<IPin> CapturePin(const ComPtr<IBaseFilter>& camera) {
    ComPtr<IPin> pin;
    EXPECT_EQ(camera->FindPin(L"Capture", pin.Put()), S_OK);
    return pin;
}

ComPtr<IBaseFilter> MakeGrabber() { return MakeFilter(SampleGrabberClass); }

ComPtr<IPin> InputPin(const ComPtr<IBaseFilter>& grabber) {
    ComPtr<IPin> pin;
    EXPECT_EQ(grabber->FindPin(L"In", pin.Put()), S_OK);
    return pin;
}

// Keeps what passes by for the graph that made it.
class CaptureGraph::Grabber final : public ISampleGrabberCB {
public:
    explicit Grabber(CaptureGraph& newGraph) : graph(newGraph) {}

    STDMETHODIMP QueryInterface(REFIID id, void** object) override {
        const bool known = id == IID_IUnknown || id == IID_ISampleGrabberCB;
        *object = known ? this : nullptr;
        if (!known) {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&references)); }
    STDMETHODIMP_(ULONG) Release() override {
        const LONG left = InterlockedDecrement(&references);
        if (left == 0) {
            delete this;
        }
        return static_cast<ULONG>(left);
    }

    STDMETHODIMP SampleCB(double /*time*/, IMediaSample* media) override {
        Sample sample;
        sample.arrived = std::chrono::steady_clock::now();
        sample.threadUs = ThreadTimeUs();
        sample.timed = media->GetTime(&sample.start, &sample.end) == S_OK;
        BYTE* bytes = nullptr;
        if (media->GetPointer(&bytes) == S_OK) {
            sample.bytes.assign(bytes, bytes + std::min(static_cast<std::size_t>(media->GetActualDataLength()),
                                                        graph.keptBytes.load()));
        }
        const std::lock_guard guard(graph.lock);
        if (graph.holding) {
            graph.held.emplace_back(media);
        } else {
            graph.samples.push_back(std::move(sample));
        }
        graph.changed.notify_all();
        return S_OK;
    }
    STDMETHODIMP BufferCB(double, BYTE*, LONG) override { return E_NOTIMPL; }

private:
    ~Grabber() = default;

    CaptureGraph& graph;
    LONG references = 1;
};

CaptureGraph::CaptureGraph(ComPtr<IBaseFilter> newCamera) : camera(std::move(newCamera)) {
    EXPECT_EQ(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder, graph.PutVoid()),
              S_OK);
    EXPECT_EQ(CoCreateInstance(CLSID_CaptureGraphBuilder2, nullptr, CLSCTX_INPROC_SERVER, IID_ICaptureGraphBuilder2,
                               builder.PutVoid()),
              S_OK);
    EXPECT_EQ(builder->SetFiltergraph(graph.Get()), S_OK);
    EXPECT_EQ(graph.As(IID_IMediaControl, control), S_OK);
    grabberFilter = MakeGrabber();
    renderer = MakeFilter(NullRendererClass);
    ComPtr<ISampleGrabber> settings;
    EXPECT_EQ(grabberFilter.As(IID_ISampleGrabber, settings), S_OK);
    grabber = ComPtr<ISampleGrabberCB>::Attach(new Grabber(*this));
    EXPECT_EQ(settings->SetCallback(grabber.Get(), 0), S_OK);
    EXPECT_EQ(graph->AddFilter(camera.Get(), L"Camera"), S_OK);
    EXPECT_EQ(graph->AddFilter(grabberFilter.Get(), L"Grabber"), S_OK);
    EXPECT_EQ(graph->AddFilter(renderer.Get(), L"Renderer"), S_OK);
}

CaptureGraph::~CaptureGraph() {
    (void)control->Stop();
    held.clear();
    ComPtr<ISampleGrabber> settings;
    if (SUCCEEDED(grabberFilter.As(IID_ISampleGrabber, settings))) {
        (void)settings->SetCallback(nullptr, 0);
    }
}

HRESULT CaptureGraph::SetFormat(const StreamFormat& format) {
    ComPtr<IAMStreamConfig> config;
    RETURN_IF_FAILED(CapturePin(camera).As(IID_IAMStreamConfig, config));
    AM_MEDIA_TYPE type{};
    RETURN_IF_FAILED(MakeMediaType(format, type));
    const HRESULT result = config->SetFormat(&type);
    FreeMediaType(type);
    return result;
}

HRESULT CaptureGraph::Render(const GUID* category) {
    return builder->RenderStream(category, &MEDIATYPE_Video, camera.Get(), grabberFilter.Get(), renderer.Get());
}

HRESULT CaptureGraph::Run() { return control->Run(); }

HRESULT CaptureGraph::Pause() { return control->Pause(); }

HRESULT CaptureGraph::Stop() { return control->Stop(); }

HRESULT CaptureGraph::RemoveClock() {
    ComPtr<IMediaFilter> filter;
    RETURN_IF_FAILED(graph.As(IID_IMediaFilter, filter));
    return filter->SetSyncSource(nullptr);
}

HRESULT CaptureGraph::RemoveCamera() { return graph->RemoveFilter(camera.Get()); }

std::optional<Sample> CaptureGraph::Next(std::chrono::milliseconds limit) {
    std::unique_lock guard(lock);
    if (!changed.wait_for(guard, limit, [this] { return !samples.empty(); })) {
        return std::nullopt;
    }
    Sample sample = std::move(samples.front());
    samples.pop_front();
    return sample;
}

void CaptureGraph::ForgetSamples() {
    const std::lock_guard guard(lock);
    samples.clear();
}

void CaptureGraph::HoldSamples() {
    const std::lock_guard guard(lock);
    holding = true;
}

bool CaptureGraph::WaitForHeld(std::size_t count) {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, Limit, [&] { return held.size() >= count; });
}

} // namespace sample_camera
