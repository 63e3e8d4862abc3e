// ReceiverApp: the one application object. It owns the window, the browser objects, the frame pipeline's state, the
// recorder and the settings in force, all used only on the UI thread. The files named below implement its operations.
#pragma once

#include "app/quality.h"
#include "capture/video_recorder.h"
#include "frames/conversion/canvas.h"
#include "frames/conversion/frame_converter.h"
#include "frames/shared_frame_file.h"
#include "frames/usage_tracker.h"
#include "platform/com_ptr.h"
#include "platform/handles.h"

#include <windows.h>

#include <WebView2.h> // The vendor's needs <objbase.h> first, which handles.h includes.

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace receiver {

inline constexpr UINT_PTR UsageTimer = 1; // the window's timer that polls usageEvent

class ReceiverApp {
public:
    ReceiverApp() = default;
    ReceiverApp(const ReceiverApp&) = delete;
    ReceiverApp& operator=(const ReceiverApp&) = delete;

    // app/receiver_app.cpp
    // Runs the program from the reset of the log to the end of the message loop; returns the process exit code. An
    // empty `address` means the built-in page.
    [[nodiscard]] int Run(HINSTANCE instance, int showCommand, std::wstring address);
    // Logs, then shows a modal error box. The caller decides what happens next.
    void ShowFatalError(const wchar_t* message, HRESULT result) noexcept;
    static LRESULT CALLBACK WindowProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) noexcept;

    // app/window_layout.cpp
    void ApplyWindowLayout(std::int32_t clientWidth, std::int32_t clientHeight, std::wstring_view layout);
    void FitBrowserToWindow() noexcept;

    // browser/bring_up.cpp: the results are returned to WebView2.
    HRESULT OnEnvironmentCreated(HRESULT result, ICoreWebView2Environment* environment);
    HRESULT OnControllerCreated(HRESULT result, ICoreWebView2Controller* controller);
    HRESULT OnPermissionRequested(ICoreWebView2* sender, ICoreWebView2PermissionRequestedEventArgs* args) noexcept;
    HRESULT OnNavigationCompleted(ICoreWebView2* sender, ICoreWebView2NavigationCompletedEventArgs* args);

    // browser/page_protocol.cpp
    HRESULT OnWebMessageReceived(ICoreWebView2* sender, ICoreWebView2WebMessageReceivedEventArgs* args);
    // Posts a null-terminated text. E_POINTER while the browser does not exist.
    [[nodiscard]] HRESULT PostJsonToPage(const wchar_t* text) noexcept;
    void PostMediaResult(std::wstring_view action, HRESULT code, std::wstring_view path);

    // browser/diagnostics.cpp
    [[nodiscard]] HRESULT PostDiagnostics() noexcept;

    // frames/frame_slots.cpp
    [[nodiscard]] HRESULT CreateAndPostFrameSlots() noexcept;
    // `message` is the whole text, "frame:" included.
    [[nodiscard]] HRESULT HandleFrameMessage(std::wstring_view message);

    // frames/usage_monitor.cpp
    void InitializeUsageMonitor() noexcept;
    void OnUsageTimer() noexcept;

private:
    // app/receiver_app.cpp
    [[nodiscard]] bool CreateMainWindow() noexcept;
    [[nodiscard]] bool PrepareUserDataFolder();

    // browser/bring_up.cpp
    [[nodiscard]] bool RequestEnvironment();
    [[nodiscard]] HRESULT RegisterHandlers();
    [[nodiscard]] HRESULT NavigateToPage() noexcept;

    // browser/page_protocol.cpp
    [[nodiscard]] HRESULT HandleReady();
    [[nodiscard]] HRESULT HandleLayout(std::wstring_view layout);
    [[nodiscard]] HRESULT HandleSnapshot();
    [[nodiscard]] HRESULT HandleRecordStart();
    [[nodiscard]] HRESULT HandleQuality(std::wstring_view name);
    // Stops the recorder, returns its result, logs it with `logText` unless that is null, and posts it as
    // "recording-stopped". After the failed write of a frame `writeFailure` is posted instead, as "recording-failed".
    [[nodiscard]] HRESULT StopRecording(const wchar_t* logText, HRESULT writeFailure = S_OK);

    // frames/frame_slots.cpp
    [[nodiscard]] HRESULT ConvertAndPublishFrame(const std::uint8_t* slot, std::wstring_view text);

    // Destroyed in reverse order, after COM and Media Foundation have been shut down.
    HINSTANCE instance = nullptr;
    HWND window = nullptr;
    UniqueHandle usageEvent;
    std::wstring userDataFolder;
    std::wstring receiverAddress; // with the client query; empty for the built-in page
    UsageTracker usageTracker; // lastConsumerTick and consumerActive
    bool pageReady = false; // never reset
    std::array<EventRegistrationToken, 3> messageTokens{};
    ComPtr<ICoreWebView2Environment> environment;
    ComPtr<ICoreWebView2Controller> controller;
    ComPtr<ICoreWebView2> webView; // set when the browser exists
    std::array<ComPtr<ICoreWebView2SharedBuffer>, 2> slotBuffers;
    std::array<std::uint8_t*, 2> slotData{}; // SlotSize bytes each, owned by slotBuffers
    SharedFrameFile sharedFrameFile;
    VideoRecorder recorder;
    FrameConverter frameConverter;
    FrameCanvas scratchBuffer; // the canvas: the last converted frame, NV12
    std::uint32_t outputWidth = DefaultQuality.width; // the size in force
    std::uint32_t outputHeight = DefaultQuality.height;
    std::uint64_t framesHandled = 0;
    std::wstring layoutName = L"setup";
};

} // namespace receiver
