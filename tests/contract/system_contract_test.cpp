// What the program expects of files that others map, named events, known folders and the JPEG encoder.
#include "platform/com_ptr.h"
#include "platform/handles.h"
#include "tests/contract/clause.h"
#include "tests/support/apartment.h"
#include "tests/support/test_files.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <knownfolders.h>
#include <sddl.h>
#include <shlobj.h>
#include <wincodec.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace receiver {
namespace {

constexpr DWORD FileSize = 3 * 65536;

class MappedFileContract : public testing::Test {
protected:
    [[nodiscard]] UniqueFile Open() const {
        return UniqueFile(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                      nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    }
    static bool SetLength(const UniqueFile& file, DWORD length) {
        LARGE_INTEGER end{};
        end.QuadPart = length;
        return SetFilePointerEx(file.Get(), end, nullptr, FILE_BEGIN) != 0 && SetEndOfFile(file.Get()) != 0;
    }
    static MappedView Map(const UniqueFile& file) {
        const UniqueHandle mapping(CreateFileMappingW(file.Get(), nullptr, PAGE_READWRITE, 0, 0, nullptr));
        return MappedView(mapping ? MapViewOfFile(mapping.Get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0) : nullptr);
    }

    const PrivateFolder folder;
    const std::filesystem::path path = folder.Path() / L"frame-buffer.bin";
};

TEST_F(MappedFileContract, ViewsThroughSeveralHandlesShowTheSameBytes) {
    Source("CreateFileMappingW function (memoryapi.h)");
    const UniqueFile writer = Open();
    ASSERT_TRUE(SetLength(writer, FileSize));
    const MappedView written = Map(writer);
    const UniqueFile reader = Open();
    const MappedView read = Map(reader);
    ASSERT_TRUE(written && read);
    static_cast<volatile std::uint8_t*>(written.Get())[FileSize - 1] = 77;
    EXPECT_EQ(static_cast<const volatile std::uint8_t*>(read.Get())[FileSize - 1], 77);
}

TEST_F(MappedFileContract, TheSameLengthCanBeSetWhileAViewExists) {
    Source("SetEndOfFile function (fileapi.h)");
    const UniqueFile reader = Open();
    ASSERT_TRUE(SetLength(reader, FileSize));
    const MappedView view = Map(reader);
    ASSERT_TRUE(view);
    EXPECT_TRUE(SetLength(Open(), FileSize));
    EXPECT_EQ(std::filesystem::file_size(path), FileSize);
}

// Windows grows a file that is mapped, and refuses to cut one.
TEST_F(MappedFileContract, AFileThatIsTooShortGrowsWhileAReaderMapsIt) {
    Source("SetEndOfFile function (fileapi.h)");
    const UniqueFile reader = Open();
    ASSERT_TRUE(SetLength(reader, FileSize / 3));
    const MappedView old = Map(reader);
    ASSERT_TRUE(old);
    const UniqueFile writer = Open();
    ASSERT_TRUE(SetLength(writer, FileSize));
    ASSERT_EQ(std::filesystem::file_size(path), FileSize);
    const MappedView whole = Map(writer);
    ASSERT_TRUE(whole);
    static_cast<volatile std::uint8_t*>(whole.Get())[0] = 5;
    EXPECT_EQ(static_cast<const volatile std::uint8_t*>(old.Get())[0], 5);
    EXPECT_EQ(static_cast<const volatile std::uint8_t*>(whole.Get())[FileSize - 1], 0);
}

TEST_F(MappedFileContract, AViewOutlivesTheHandlesOfItsFileAndMapping) {
    Source("UnmapViewOfFile function (memoryapi.h)");
    UniqueFile file = Open();
    ASSERT_TRUE(SetLength(file, FileSize));
    const MappedView view = Map(file);
    ASSERT_TRUE(view);
    file.Reset();
    static_cast<volatile std::uint8_t*>(view.Get())[0] = 7;
    EXPECT_EQ(static_cast<const volatile std::uint8_t*>(view.Get())[0], 7);
}

class EventContract : public testing::Test {
protected:
    const std::wstring name = L"Global\\VistelContract-" + std::to_wstring(GetCurrentProcessId());
};

TEST_F(EventContract, AnEventThatExistsIsOpened) {
    Source("CreateEventW function (synchapi.h)");
    const UniqueHandle first(CreateEventW(nullptr, FALSE, FALSE, name.c_str()));
    ASSERT_TRUE(first);
    const UniqueHandle second(CreateEventW(nullptr, FALSE, FALSE, name.c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    ASSERT_TRUE(second);
    EXPECT_NE(SetEvent(second.Get()), 0);
    EXPECT_EQ(WaitForSingleObject(first.Get(), 0), WAIT_OBJECT_0);
}

TEST_F(EventContract, AnAutoResetEventCountsSeveralSignalsAsOne) {
    Source("Event Objects (Synchronization)");
    const UniqueHandle event(CreateEventW(nullptr, FALSE, FALSE, name.c_str()));
    ASSERT_TRUE(event);
    EXPECT_NE(SetEvent(event.Get()), 0);
    EXPECT_NE(SetEvent(event.Get()), 0);
    EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event.Get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

TEST_F(EventContract, TheUserMaySignalAnEventOfTheReceiversRights) {
    Source("Synchronization Object Security and Access Rights");
    LocalMemory descriptor;
    SECURITY_ATTRIBUTES attributes{};
    attributes.nLength = sizeof(attributes);
    ASSERT_NE(
        ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:(A;;GA;;;SY)(A;;GA;;;BA)(A;;GA;;;IU)(A;;0x0002;;;LS)",
                                                             SDDL_REVISION_1, descriptor.Put(), nullptr),
        0);
    attributes.lpSecurityDescriptor = descriptor.Get();
    const UniqueHandle created(CreateEventW(&attributes, FALSE, FALSE, name.c_str()));
    ASSERT_TRUE(created);
    const UniqueHandle opened(OpenEventW(EVENT_MODIFY_STATE, FALSE, name.c_str()));
    EXPECT_TRUE(opened);
    EXPECT_NE(SetEvent(opened.Get()), 0);
}

TEST(KnownFolderContract, PicturesAndVideosExistAndEndWithoutABackslash) {
    Source("SHGetKnownFolderPath function (shlobj_core.h)");
    const Apartment apartment;
    for (const KNOWNFOLDERID& id : {FOLDERID_Pictures, FOLDERID_Videos}) {
        CoTaskString path;
        ASSERT_EQ(SHGetKnownFolderPath(id, KF_FLAG_DEFAULT, nullptr, path.Put()), S_OK);
        EXPECT_TRUE(std::filesystem::is_directory(path.Get()));
        EXPECT_NE(std::wstring(path.Get()).back(), L'\\');
    }
}

TEST(ImagingContract, TheJpegEncoderTakesBlueGreenRed) {
    Source("Native Pixel Formats Overview");
    const Apartment apartment;
    const PrivateFolder folder;
    const std::filesystem::path path = folder.Path() / L"picture.jpg";
    constexpr UINT PictureWidth = 64;
    constexpr UINT PictureHeight = 48;
    std::vector<BYTE> pixels(std::size_t{PictureWidth} * PictureHeight * 3, 90);
    {
        ComPtr<IWICImagingFactory> factory;
        ASSERT_EQ(CoCreateInstance(CLSID_WICImagingFactory2, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                                   factory.PutVoid()),
                  S_OK);
        ComPtr<IWICStream> stream;
        ASSERT_EQ(factory->CreateStream(stream.Put()), S_OK);
        ASSERT_EQ(stream->InitializeFromFilename(path.c_str(), GENERIC_WRITE), S_OK);
        ComPtr<IWICBitmapEncoder> encoder;
        ASSERT_EQ(factory->CreateEncoder(GUID_ContainerFormatJpeg, nullptr, encoder.Put()), S_OK);
        ASSERT_EQ(encoder->Initialize(stream.Get(), WICBitmapEncoderNoCache), S_OK);
        ComPtr<IWICBitmapFrameEncode> frame;
        ComPtr<IPropertyBag2> options;
        ASSERT_EQ(encoder->CreateNewFrame(frame.Put(), options.Put()), S_OK);
        ASSERT_EQ(frame->Initialize(options.Get()), S_OK);
        ASSERT_EQ(frame->SetSize(PictureWidth, PictureHeight), S_OK);
        WICPixelFormatGUID format = GUID_WICPixelFormat24bppBGR;
        EXPECT_EQ(frame->SetPixelFormat(&format), S_OK);
        EXPECT_EQ(format, GUID_WICPixelFormat24bppBGR);
        ASSERT_EQ(frame->WritePixels(PictureHeight, PictureWidth * 3, static_cast<UINT>(pixels.size()), pixels.data()),
                  S_OK);
        ASSERT_EQ(frame->Commit(), S_OK);
        ASSERT_EQ(encoder->Commit(), S_OK);
    }
    const std::string bytes = ReadBytes(path);
    EXPECT_TRUE(bytes.starts_with("\xFF\xD8") && bytes.ends_with("\xFF\xD9"));
}

} // namespace
} // namespace receiver
