#include "capture/snapshot_writer.h"

#include "capture/nv12_to_bgr.h"
#include "platform/com_ptr.h"
#include "tests/capture/capture_folders.h"
#include "tests/support/allocation_fault.h"
#include "tests/support/apartment.h"
#include "tests/support/function_patch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <wincodec.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace receiver {
namespace {

constexpr HRESULT Failure = static_cast<HRESULT>(0x88982F99);

struct Picture {
    UINT width = 0;
    UINT height = 0;
    std::vector<std::uint8_t> pixels; // blue, green, red
};

Picture Decode(const std::wstring& path) {
    Picture picture;
    ComPtr<IWICImagingFactory> factory;
    ComPtr<IWICBitmapDecoder> decoder;
    ComPtr<IWICBitmapFrameDecode> frame;
    GUID container{};
    WICPixelFormatGUID format{};
    EXPECT_EQ(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                               factory.PutVoid()),
              S_OK);
    EXPECT_EQ(factory->CreateDecoderFromFilename(path.c_str(), nullptr, GENERIC_READ, WICDecodeMetadataCacheOnDemand,
                                                 decoder.Put()),
              S_OK);
    EXPECT_EQ(decoder->GetContainerFormat(&container), S_OK);
    EXPECT_EQ(container, GUID_ContainerFormatJpeg);
    EXPECT_EQ(decoder->GetFrame(0, frame.Put()), S_OK);
    EXPECT_EQ(frame->GetSize(&picture.width, &picture.height), S_OK);
    EXPECT_EQ(frame->GetPixelFormat(&format), S_OK);
    EXPECT_EQ(format, GUID_WICPixelFormat24bppBGR);
    picture.pixels.resize(std::size_t{3} * picture.width * picture.height);
    EXPECT_EQ(
        frame->CopyPixels(nullptr, 3 * picture.width, static_cast<UINT>(picture.pixels.size()), picture.pixels.data()),
        S_OK);
    return picture;
}

class SnapshotWriterTest : public testing::Test {
protected:
    static constexpr std::uint32_t Width = 320;
    static constexpr std::uint32_t Height = 180;

    // Smooth in luma and chroma, and different in all four corners.
    static std::vector<std::uint8_t> Frame() {
        std::vector<std::uint8_t> frame;
        for (std::uint32_t y = 0; y < Height; ++y) {
            for (std::uint32_t x = 0; x < Width; ++x) {
                frame.push_back(static_cast<std::uint8_t>(40 + x / 4 + y / 2));
            }
        }
        for (std::uint32_t y = 0; y < Height / 2; ++y) {
            for (std::uint32_t x = 0; x < Width / 2; ++x) {
                frame.push_back(static_cast<std::uint8_t>(80 + x / 2));
                frame.push_back(static_cast<std::uint8_t>(170 - y));
            }
        }
        return frame;
    }
    HRESULT Save() { return SaveSnapshot(frame.data(), static_cast<std::uint32_t>(frame.size()), Width, Height, path); }

    const Apartment apartment;
    CaptureFolders folders;
    const std::vector<std::uint8_t> frame = Frame();
    std::wstring path;
};

TEST_F(SnapshotWriterTest, SavesTheFrameAsJpeg) {
    EXPECT_EQ(Save(), S_OK);
    EXPECT_EQ(path, folders.PicturePath());
    const Picture picture = Decode(path);
    ASSERT_EQ(picture.width, Width);
    ASSERT_EQ(picture.height, Height);
    std::vector<std::uint8_t> expected;
    ASSERT_EQ(ConvertNv12ToBgr24(frame.data(), static_cast<std::uint32_t>(frame.size()), Width, Height, &expected),
              S_OK);
    double squares = 0;
    int largest = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const int difference = std::abs(expected[i] - picture.pixels[i]);
        squares += difference * difference;
        largest = std::max(largest, difference);
    }
    EXPECT_LT(std::sqrt(squares / static_cast<double>(expected.size())), 3.0);
    EXPECT_LT(largest, 20);
}

