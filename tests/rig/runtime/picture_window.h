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

    PictureWindow(std::function<void()> newOnDestroyed, std::function<void()> newOnPicture);
    PictureWindow(const PictureWindow&) = delete;
    PictureWindow& operator=(const PictureWindow&) = delete;
    ~PictureWindow();

    [[nodiscard]] HWND Handle() const { return window; }

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

    HWND window = nullptr;
    std::function<void()> onDestroyed;
    std::function<void()> onPicture;
    std::mutex mutex;
    std::condition_variable wake;
    std::wstring nextFile;
    bool ending = false;
    Picture picture;
    std::thread decoder; // Started by the first picture.
};

} // namespace rig
