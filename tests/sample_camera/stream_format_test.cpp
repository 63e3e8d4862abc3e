// What applications ask the sample camera's pin before they run it.
#include "platform/handles.h"
#include "sample_camera/media_type.h"
#include "tests/sample_camera/capture_graph.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <future>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace sample_camera {
namespace {

constexpr int FormatCount = static_cast<int>(VideoFormats.size());

class StreamFormatTest : public testing::Test {
protected:
    StreamFormatTest() { EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK); }
    ~StreamFormatTest() override { CoUninitialize(); }

    [[nodiscard]] static ComPtr<IAMStreamConfig> Config(const ComPtr<IPin>& pin) {
        ComPtr<IAMStreamConfig> config;
        EXPECT_EQ(pin.As(IID_IAMStreamConfig, config), S_OK);
        return config;
    }
};

// A graph that does nothing but what a test wants when a pin is to be connected again. On the stack: not counted.
class ReconnectGraph final : public IFilterGraph {
public:
    explicit ReconnectGraph(std::function<HRESULT()> newOnReconnect) : onReconnect(std::move(newOnReconnect)) {}

    STDMETHODIMP QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP AddFilter(IBaseFilter*, LPCWSTR) override { return E_NOTIMPL; }
    STDMETHODIMP RemoveFilter(IBaseFilter*) override { return E_NOTIMPL; }
    STDMETHODIMP EnumFilters(IEnumFilters**) override { return E_NOTIMPL; }
    STDMETHODIMP FindFilterByName(LPCWSTR, IBaseFilter**) override { return E_NOTIMPL; }
    STDMETHODIMP ConnectDirect(IPin*, IPin*, const AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    STDMETHODIMP Reconnect(IPin*) override { return onReconnect(); }
    STDMETHODIMP Disconnect(IPin*) override { return E_NOTIMPL; }
    STDMETHODIMP SetDefaultSyncSource() override { return E_NOTIMPL; }

private:
    std::function<HRESULT()> onReconnect;
};

// Frees it.
std::optional<StreamFormat> Take(AM_MEDIA_TYPE* type) {
    std::optional<StreamFormat> format = ParseMediaType(*type);
    FreeMediaType(*type);
    CoTaskMemFree(type);
    return format;
}

std::optional<StreamFormat> ConnectedFormat(const ComPtr<IPin>& pin) {
    AM_MEDIA_TYPE type{};
    EXPECT_EQ(pin->ConnectionMediaType(&type), S_OK);
    std::optional<StreamFormat> format = ParseMediaType(type);
    FreeMediaType(type);
    return format;
}

TEST_F(StreamFormatTest, CapabilitiesListAllFormatsInOrder) {
    const ComPtr<IBaseFilter> camera = MakeCamera();
    const ComPtr<IAMStreamConfig> config = Config(CapturePin(camera));
    int count = 0;
    int size = 0;
    ASSERT_EQ(config->GetNumberOfCapabilities(&count, &size), S_OK);
    EXPECT_EQ(count, FormatCount);
    ASSERT_EQ(size, static_cast<int>(sizeof(VIDEO_STREAM_CONFIG_CAPS)));
    for (int i = 0; i < FormatCount; ++i) {
        AM_MEDIA_TYPE* type = nullptr;
        VIDEO_STREAM_CONFIG_CAPS caps{};
        ASSERT_EQ(config->GetStreamCaps(i, &type, reinterpret_cast<BYTE*>(&caps)), S_OK);
        const VideoFormat& expected = VideoFormats[static_cast<std::size_t>(i)];
        VIDEOINFOHEADER info{};
        ASSERT_EQ(type->cbFormat, sizeof(info));
        std::memcpy(&info, type->pbFormat, sizeof(info));
        EXPECT_EQ(info.bmiHeader.biCompression, FourCc(expected.pixels));
        EXPECT_EQ(type->subtype.Data1, FourCc(expected.pixels));
        EXPECT_EQ(info.bmiHeader.biSizeImage, ImageBytes(expected));
        EXPECT_EQ(10000000 / info.AvgTimePerFrame, 30);
        EXPECT_EQ(caps.guid, FORMAT_VideoInfo);
        EXPECT_EQ(caps.MaxOutputSize.cx, static_cast<LONG>(expected.size.width));
        EXPECT_EQ(caps.MinFrameInterval, ShortestInterval100ns);
        EXPECT_EQ(caps.MaxBitsPerSecond / 1000, static_cast<LONG>(ImageBytes(expected)) * 8 * 30 / 1000);
        const std::optional<StreamFormat> format = Take(type);
        ASSERT_TRUE(format);
        EXPECT_EQ(format->video, expected);
    }
    AM_MEDIA_TYPE* none = nullptr;
    VIDEO_STREAM_CONFIG_CAPS caps{};
    EXPECT_EQ(config->GetStreamCaps(FormatCount, &none, reinterpret_cast<BYTE*>(&caps)), S_FALSE);
    EXPECT_EQ(config->GetStreamCaps(-1, &none, reinterpret_cast<BYTE*>(&caps)), E_INVALIDARG);
    EXPECT_EQ(config->GetStreamCaps(0, nullptr, reinterpret_cast<BYTE*>(&caps)), E_POINTER);
}

TEST_F(StreamFormatTest, TheFirstFormatIsTheDefaultAndAChosenOneTheOnlyOne) {
    const ComPtr<IBaseFilter> camera = MakeCamera();
    const ComPtr<IPin> pin = CapturePin(camera);
    const ComPtr<IAMStreamConfig> config = Config(pin);
    AM_MEDIA_TYPE* type = nullptr;
    ASSERT_EQ(config->GetFormat(&type), S_OK);
    EXPECT_EQ(Take(type)->video, VideoFormats[0]);

    const auto offered = [&] {
        ComPtr<IEnumMediaTypes> types;
        EXPECT_EQ(pin->EnumMediaTypes(types.Put()), S_OK);
        std::vector<VideoFormat> formats;
        while (types->Next(1, &type, nullptr) == S_OK) {
            formats.push_back(Take(type)->video);
        }
        return formats;
    };
    EXPECT_EQ(offered(), std::vector<VideoFormat>(VideoFormats.begin(), VideoFormats.end()));

    AM_MEDIA_TYPE wanted{};
    ASSERT_EQ(MakeMediaType({VideoFormats[4], 500000}, wanted), S_OK);
    EXPECT_EQ(config->SetFormat(&wanted), S_OK);
    ASSERT_EQ(config->GetFormat(&type), S_OK);
    EXPECT_EQ(ParseMediaType(*type)->interval100ns, 500000);
    EXPECT_EQ(Take(type)->video, VideoFormats[4]);
    EXPECT_EQ(offered(), std::vector<VideoFormat>{VideoFormats[4]});

    wanted.subtype = MEDIASUBTYPE_MJPG;
    EXPECT_EQ(pin->QueryAccept(&wanted), S_FALSE);
    EXPECT_EQ(config->SetFormat(&wanted), VFW_E_INVALIDMEDIATYPE);
    FreeMediaType(wanted);
    EXPECT_EQ(offered(), std::vector<VideoFormat>{VideoFormats[4]});
    EXPECT_EQ(config->SetFormat(nullptr), S_OK);
    EXPECT_EQ(offered().size(), VideoFormats.size());
}

TEST_F(StreamFormatTest, IntervalsOutsideTheOfferAreLimited) {
    for (const auto& [asked, given] :
         {std::pair{std::int64_t{0}, ShortestInterval100ns}, std::pair{std::int64_t{166667}, ShortestInterval100ns},
          std::pair{std::int64_t{400000}, std::int64_t{400000}},
          std::pair{std::int64_t{90000000}, LongestInterval100ns}}) {
        AM_MEDIA_TYPE type{};
        ASSERT_EQ(MakeMediaType({VideoFormats[0], 1}, type), S_OK);
        reinterpret_cast<VIDEOINFOHEADER*>(type.pbFormat)->AvgTimePerFrame = asked;
        EXPECT_EQ(ParseMediaType(type)->interval100ns, given);
        FreeMediaType(type);
    }
}

TEST_F(StreamFormatTest, AFormatThatIsCutShortIsRefused) {
    AM_MEDIA_TYPE type{};
    ASSERT_EQ(MakeMediaType({VideoFormats[0], ShortestInterval100ns}, type), S_OK);
    --type.cbFormat;
    EXPECT_FALSE(ParseMediaType(type));
    ++type.cbFormat;
    EXPECT_TRUE(ParseMediaType(type));
    type.formattype = FORMAT_VideoInfo2;
    EXPECT_FALSE(ParseMediaType(type));
    FreeMediaType(type);
}

TEST_F(StreamFormatTest, PartialTypesMatchByWhatTheyName) {
    const StreamFormat format{VideoFormats[1], ShortestInterval100ns};
    AM_MEDIA_TYPE wanted{};
    EXPECT_TRUE(Match(format, wanted)) << "anything";
    wanted.majortype = MEDIATYPE_Video;
    wanted.subtype = MEDIASUBTYPE_YUY2;
    EXPECT_TRUE(Match(format, wanted));
    wanted.subtype = MEDIASUBTYPE_NV12;
    EXPECT_FALSE(Match(format, wanted));
    wanted.subtype = GUID_NULL;
    wanted.majortype = MEDIATYPE_Audio;
    EXPECT_FALSE(Match(format, wanted));
    ASSERT_EQ(MakeMediaType({VideoFormats[4], ShortestInterval100ns}, wanted), S_OK);
    EXPECT_FALSE(Match(format, wanted)) << "the other size";
    FreeMediaType(wanted);
}

TEST_F(StreamFormatTest, ACompleteTypeIsConnectedWithItsInterval) {
    const ComPtr<IBaseFilter> camera = MakeCamera();
    const ComPtr<IBaseFilter> grabber = MakeGrabber();
    const ComPtr<IPin> pin = CapturePin(camera);
    AM_MEDIA_TYPE type{};
    ASSERT_EQ(MakeMediaType({VideoFormats[1], 666666}, type), S_OK);
    EXPECT_EQ(pin->Connect(InputPin(grabber).Get(), &type), S_OK);
    FreeMediaType(type);
    const std::optional<StreamFormat> connected = ConnectedFormat(pin);
    ASSERT_TRUE(connected);
    EXPECT_EQ(connected->video, VideoFormats[1]);
    EXPECT_EQ(connected->interval100ns, 666666);
    EXPECT_EQ(pin->Disconnect(), S_OK);
    EXPECT_EQ(InputPin(grabber)->Disconnect(), S_OK);
}

// A graph holds a lock of its own in Reconnect, and while it stops its filters in another thread.
TEST_F(StreamFormatTest, AnotherThreadCanStopTheCameraWhileItIsConnectedAgain) {
    const ComPtr<IBaseFilter> camera = MakeCamera();
    const ComPtr<IBaseFilter> grabber = MakeGrabber();
    const ComPtr<IPin> pin = CapturePin(camera);
    std::future<HRESULT> stopped;
    ReconnectGraph graph([&] {
        stopped = std::async(std::launch::async, [&] { return camera->Stop(); });
        return stopped.wait_for(Limit) == std::future_status::ready ? S_OK : E_FAIL;
    });
    ASSERT_EQ(camera->JoinFilterGraph(&graph, nullptr), S_OK);
    ASSERT_EQ(pin->Connect(InputPin(grabber).Get(), nullptr), S_OK);
    EXPECT_EQ(Config(pin)->SetFormat(nullptr), S_OK);
    ASSERT_TRUE(stopped.valid());
    EXPECT_EQ(stopped.get(), S_OK);
    EXPECT_EQ(pin->Disconnect(), S_OK);
    EXPECT_EQ(InputPin(grabber)->Disconnect(), S_OK);
    EXPECT_EQ(camera->JoinFilterGraph(nullptr, nullptr), S_OK);
}

TEST_F(StreamFormatTest, AConnectionKeepsItsFormatUntilTheGraphConnectsAgain) {
    const ComPtr<IBaseFilter> camera = MakeCamera();
    const ComPtr<IBaseFilter> grabber = MakeGrabber();
    const ComPtr<IPin> pin = CapturePin(camera);
    ReconnectGraph graph([] { return VFW_E_NOT_STOPPED; });
    ASSERT_EQ(camera->JoinFilterGraph(&graph, nullptr), S_OK);
    ASSERT_EQ(pin->Connect(InputPin(grabber).Get(), nullptr), S_OK);
    AM_MEDIA_TYPE wanted{};
    ASSERT_EQ(MakeMediaType({VideoFormats[4], 500000}, wanted), S_OK);
    EXPECT_EQ(Config(pin)->SetFormat(&wanted), VFW_E_NOT_STOPPED);
    FreeMediaType(wanted);
    EXPECT_EQ(ConnectedFormat(pin)->video, VideoFormats[0]);
    EXPECT_EQ(pin->Disconnect(), S_OK);
    EXPECT_EQ(InputPin(grabber)->Disconnect(), S_OK);
    EXPECT_EQ(camera->JoinFilterGraph(nullptr, nullptr), S_OK);
}

TEST_F(StreamFormatTest, AConnectedCameraIsConnectedAgainWithAnotherFormat) {
    CaptureGraph graph;
    ASSERT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
    EXPECT_EQ(graph.SetFormat({VideoFormats[4], ShortestInterval100ns}), S_OK);
    EXPECT_EQ(ConnectedFormat(CapturePin(graph.Camera()))->video, VideoFormats[4]);
}

TEST_F(StreamFormatTest, ThePinsCategoryIsCapture) {
    const ComPtr<IBaseFilter> camera = MakeCamera();
    ComPtr<IKsPropertySet> properties;
    ASSERT_EQ(CapturePin(camera).As(IID_IKsPropertySet, properties), S_OK);
    GUID category{};
    DWORD size = 0;
    EXPECT_EQ(properties->Get(AMPROPSETID_Pin, AMPROPERTY_PIN_CATEGORY, nullptr, 0, &category, sizeof(category), &size),
              S_OK);
    EXPECT_EQ(category, PIN_CATEGORY_CAPTURE);
    EXPECT_EQ(size, 16U);
    EXPECT_EQ(properties->Get(AMPROPSETID_Pin, AMPROPERTY_PIN_CATEGORY, nullptr, 0, &category, 15, &size),
              E_UNEXPECTED);
    EXPECT_TRUE(FAILED(properties->Get(AMPROPSETID_Pin, AMPROPERTY_PIN_MEDIUM, nullptr, 0, &category, 16, &size)));
    EXPECT_TRUE(FAILED(properties->Get(GUID_NULL, AMPROPERTY_PIN_CATEGORY, nullptr, 0, &category, 16, &size)));
}

TEST_F(StreamFormatTest, TheFilterHasOnePinThatKeepsItAlive) {
    ComPtr<IBaseFilter> camera = MakeCamera();
    ComPtr<IEnumPins> pins;
    ASSERT_EQ(camera->EnumPins(pins.Put()), S_OK);
    ComPtr<IPin> pin;
    EXPECT_EQ(pins->Next(1, pin.Put(), nullptr), S_OK);
    ComPtr<IPin> none;
    EXPECT_EQ(pins->Next(1, none.Put(), nullptr), S_FALSE);
    ComPtr<IEnumPins> again;
    EXPECT_EQ(pins->Clone(again.Put()), S_OK);
    EXPECT_EQ(again->Reset(), S_OK);
    EXPECT_EQ(again->Skip(1), S_OK);
    EXPECT_EQ(again->Skip(1), S_FALSE);
    EXPECT_EQ(camera->FindPin(L"Other", none.Put()), VFW_E_NOT_FOUND);

    camera.Reset();
    pins.Reset();
    again.Reset();
    PIN_INFO info{};
    ASSERT_EQ(pin->QueryPinInfo(&info), S_OK);
    const auto owner = ComPtr<IBaseFilter>::Attach(info.pFilter);
    EXPECT_TRUE(owner);
    EXPECT_EQ(info.dir, PINDIR_OUTPUT);
    EXPECT_EQ(std::wstring_view(info.achName), L"Capture");
    ComPtr<IPin> peer;
    EXPECT_EQ(pin->ConnectedTo(peer.Put()), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(pin->Disconnect(), S_FALSE);
    EXPECT_EQ(pin->Connect(pin.Get(), nullptr), VFW_E_INVALID_DIRECTION);
}

TEST_F(StreamFormatTest, AnUnconnectedCameraGoesThroughTheStates) {
    const ComPtr<IBaseFilter> camera = MakeCamera();
    EXPECT_EQ(camera->Run(0), S_OK);
    FILTER_STATE state{};
    EXPECT_EQ(camera->GetState(0, &state), S_OK);
    EXPECT_EQ(state, State_Running);
    EXPECT_EQ(camera->Stop(), S_OK);
}

} // namespace
} // namespace sample_camera
