// A window that shows what a camera application would: the newest frame and, below it, a line of figures. It lives on a
// thread of its own, so that drawing never delays the reading of frames.
#pragma once

#include "tools/camera_probe/frame_picture.h"

#include <windows.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

namespace receiver {

class LiveView {
public:
    // Opens the window, in the lower right corner of the desktop.
    LiveView();
    LiveView(const LiveView&) = delete;
    LiveView& operator=(const LiveView&) = delete;
    ~LiveView();

    // True once the user has closed the window, or when it could not be made; false before it is there.
    [[nodiscard]] bool IsClosed() const noexcept { return closed_; }

    // What is shown from now on.
    void Show(const Frame& frame, std::wstring figures);

    // The window's content as it is when the frame is shown in its own size.
    [[nodiscard]] Picture Content();

private:
    struct Shown {
        Frame frame;
        std::wstring figures;
    };

    static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    void RunWindow();
    // A copy, for drawing takes longer than the lock may be held.
    [[nodiscard]] Shown Newest();

    std::mutex lock_;
    Shown newest_;
    std::atomic<bool> closed_ = false;
    std::atomic<HWND> window_ = nullptr;
    std::thread thread_;
};

} // namespace receiver
