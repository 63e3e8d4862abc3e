// The methods of the Windows Imaging Component that the snapshot writer calls.
#pragma once

#include <windows.h>

using WICPixelFormatGUID = GUID;
enum WICBitmapEncoderCacheOption { WICBitmapEncoderNoCache = 2 };

inline constexpr CLSID CLSID_WICImagingFactory2{5, 0, 0, {}};
inline constexpr IID IID_IWICImagingFactory{5, 1, 0, {}};
inline constexpr GUID GUID_ContainerFormatJpeg{5, 2, 0, {}};
inline constexpr GUID GUID_WICPixelFormat24bppBGR{5, 3, 0, {}};

struct IPropertyBag2 : IUnknown {};

struct IWICStream : IUnknown {
    virtual HRESULT InitializeFromFilename(LPCWSTR path, DWORD access) = 0;
};
struct IWICBitmapFrameEncode : IUnknown {
    virtual HRESULT Initialize(IPropertyBag2* options) = 0;
    virtual HRESULT SetSize(UINT width, UINT height) = 0;
    virtual HRESULT SetPixelFormat(WICPixelFormatGUID* format) = 0;
    virtual HRESULT WritePixels(UINT lineCount, UINT stride, UINT size, BYTE* pixels) = 0;
    virtual HRESULT Commit() = 0;
};
struct IWICBitmapEncoder : IUnknown {
    virtual HRESULT Initialize(IWICStream* stream, WICBitmapEncoderCacheOption option) = 0;
    virtual HRESULT CreateNewFrame(IWICBitmapFrameEncode** frame, IPropertyBag2** options) = 0;
    virtual HRESULT Commit() = 0;
};
struct IWICImagingFactory : IUnknown {
    virtual HRESULT CreateStream(IWICStream** stream) = 0;
    virtual HRESULT CreateEncoder(REFGUID container, const GUID* vendor, IWICBitmapEncoder** encoder) = 0;
};
