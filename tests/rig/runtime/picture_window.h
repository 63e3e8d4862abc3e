// The child window of a controller: white until the server sends pictures of the page, then the last picture, pixel for
// pixel from the upper left corner. Pictures are decoded on a thread of their own, so that the host is not held up.
#pragma once

#include <windows.h>

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace rig {

class PictureWindow {
public:
    // Null with the last error set when the window cannot be made. `onDestroyed` runs when the window is destroyed from
    // outside; `onPicture` on the decoding thread after each file.
    [[nodiscard]] static std::unique_ptr<PictureWindow> Create(HWND parent, std::function<void()> onDestroyed,
                                                               std::function<void()> onPicture);

    PictureWindow(std::function<void()> onDestroyed, std::function<void()> onPicture);
    PictureWindow(const PictureWindow&) = delete;
    PictureWindow& operator=(const PictureWindow&) = delete;
    ~PictureWindow();

    [[nodiscard]] HWND Handle() const { return window_; }

    // Shows a JPEG file, named as Linux does.
    void ShowFile(std::wstring path);

private:
    struct Picture {
        int width = 0;
        int height = 0;
        std::vector<std::byte> pixels; // Four bytes each, top row first.
    };

    static LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    [[nodiscard]] static HRESULT Decode(const std::wstring& path, Picture& picture);
    void DecodeFiles();
    void Paint();

    HWND window_ = nullptr;
    std::function<void()> onDestroyed_;
    std::function<void()> onPicture_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::wstring nextFile_;
    bool ending_ = false;
    Picture picture_;
    std::thread decoder_; // Started by the first picture.
};

} // namespace rig
