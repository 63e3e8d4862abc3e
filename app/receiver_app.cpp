#include "app/receiver_app.h"

#include "app/receiver_log.h"
#include "app/settings.h"
#include "browser/client_query.h"
#include "platform/environment_variable.h"
#include "platform/folder.h"
#include "platform/hresult.h"

#include <array>
#include <cwchar>
#include <utility>

namespace receiver {
namespace {

constexpr wchar_t WindowClassName[] = L"VistelReceiverWindow";
constexpr wchar_t ProductName[] = L"Vistel";
constexpr int WindowWidth = 760; // outer size, pixels
constexpr int WindowHeight = 520;
constexpr WORD IconResource = 101;

} // namespace

int ReceiverApp::Run(HINSTANCE moduleInstance, int showCommand, std::wstring address) {
    ReceiverLog::Reset();
    ReceiverLog::Write(L"Receiver starting");
    if (!address.empty()) {
        AppendClientQuery(address, ReadInstallationId());
    }
    receiverAddress = std::move(address);
    instance = moduleInstance;
    if (!CreateMainWindow()) {
        return 1;
    }
    InitializeUsageMonitor();
    ShowWindow(window, showCommand);
    UpdateWindow(window);
    if (!PrepareUserDataFolder() || !RequestEnvironment()) {
        return 1;
    }
    ReceiverLog::Write(L"WebView2 environment request accepted");

    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    return static_cast<int>(message.wParam);
}

void ReceiverApp::ShowFatalError(const wchar_t* message, HRESULT result) noexcept {
    ReceiverLog::Write(message, result);
    std::array<wchar_t, 256> text{};
    (void)std::swprintf(text.data(), text.size(), L"%ls\n\nHRESULT: 0x%08X", message, static_cast<unsigned>(result));
    (void)MessageBoxW(window, text.data(), ProductName, MB_OK | MB_ICONERROR);
}

bool ReceiverApp::CreateMainWindow() noexcept {
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof(windowClass);
    windowClass.lpfnWndProc = WindowProc;
    windowClass.hInstance = instance;
    windowClass.hIcon = LoadIconW(instance, MAKEINTRESOURCEW(IconResource));
    windowClass.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    windowClass.hbrBackground = reinterpret_cast<HBRUSH>(static_cast<INT_PTR>(COLOR_WINDOW + 1));
    windowClass.lpszClassName = WindowClassName;
    windowClass.hIconSm = windowClass.hIcon;
    if (RegisterClassExW(&windowClass) == 0) {
        return false;
    }
    window = CreateWindowExW(0, WindowClassName, ProductName, WS_OVERLAPPEDWINDOW, CW_USEDEFAULT, CW_USEDEFAULT,
                             WindowWidth, WindowHeight, nullptr, nullptr, instance, this);
    return window != nullptr;
}

bool ReceiverApp::PrepareUserDataFolder() {
    const auto localAppData = ReadEnvironmentVariable(L"LOCALAPPDATA");
    if (!localAppData) {
        ShowFatalError(L"LOCALAPPDATA is unavailable.", LastErrorResult());
        return false;
    }
    const std::wstring productFolder = *localAppData + L"\\Vistel";
    userDataFolder = productFolder + L"\\WebView2";
    HRESULT result = EnsureFolder(productFolder);
    if (SUCCEEDED(result)) {
        result = EnsureFolder(userDataFolder);
    }
    if (FAILED(result)) {
        ShowFatalError(L"Unable to create the WebView2 user-data folder.", result);
        return false;
    }
    return true;
}

LRESULT CALLBACK ReceiverApp::WindowProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) noexcept {
    auto* app = reinterpret_cast<ReceiverApp*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    if (message == WM_NCCREATE) {
        app = static_cast<ReceiverApp*>(reinterpret_cast<const CREATESTRUCTW*>(lParam)->lpCreateParams);
        SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(app));
    }
    if (app == nullptr) {
        return DefWindowProcW(hwnd, message, wParam, lParam);
    }
    switch (message) {
    case WM_DESTROY:
        if (app->window != nullptr) {
            (void)KillTimer(app->window, UsageTimer); // There is none when the event could not be made.
        }
        app->usageEvent.Reset();
        PostQuitMessage(0);
        return 0;
    case WM_SIZE:
        app->FitBrowserToWindow();
        return 0;
    case WM_TIMER:
        if (wParam != UsageTimer) {
            break;
        }
        if (app->usageEvent) {
            app->OnUsageTimer();
        }
        return 0;
    default:
        break;
    }
    return DefWindowProcW(hwnd, message, wParam, lParam);
}

} // namespace receiver
