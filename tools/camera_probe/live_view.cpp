#include "tools/camera_probe/live_view.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace receiver {
namespace {

constexpr wchar_t ClassName[] = L"VistelCameraProbe";
constexpr int PictureWidth = 640; // pixels of the new window
constexpr int PictureHeight = 360;
constexpr int FiguresHeight = 28;
constexpr UINT RedrawMessage = WM_APP;

BITMAPINFO BitmapOf(std::uint32_t width, std::uint32_t height) {
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof(info.bmiHeader);
    info.bmiHeader.biWidth = static_cast<LONG>(width);
    info.bmiHeader.biHeight = -static_cast<LONG>(height); // the top row first
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 24;
    info.bmiHeader.biCompression = BI_RGB;
    return info;
}

// The largest rectangle with the picture's aspect ratio in the middle of `area`.
RECT Fit(const Picture& picture, const RECT& area) {
    const LONG areaWidth = area.right - area.left;
    const LONG areaHeight = area.bottom - area.top;
    const auto pictureWidth = static_cast<LONG>(picture.width);
    const auto pictureHeight = static_cast<LONG>(picture.height);
    const LONG width = std::min(areaWidth, areaHeight * pictureWidth / pictureHeight);
    const LONG height = std::min(areaHeight, areaWidth * pictureHeight / pictureWidth);
    const LONG left = area.left + (areaWidth - width) / 2;
    const LONG top = area.top + (areaHeight - height) / 2;
    return {left, top, left + width, top + height};
}

// The picture in the middle of the area, the figures in its last rows, black around them.
void Draw(HDC dc, const RECT& area, const Picture& picture, const std::wstring& figures) {
    RECT figuresArea = area;
    figuresArea.top = std::max(area.top, area.bottom - FiguresHeight);
    RECT pictureArea = area;
    pictureArea.bottom = figuresArea.top;
    const RECT fitted = Fit(picture, pictureArea);

    const int saved = SaveDC(dc);
    const auto black = static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH));
    FillRect(dc, &figuresArea, black);
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, RGB(220, 220, 220));
    SelectObject(dc, GetStockObject(DEFAULT_GUI_FONT));
    figuresArea.left += 10;
    DrawTextW(dc, figures.c_str(), static_cast<int>(figures.size()), &figuresArea,
              DT_SINGLELINE | DT_VCENTER | DT_NOPREFIX);
    SetStretchBltMode(dc, HALFTONE);
    SetBrushOrgEx(dc, 0, 0, nullptr);
    const BITMAPINFO info = BitmapOf(picture.width, picture.height);
    StretchDIBits(dc, fitted.left, fitted.top, fitted.right - fitted.left, fitted.bottom - fitted.top, 0, 0,
                  static_cast<int>(picture.width), static_cast<int>(picture.height), picture.bgr.data(), &info,
                  DIB_RGB_COLORS, SRCCOPY);
    ExcludeClipRect(dc, fitted.left, fitted.top, fitted.right, fitted.bottom);
    FillRect(dc, &pictureArea, black);
    RestoreDC(dc, saved);
}

} // namespace

LiveView::LiveView() : thread([this] { RunWindow(); }) {}

LiveView::~LiveView() {
    // If the window does not exist yet, its thread reads closed before it waits for messages.
    closed = true;
    PostMessageW(window, RedrawMessage, 0, 0);
    thread.join();
}

void LiveView::Show(const Frame& frame, std::wstring figures) {
    {
        const std::lock_guard guard(lock);
        newest = {frame, std::move(figures)};
    }
    if (window != nullptr) {
        PostMessageW(window, RedrawMessage, 0, 0);
    }
}

LiveView::Shown LiveView::Newest() {
    const std::lock_guard guard(lock);
    return newest;
}

Picture LiveView::Content() {
    const Shown shown = Newest();
    const Picture picture = ToPicture(shown.frame);
    Picture content{picture.width, picture.height + FiguresHeight, {}};
    content.bgr = std::vector<std::uint8_t>(std::size_t{3} * content.width * content.height);
    const BITMAPINFO info = BitmapOf(content.width, content.height);
    const HDC dc = CreateCompatibleDC(nullptr);
    void* pixels = nullptr;
    const HBITMAP bitmap = CreateDIBSection(dc, &info, DIB_RGB_COLORS, &pixels, nullptr, 0);
    if (bitmap != nullptr) {
        const HGDIOBJ before = SelectObject(dc, bitmap);
        Draw(dc, {0, 0, static_cast<LONG>(content.width), static_cast<LONG>(content.height)}, picture, shown.figures);
        GdiFlush();
        std::memcpy(content.bgr.data(), pixels, content.bgr.size()); // a frame's rows need no padding
        SelectObject(dc, before);
        DeleteObject(bitmap);
    }
    DeleteDC(dc);
    return content;
}

void LiveView::RunWindow() {
    const HINSTANCE instance = GetModuleHandleW(nullptr);
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof(windowClass);
    windowClass.lpfnWndProc = WindowProc;
    windowClass.hInstance = instance;
    windowClass.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    windowClass.lpszClassName = ClassName;
    RegisterClassExW(&windowClass);
    RECT outer{0, 0, PictureWidth, PictureHeight + FiguresHeight};
    AdjustWindowRect(&outer, WS_OVERLAPPEDWINDOW, FALSE);
    const int width = outer.right - outer.left;
    const int height = outer.bottom - outer.top;
    RECT desktop{};
    SystemParametersInfoW(SPI_GETWORKAREA, 0, &desktop, 0);
    window = CreateWindowExW(0, ClassName, L"Vistel virtual camera", WS_OVERLAPPEDWINDOW, desktop.right - width,
                             desktop.bottom - height, width, height, nullptr, nullptr, instance, this);
    if (window != nullptr) {
        ShowWindow(window, SW_SHOWNOACTIVATE);
        MSG message;
        while (!closed && GetMessageW(&message, nullptr, 0, 0) > 0) {
            DispatchMessageW(&message);
        }
        DestroyWindow(window.exchange(nullptr));
    }
    closed = true;
}

LRESULT CALLBACK LiveView::WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NCCREATE) {
        const auto* const creation = reinterpret_cast<const CREATESTRUCTW*>(lParam);
        SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(creation->lpCreateParams));
    }
    auto* const view = reinterpret_cast<LiveView*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    switch (message) {
    case RedrawMessage:
        InvalidateRect(window, nullptr, FALSE); // painted once for all frames that have arrived
        return 0;
    case WM_ERASEBKGND:
        return 1; // WM_PAINT covers the whole window
    case WM_PAINT: {
        PAINTSTRUCT paint;
        const HDC dc = BeginPaint(window, &paint);
        RECT area;
        GetClientRect(window, &area);
        const Shown newest = view->Newest();
        Draw(dc, area, ToPicture(newest.frame), newest.figures);
        EndPaint(window, &paint);
        return 0;
    }
    case WM_CLOSE:
        view->closed = true;
        return 0;
    default:
        return DefWindowProcW(window, message, wParam, lParam);
    }
}

} // namespace receiver
