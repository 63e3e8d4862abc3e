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
    explicit Grabber(CaptureGraph& graph) : graph_(graph) {}

    STDMETHODIMP QueryInterface(REFIID id, void** object) override {
        const bool known = id == IID_IUnknown || id == IID_ISampleGrabberCB;
        *object = known ? this : nullptr;
        if (!known) {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&references_)); }
    STDMETHODIMP_(ULONG) Release() override {
        const LONG left = InterlockedDecrement(&references_);
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
                                                        graph_.keptBytes_.load()));
        }
        const std::lock_guard guard(graph_.lock_);
        if (graph_.holding_) {
            graph_.held_.emplace_back(media);
        } else {
            graph_.samples_.push_back(std::move(sample));
        }
        graph_.changed_.notify_all();
        return S_OK;
    }
    STDMETHODIMP BufferCB(double, BYTE*, LONG) override { return E_NOTIMPL; }

private:
    ~Grabber() = default;

    CaptureGraph& graph_;
    LONG references_ = 1;
};

CaptureGraph::CaptureGraph(ComPtr<IBaseFilter> camera) : camera_(std::move(camera)) {
    EXPECT_EQ(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder, graph_.PutVoid()),
              S_OK);
    EXPECT_EQ(CoCreateInstance(CLSID_CaptureGraphBuilder2, nullptr, CLSCTX_INPROC_SERVER, IID_ICaptureGraphBuilder2,
                               builder_.PutVoid()),
              S_OK);
    EXPECT_EQ(builder_->SetFiltergraph(graph_.Get()), S_OK);
    EXPECT_EQ(graph_.As(IID_IMediaControl, control_), S_OK);
    grabberFilter_ = MakeGrabber();
    renderer_ = MakeFilter(NullRendererClass);
    ComPtr<ISampleGrabber> settings;
    EXPECT_EQ(grabberFilter_.As(IID_ISampleGrabber, settings), S_OK);
    grabber_ = ComPtr<ISampleGrabberCB>::Attach(new Grabber(*this));
    EXPECT_EQ(settings->SetCallback(grabber_.Get(), 0), S_OK);
    EXPECT_EQ(graph_->AddFilter(camera_.Get(), L"Camera"), S_OK);
    EXPECT_EQ(graph_->AddFilter(grabberFilter_.Get(), L"Grabber"), S_OK);
    EXPECT_EQ(graph_->AddFilter(renderer_.Get(), L"Renderer"), S_OK);
}

CaptureGraph::~CaptureGraph() {
    (void)control_->Stop();
    held_.clear();
    ComPtr<ISampleGrabber> settings;
    if (SUCCEEDED(grabberFilter_.As(IID_ISampleGrabber, settings))) {
        (void)settings->SetCallback(nullptr, 0);
    }
}

HRESULT CaptureGraph::SetFormat(const StreamFormat& format) {
    ComPtr<IAMStreamConfig> config;
    RETURN_IF_FAILED(CapturePin(camera_).As(IID_IAMStreamConfig, config));
    AM_MEDIA_TYPE type{};
    RETURN_IF_FAILED(MakeMediaType(format, type));
    const HRESULT result = config->SetFormat(&type);
    FreeMediaType(type);
    return result;
}

HRESULT CaptureGraph::Render(const GUID* category) {
    return builder_->RenderStream(category, &MEDIATYPE_Video, camera_.Get(), grabberFilter_.Get(), renderer_.Get());
}

HRESULT CaptureGraph::Run() { return control_->Run(); }

HRESULT CaptureGraph::Pause() { return control_->Pause(); }

HRESULT CaptureGraph::Stop() { return control_->Stop(); }

HRESULT CaptureGraph::RemoveClock() {
    ComPtr<IMediaFilter> filter;
    RETURN_IF_FAILED(graph_.As(IID_IMediaFilter, filter));
    return filter->SetSyncSource(nullptr);
}

HRESULT CaptureGraph::RemoveCamera() { return graph_->RemoveFilter(camera_.Get()); }

std::optional<Sample> CaptureGraph::Next(std::chrono::milliseconds limit) {
    std::unique_lock guard(lock_);
    if (!changed_.wait_for(guard, limit, [this] { return !samples_.empty(); })) {
        return std::nullopt;
    }
    Sample sample = std::move(samples_.front());
    samples_.pop_front();
    return sample;
}

void CaptureGraph::ForgetSamples() {
    const std::lock_guard guard(lock_);
    samples_.clear();
}

void CaptureGraph::HoldSamples() {
    const std::lock_guard guard(lock_);
    holding_ = true;
}

bool CaptureGraph::WaitForHeld(std::size_t count) {
    std::unique_lock guard(lock_);
    return changed_.wait_for(guard, Limit, [&] { return held_.size() >= count; });
}

} // namespace sample_camera