TEST_F(SnapshotWriterTest, ASecondSnapshotInTheSameMillisecondReplacesTheFirst) {
    std::filesystem::create_directories(folders.pictures / L"Vistel");
    WriteBytes(folders.PicturePath(), std::string(1'000'000, 'x'));
    EXPECT_EQ(Save(), S_OK);
    EXPECT_LT(std::filesystem::file_size(path), 100'000U);
    EXPECT_EQ(Decode(path).width, Width);
}

TEST_F(SnapshotWriterTest, AnUnusableFrameCreatesNoFile) {
    EXPECT_EQ(SaveSnapshot(frame.data(), static_cast<std::uint32_t>(frame.size()) - 1, Width, Height, path),
              E_INVALIDARG);
    EXPECT_EQ(path, folders.PicturePath());
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(SnapshotWriterTest, WithoutAFolderThereIsNoPath) {
    folders.result = Failure;
    EXPECT_EQ(Save(), Failure);
    EXPECT_EQ(path, L"");
}

TEST_F(SnapshotWriterTest, AFolderWithTheFilesNameFails) {
    std::filesystem::create_directories(folders.PicturePath());
    EXPECT_EQ(Save(), E_ACCESSDENIED);
    EXPECT_EQ(path, folders.PicturePath());
    EXPECT_TRUE(std::filesystem::is_directory(path));
}

TEST_F(SnapshotWriterTest, RunningOutOfMemoryIsReported) {
    bool failed = true;
    for (unsigned allocation = 0; failed; ++allocation) {
        ASSERT_LT(allocation, 100U);
        const AllocationFault fault(allocation);
        const HRESULT result = Save();
        failed = fault.Happened();
        EXPECT_EQ(result, failed ? E_OUTOFMEMORY : S_OK);
    }
}

// One of each of the imaging component's objects, to patch their methods; and the objects that the writer uses.
class ImagingCallsTest : public SnapshotWriterTest {
protected:
    void SetUp() override {
        ASSERT_EQ(CoCreateInstance(CLSID_WICImagingFactory2, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                                   factory.PutVoid()),
                  S_OK);
        ASSERT_EQ(factory->CreateStream(stream.Put()), S_OK);
        ASSERT_EQ(stream->InitializeFromFilename((folders.folder.Path() / L"other.jpg").c_str(), GENERIC_WRITE), S_OK);
        ASSERT_EQ(factory->CreateEncoder(GUID_ContainerFormatJpeg, nullptr, encoder.Put()), S_OK);
        ASSERT_EQ(encoder->Initialize(stream.Get(), WICBitmapEncoderNoCache), S_OK);
        ASSERT_EQ(encoder->CreateNewFrame(frameEncode.Put(), encoderOptions.Put()), S_OK);
    }

    // Saves with one method replaced by `body`.
    template <typename Interface, typename... Arguments, typename Body>
    HRESULT SaveWith(const ComPtr<Interface>& object, HRESULT (STDMETHODCALLTYPE Interface::*method)(Arguments...),
                     Body body) {
        const MethodPatch patch(object.Get(), method, body);
        return Save();
    }
    // The same with a method that fails, and a look at what became of its object.
    template <typename Interface, typename... Arguments>
    HRESULT SaveFailing(const ComPtr<Interface>& object, HRESULT (STDMETHODCALLTYPE Interface::*method)(Arguments...),
                        bool leavesFile = true) {
        path.clear();
        std::filesystem::remove(folders.PicturePath());
        ComPtr<Interface> used;
        const HRESULT result = SaveWith(object, method, [&](auto*, Interface* self, auto...) {
            used = ComPtr<Interface>(self);
            return Failure;
        });
        EXPECT_EQ(path, folders.PicturePath());
        EXPECT_EQ(std::filesystem::exists(path), leavesFile);
        EXPECT_TRUE(used) << "not called";
        if (used) {
            used->AddRef();
            EXPECT_EQ(used->Release(), 1U) << "not released";
        }
        used.Reset();
        EXPECT_EQ(Save(), S_OK);
        return result;
    }

    ComPtr<IWICImagingFactory> factory;
    ComPtr<IWICStream> stream;
    ComPtr<IWICBitmapEncoder> encoder;
    ComPtr<IWICBitmapFrameEncode> frameEncode;
    ComPtr<IPropertyBag2> encoderOptions;
};

TEST_F(ImagingCallsTest, EachFailureIsReportedAndEverythingIsReleased) {
    EXPECT_EQ(SaveFailing(factory, &IWICImagingFactory::CreateStream, false), Failure);
    EXPECT_EQ(SaveFailing(stream, &IWICStream::InitializeFromFilename, false), Failure);
    EXPECT_EQ(SaveFailing(factory, &IWICImagingFactory::CreateEncoder), Failure);
    EXPECT_EQ(SaveFailing(encoder, &IWICBitmapEncoder::Initialize), Failure);
    EXPECT_EQ(SaveFailing(encoder, &IWICBitmapEncoder::CreateNewFrame), Failure);
    EXPECT_EQ(SaveFailing(frameEncode, &IWICBitmapFrameEncode::Initialize), Failure);
    EXPECT_EQ(SaveFailing(frameEncode, &IWICBitmapFrameEncode::SetSize), Failure);
    EXPECT_EQ(SaveFailing(frameEncode, &IWICBitmapFrameEncode::SetPixelFormat), E_FAIL);
    EXPECT_EQ(SaveFailing(frameEncode, &IWICBitmapFrameEncode::WritePixels), Failure);
    EXPECT_EQ(SaveFailing(frameEncode, &IWICBitmapFrameEncode::Commit), Failure);
    EXPECT_EQ(SaveFailing(encoder, &IWICBitmapEncoder::Commit), Failure);
}

TEST_F(ImagingCallsTest, AMissingImagingComponentIsReported) {
    const ImportPatch creation("ole32.dll", "CoCreateInstance", &CoCreateInstance,
                               [](auto*, REFCLSID id, IUnknown* outer, DWORD context, REFIID interfaceId, void**) {
                                   EXPECT_EQ(id, CLSID_WICImagingFactory2);
                                   EXPECT_EQ(outer, nullptr);
                                   EXPECT_EQ(context, DWORD{CLSCTX_INPROC_SERVER});
                                   EXPECT_EQ(interfaceId, IID_IWICImagingFactory);
                                   return REGDB_E_CLASSNOTREG;
                               });
    EXPECT_EQ(Save(), REGDB_E_CLASSNOTREG);
    EXPECT_EQ(path, folders.PicturePath());
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(ImagingCallsTest, AnEncoderThatChangesThePixelFormatIsNotUsed) {
    bool written = false;
    const MethodPatch pixels(frameEncode.Get(), &IWICBitmapFrameEncode::WritePixels, [&](auto*, auto...) {
        written = true;
        return S_OK;
    });
    EXPECT_EQ(SaveWith(frameEncode, &IWICBitmapFrameEncode::SetPixelFormat,
                       [](auto*, IWICBitmapFrameEncode*, WICPixelFormatGUID* format) {
                           EXPECT_EQ(*format, GUID_WICPixelFormat24bppBGR);
                           *format = GUID_WICPixelFormat32bppBGR;
                           return S_OK;
                       }),
              E_FAIL);
    EXPECT_FALSE(written);
}

TEST_F(ImagingCallsTest, TheEncodersOptionsAreNotChanged) {
    bool written = false;
    EXPECT_EQ(SaveWith(encoderOptions, &IPropertyBag2::Write,
                       [&](auto*, auto...) {
                           written = true;
                           return S_OK;
                       }),
              S_OK);
    EXPECT_FALSE(written);
}

TEST_F(ImagingCallsTest, TheEncoderGetsAllItNeedsAndNoOptions) {
    EXPECT_EQ(SaveWith(stream, &IWICStream::InitializeFromFilename,
                       [&](auto* original, IWICStream* self, LPCWSTR name, DWORD access) {
                           EXPECT_EQ(name, folders.PicturePath());
                           EXPECT_EQ(access, DWORD{GENERIC_WRITE});
                           return original(self, name, access);
                       }),
              S_OK);
    EXPECT_EQ(SaveWith(factory, &IWICImagingFactory::CreateEncoder,
                       [&](auto* original, IWICImagingFactory* self, REFGUID container, const GUID* vendor,
                           IWICBitmapEncoder** made) {
                           EXPECT_EQ(container, GUID_ContainerFormatJpeg);
                           EXPECT_EQ(vendor, nullptr);
                           return original(self, container, vendor, made);
                       }),
              S_OK);
    EXPECT_EQ(SaveWith(encoder, &IWICBitmapEncoder::Initialize,
                       [](auto* original, IWICBitmapEncoder* self, IStream* target, WICBitmapEncoderCacheOption cache) {
                           EXPECT_EQ(cache, WICBitmapEncoderNoCache);
                           return original(self, target, cache);
                       }),
              S_OK);
    IPropertyBag2* made = nullptr;
    const MethodPatch newFrame(
        encoder.Get(), &IWICBitmapEncoder::CreateNewFrame,
        [&](auto* original, IWICBitmapEncoder* self, IWICBitmapFrameEncode** newFrameEncode, IPropertyBag2** options) {
            const HRESULT result = original(self, newFrameEncode, options);
            made = *options;
            return result;
        });
    EXPECT_EQ(SaveWith(frameEncode, &IWICBitmapFrameEncode::Initialize,
                       [&](auto* original, IWICBitmapFrameEncode* self, IPropertyBag2* options) {
                           EXPECT_NE(options, nullptr);
                           EXPECT_EQ(options, made);
                           return original(self, options);
                       }),
              S_OK);
    EXPECT_EQ(
        SaveWith(frameEncode, &IWICBitmapFrameEncode::WritePixels,
                 [](auto* original, IWICBitmapFrameEncode* self, UINT lines, UINT stride, UINT size, BYTE* bytes) {
                     EXPECT_EQ(lines, Height);
                     EXPECT_EQ(stride, Width * 3);
                     EXPECT_EQ(size, Width * Height * 3);
                     return original(self, lines, stride, size, bytes);
                 }),
        S_OK);
}

} // namespace
} // namespace receiver
