// The state of the functions of fuzz/windows/windows.h: a fake Windows machine, created for every run. It counts what
// it hands out, lets any call fail, and records what the program logs and shows. The browser and the sink writer are
// the fakes of tests/.
#pragma once

#include "fuzz/support/guarded_memory.h"
#include "tests/capture/sink_writer_fake.h"
#include "tests/support/webview2_fakes.h"

#include <windows.h>

#include <cstdint>
#include <functional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace receiver {

class FakeWindows {
public:
    // `frameFile` holds the bytes of the shared frame file; its size is the largest that the file can have.
    explicit FakeWindows(std::span<std::uint8_t> newFrameFile);
    FakeWindows(const FakeWindows&) = delete;
    FakeWindows& operator=(const FakeWindows&) = delete;
    ~FakeWindows();

    // The only one that exists.
    [[nodiscard]] static FakeWindows& Current() noexcept;

    // Set by the target.
    std::function<bool(MSG&)> nextMessage; // the next message of the program's message loop; false: WM_QUIT
    std::wstring programData;
    std::wstring knownFolder = L"C:\\Users\\\"a\"";
    std::uint64_t nowMs = 1;
    std::uint64_t frameFileSize = 0; // bytes
    bool eventSignaled = false;
    bool maximized = false;
    bool minimized = false;
    unsigned callsUntilFailure = 0; // 0: no call fails

    // Recorded here.
    // In one sequence: "log" and a line, "box" and a text, "writer" and a call of the sink writer, and the browser's
    // calls that post to the page.
    std::vector<std::wstring> events;
    bool boxShown = false;
    bool failed = false; // a call has been made to fail
    unsigned pixelSum = 0; // of the bytes read of snapshots

    // Counts the call and returns whether it is the one that fails.
    [[nodiscard]] bool Fails() noexcept;
    [[nodiscard]] HANDLE MakeHandle();
    [[nodiscard]] bool CloseHandle(HANDLE handle) noexcept;
    [[nodiscard]] void* Allocate(std::size_t size);
    [[nodiscard]] wchar_t* MakeString(std::wstring_view text);
    void FreeString(void* text) noexcept;
    [[nodiscard]] std::span<std::uint8_t> FrameFile() const noexcept { return frameFile; }
    // Releases the handlers, and names everything that was handed out and not given back; empty if there is no leak.
    [[nodiscard]] std::string Leaks();

    BrowserFakes browser;
    SinkWriterFakes writers;

    // The only window.
    [[nodiscard]] HWND Window() noexcept { return reinterpret_cast<HWND>(&windowData); }
    WNDPROC windowProcedure = nullptr;
    LONG_PTR windowData = 0;
    bool windowExists = false;
    RECT windowRectangle{};

    int objectCount = 0; // COM objects alive
    int mappedViews = 0;
    int comStarts = 0;
    int mediaStarts = 0;

private:
    std::span<std::uint8_t> frameFile;
    std::set<HANDLE> handles;
    std::set<void*> strings;
    std::intptr_t lastHandle = 0;
};

[[nodiscard]] inline HRESULT Answer() noexcept { return FakeWindows::Current().Fails() ? E_FAIL : S_OK; }

} // namespace receiver
