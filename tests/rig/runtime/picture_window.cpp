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
    picture->window_ = CreateWindowExW(0, PictureClass, L"", WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS, 0, 0, 0, 0,
                                       parent, nullptr, ModuleHandle(), nullptr);
    if (picture->window_ == nullptr) {
        return nullptr;
    }
    SetWindowLongPtrW(picture->window_, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(picture.get()));
    return picture;
}

PictureWindow::PictureWindow(std::function<void()> onDestroyed, std::function<void()> onPicture)
    : onDestroyed_(std::move(onDestroyed)), onPicture_(std::move(onPicture)) {}

PictureWindow::~PictureWindow() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    wake_.notify_all();
    if (decoder_.joinable()) {
        decoder_.join();
    }
    if (window_ != nullptr) {
        SetWindowLongPtrW(window_, GWLP_USERDATA, 0);
        DestroyWindow(window_);
    }
}

void PictureWindow::ShowFile(std::wstring path) {
    std::replace(path.begin(), path.end(), L'/', L'\\');
    {
        const std::lock_guard lock(mutex_);
        nextFile_ = L"Z:" + path;
    }
    wake_.notify_all();
    if (!decoder_.joinable()) {
        decoder_ = std::thread(&PictureWindow::DecodeFiles, this);
    }
}

void PictureWindow::DecodeFiles() {
    (void)CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return ending_ || !nextFile_.empty(); });
        if (ending_) {
            break;
        }
        const std::wstring path = std::exchange(nextFile_, {});
        lock.unlock();
        Picture decoded;
        const HRESULT result = Decode(path, decoded);
        lock.lock();
        if (SUCCEEDED(result)) {
            std::swap(picture_, decoded);
            InvalidateRect(window_, nullptr, FALSE);
        }
        lock.unlock();
        onPicture_();
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
    const HDC context = BeginPaint(window_, &paint);
    const std::lock_guard lock(mutex_);
    RECT area;
    GetClientRect(window_, &area);
    const HBRUSH white = static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH));
    const RECT right = {picture_.width, 0, area.right, area.bottom};
    const RECT below = {0, picture_.height, picture_.width, area.bottom};
    FillRect(context, &right, white);
    FillRect(context, &below, white);
    if (!picture_.pixels.empty()) {
        BITMAPINFO info{};
        info.bmiHeader.biSize = sizeof(info.bmiHeader);
        info.bmiHeader.biWidth = picture_.width;
        info.bmiHeader.biHeight = -picture_.height; // Negative: top row first.
        info.bmiHeader.biPlanes = 1;
        info.bmiHeader.biBitCount = BytesPerPixel * 8;
        info.bmiHeader.biCompression = BI_RGB;
        const UINT rows = static_cast<UINT>(picture_.height);
        SetDIBitsToDevice(context, 0, 0, static_cast<DWORD>(picture_.width), rows, 0, 0, 0, rows,
                          picture_.pixels.data(), &info, DIB_RGB_COLORS);
    }
    EndPaint(window_, &paint);
}

LRESULT CALLBACK PictureWindow::WindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* const picture = reinterpret_cast<PictureWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (picture != nullptr && message == WM_PAINT) {
        picture->Paint();
        return 0;
    }
    if (picture != nullptr && message == WM_DESTROY) {
        SetWindowLongPtrW(window, GWLP_USERDATA, 0); // The callback may end the object.
        picture->window_ = nullptr;
        const std::function<void()> onDestroyed = picture->onDestroyed_;
        onDestroyed();
        return 0;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

} // namespace rig
