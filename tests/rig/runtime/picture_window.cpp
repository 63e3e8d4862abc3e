#include "picture_window.h"

#include "module.h"

#include "platform/com_ptr.h"
#include "platform/hresult.h"

#include <wincodec.h>

#include <algorithm>
#include <utility>

namespace rig {
namespace {

constexpr wchar_t PictureClass[] = L"RigBrowserPicture";
constexpr UINT BytesPerPixel = 4;

} // namespace

std::unique_ptr<PictureWindow> PictureWindow::Create(HWND parent, std::function<void()> onDestroyed,
                                                     std::function<void()> onPicture) {
    RegisterWindowClass(PictureClass, WindowProcedure);
    auto picture = std::make_unique<PictureWindow>(std::move(onDestroyed), std::move(onPicture));
    picture->window = CreateWindowExW(0, PictureClass, L"", WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS, 0, 0, 0, 0, parent,
                                      nullptr, ModuleHandle(), nullptr);
    if (picture->window == nullptr) {
        return nullptr;
    }
    SetWindowLongPtrW(picture->window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(picture.get()));
    return picture;
}

PictureWindow::PictureWindow(std::function<void()> newOnDestroyed, std::function<void()> newOnPicture)
    : onDestroyed(std::move(newOnDestroyed)), onPicture(std::move(newOnPicture)) {}

PictureWindow::~PictureWindow() {
    {
        const std::lock_guard lock(mutex);
        ending = true;
    }
    wake.notify_all();
    if (decoder.joinable()) {
        decoder.join();
    }
    if (window != nullptr) {
        SetWindowLongPtrW(window, GWLP_USERDATA, 0);
        DestroyWindow(window);
    }
}

void PictureWindow::ShowFile(std::wstring path) {
    std::replace(path.begin(), path.end(), L'/', L'\\');
    {
        const std::lock_guard lock(mutex);
        nextFile = L"Z:" + path;
    }
    wake.notify_all();
    if (!decoder.joinable()) {
        decoder = std::thread(&PictureWindow::DecodeFiles, this);
    }
}

void PictureWindow::DecodeFiles() {
    (void)CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    std::unique_lock lock(mutex);
    for (;;) {
        wake.wait(lock, [this] { return ending || !nextFile.empty(); });
        if (ending) {
            break;
        }
        const std::wstring path = std::exchange(nextFile, {});
        lock.unlock();
        Picture decoded;
        const HRESULT result = Decode(path, decoded);
        lock.lock();
        if (SUCCEEDED(result)) {
            std::swap(picture, decoded);
            InvalidateRect(window, nullptr, FALSE);
        }
        lock.unlock();
        onPicture();
        lock.lock();
    }
    lock.unlock();
    CoUninitialize();
}

HRESULT PictureWindow::Decode(const std::wstring& path, Picture& picture) {
    using receiver::ComPtr;
    ComPtr<IWICImagingFactory> factory;
    RETURN_IF_FAILED(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                                      factory.PutVoid()));
    ComPtr<IWICBitmapDecoder> decoder;
    RETURN_IF_FAILED(factory->CreateDecoderFromFilename(path.c_str(), nullptr, GENERIC_READ,
                                                        WICDecodeMetadataCacheOnDemand, decoder.Put()));
    ComPtr<IWICBitmapFrameDecode> frame;
    RETURN_IF_FAILED(decoder->GetFrame(0, frame.Put()));
    ComPtr<IWICBitmapSource> pixels;
    RETURN_IF_FAILED(WICConvertBitmapSource(GUID_WICPixelFormat32bppBGR, frame.Get(), pixels.Put()));
    UINT width = 0;
    UINT height = 0;
    RETURN_IF_FAILED(pixels->GetSize(&width, &height));
    picture.width = static_cast<int>(width);
    picture.height = static_cast<int>(height);
    picture.pixels.resize(std::size_t{width} * height * BytesPerPixel);
    return pixels->CopyPixels(nullptr, width * BytesPerPixel, static_cast<UINT>(picture.pixels.size()),
                              reinterpret_cast<BYTE*>(picture.pixels.data()));
}

void PictureWindow::Paint() {
    PAINTSTRUCT paint;
    const HDC context = BeginPaint(window, &paint);
    const std::lock_guard lock(mutex);
    RECT area;
    GetClientRect(window, &area);
    const HBRUSH white = static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH));
    const RECT right = {picture.width, 0, area.right, area.bottom};
    const RECT below = {0, picture.height, picture.width, area.bottom};
    FillRect(context, &right, white);
    FillRect(context, &below, white);
    if (!picture.pixels.empty()) {
        BITMAPINFO info{};
        info.bmiHeader.biSize = sizeof(info.bmiHeader);
        info.bmiHeader.biWidth = picture.width;
        info.bmiHeader.biHeight = -picture.height; // Negative: top row first.
        info.bmiHeader.biPlanes = 1;
        info.bmiHeader.biBitCount = BytesPerPixel * 8;
        info.bmiHeader.biCompression = BI_RGB;
        const UINT rows = static_cast<UINT>(picture.height);
        SetDIBitsToDevice(context, 0, 0, static_cast<DWORD>(picture.width), rows, 0, 0, 0, rows, picture.pixels.data(),
                          &info, DIB_RGB_COLORS);
    }
    EndPaint(window, &paint);
}

LRESULT CALLBACK PictureWindow::WindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* const picture = reinterpret_cast<PictureWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (picture != nullptr && message == WM_PAINT) {
        picture->Paint();
        return 0;
    }
    if (picture != nullptr && message == WM_DESTROY) {
        SetWindowLongPtrW(window, GWLP_USERDATA, 0); // The callback may end the object.
        picture->window = nullptr;
        const std::function<void()> onDestroyed = picture->onDestroyed;
        onDestroyed();
        return 0;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

} // namespace rig
