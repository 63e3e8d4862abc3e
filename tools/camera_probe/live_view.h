// A window that shows what a camera application shows: the newest frame and, below it, a line of figures. It runs on a
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

    // True after the user has closed the window or it could not be created; false before that.
    [[nodiscard]] bool IsClosed() const noexcept { return closed; }

    // Shows this frame and these figures from now on.
    void Show(const Frame& frame, std::wstring figures);

    // The content that the window has when the frame is shown in its original size.
    [[nodiscard]] Picture Content();

private:
    struct Shown {
        Frame frame;
        std::wstring figures;
    };

    static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    void RunWindow();
    // A copy, because drawing takes too long to hold the lock.
    [[nodiscard]] Shown Newest();

    std::mutex lock;
    Shown newest;
    std::atomic<bool> closed = false;
    std::atomic<HWND> window = nullptr;
    std::thread thread;
};

} // namespace receiver
