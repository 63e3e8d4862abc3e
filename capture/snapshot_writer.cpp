#include "capture/snapshot_writer.h"

#include "capture/capture_path.h"
#include "capture/nv12_to_bgr.h"
#include "platform/com_ptr.h"
#include "platform/hresult.h"

#include <knownfolders.h>
#include <wincodec.h>

#include <new>
#include <vector>

namespace receiver {
namespace {

HRESULT WriteJpeg(const std::wstring& path, std::vector<std::uint8_t>& pixels, std::uint32_t width,
                  std::uint32_t height) noexcept {
    ComPtr<IWICImagingFactory> factory;
    RETURN_IF_FAILED(CoCreateInstance(CLSID_WICImagingFactory2, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                                      factory.PutVoid()));
    ComPtr<IWICStream> stream;
    RETURN_IF_FAILED(factory->CreateStream(stream.Put()));
    RETURN_IF_FAILED(stream->InitializeFromFilename(path.c_str(), GENERIC_WRITE));
    ComPtr<IWICBitmapEncoder> encoder;
    RETURN_IF_FAILED(factory->CreateEncoder(GUID_ContainerFormatJpeg, nullptr, encoder.Put()));
    RETURN_IF_FAILED(encoder->Initialize(stream.Get(), WICBitmapEncoderNoCache));
    ComPtr<IWICBitmapFrameEncode> frame;
    ComPtr<IPropertyBag2> options;
    RETURN_IF_FAILED(encoder->CreateNewFrame(frame.Put(), options.Put()));
    RETURN_IF_FAILED(frame->Initialize(options.Get()));
    RETURN_IF_FAILED(frame->SetSize(width, height));
    WICPixelFormatGUID format = GUID_WICPixelFormat24bppBGR;
    if (FAILED(frame->SetPixelFormat(&format)) || format != GUID_WICPixelFormat24bppBGR) {
        return E_FAIL;
    }
    RETURN_IF_FAILED(frame->WritePixels(height, width * 3, static_cast<UINT>(pixels.size()), pixels.data()));
    RETURN_IF_FAILED(frame->Commit());
    return encoder->Commit();
}

} // namespace

HRESULT SaveSnapshot(const std::uint8_t* frame, std::uint32_t size, std::uint32_t width, std::uint32_t height,
                     std::wstring& outPath) noexcept try {
    RETURN_IF_FAILED(MakeCaptureFilePath(FOLDERID_Pictures, L"jpg", &outPath));
    std::vector<std::uint8_t> pixels;
    RETURN_IF_FAILED(ConvertNv12ToBgr24(frame, size, width, height, &pixels));
    return WriteJpeg(outPath, pixels, width, height);
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

} // namespace receiver
