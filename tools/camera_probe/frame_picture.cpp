#include "tools/camera_probe/frame_picture.h"

#include "platform/com_ptr.h"
#include "platform/hresult.h"

#include <windows.h>

#include <wincodec.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace receiver {
namespace {

std::uint8_t ToByte(int scaledBy256) { return static_cast<std::uint8_t>(std::clamp(scaledBy256 / 256, 0, 255)); }

} // namespace

// BT.601, limited range; each chroma pair is for a block of 2 x 2 pixels.
Picture ToPicture(const Frame& frame) {
    if (frame.nv12.empty()) {
        return {1280, 720, std::vector<std::uint8_t>(std::size_t{3} * 1280 * 720)};
    }
    const std::uint32_t width = frame.info.width;
    const std::uint32_t height = frame.info.height;
    Picture picture{width, height, std::vector<std::uint8_t>(std::size_t{3} * width * height)};
    const std::uint8_t* const chromaPlane = frame.nv12.data() + std::size_t{width} * height;
    std::uint8_t* pixel = picture.bgr.data();
    for (std::size_t y = 0; y < height; ++y) {
        const std::uint8_t* const luma = frame.nv12.data() + y * width;
        const std::uint8_t* const chroma = chromaPlane + y / 2 * width;
        for (std::size_t x = 0; x < width; ++x, pixel += 3) {
            const int scaledY = 298 * (luma[x] - 16) + 128;
            const int u = chroma[x / 2 * 2] - 128;
            const int v = chroma[x / 2 * 2 + 1] - 128;
            pixel[0] = ToByte(scaledY + 516 * u);
            pixel[1] = ToByte(scaledY - 100 * u - 208 * v);
            pixel[2] = ToByte(scaledY + 409 * v);
        }
    }
    return picture;
}

HRESULT WritePng(Picture& picture, const std::wstring& path) {
    ComPtr<IWICImagingFactory> factory;
    RETURN_IF_FAILED(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                                      factory.PutVoid()));
    ComPtr<IWICStream> stream;
    RETURN_IF_FAILED(factory->CreateStream(stream.Put()));
    RETURN_IF_FAILED(stream->InitializeFromFilename(path.c_str(), GENERIC_WRITE));
    ComPtr<IWICBitmapEncoder> encoder;
    RETURN_IF_FAILED(factory->CreateEncoder(GUID_ContainerFormatPng, nullptr, encoder.Put()));
    RETURN_IF_FAILED(encoder->Initialize(stream.Get(), WICBitmapEncoderNoCache));
    ComPtr<IWICBitmapFrameEncode> frame;
    RETURN_IF_FAILED(encoder->CreateNewFrame(frame.Put(), nullptr));
    RETURN_IF_FAILED(frame->Initialize(nullptr));
    RETURN_IF_FAILED(frame->SetSize(picture.width, picture.height));
    WICPixelFormatGUID format = GUID_WICPixelFormat24bppBGR;
    RETURN_IF_FAILED(frame->SetPixelFormat(&format));
    if (!IsEqualGUID(format, GUID_WICPixelFormat24bppBGR)) {
        return E_FAIL;
    }
    RETURN_IF_FAILED(frame->WritePixels(picture.height, 3 * picture.width, static_cast<UINT>(picture.bgr.size()),
                                        picture.bgr.data()));
    RETURN_IF_FAILED(frame->Commit());
    return encoder->Commit();
}

} // namespace receiver
