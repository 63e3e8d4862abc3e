#include "fuzz/windows/fake_windows.h"

#include "frames/frame_file.h"
#include "fuzz/support/require.h"
#include "tests/support/report_failure.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace receiver {
namespace {

FakeWindows* current = nullptr;
thread_local DWORD lastError = 0;

// For a call that returns TRUE for success and sets the last error otherwise.
BOOL Done(bool success, DWORD error = ERROR_ACCESS_DENIED) {
    if (!success) {
        SetLastError(error);
    }
    return success ? TRUE : FALSE;
}

BOOL DoneUnlessFails() { return Done(!FakeWindows::Current().Fails()); }

HANDLE NewHandle(HANDLE none) {
    if (FakeWindows::Current().Fails()) {
        SetLastError(ERROR_ACCESS_DENIED);
        return none;
    }
    SetLastError(ERROR_SUCCESS);
    return FakeWindows::Current().MakeHandle();
}

LONG GetVersionOfFake(RTL_OSVERSIONINFOW* version) {
    version->dwMajorVersion = 10;
    version->dwMinorVersion = 0;
    version->dwBuildNumber = 22631;
    return 0;
}

} // namespace

void ReportFailure(const std::wstring& what) { Require(false, std::string(what.begin(), what.end()).c_str()); }

FakeWindows::FakeWindows(std::span<std::uint8_t> newFrameFile) : frameFile(newFrameFile) {
    Require(current == nullptr, "only one fake machine exists at a time");
    current = this;
    browser.onRecord = [this](const std::wstring& call) {
        if (call.starts_with(L"Post")) {
            events.push_back(call);
        }
    };
    writers.onCall = [this](const std::string& call) {
        events.push_back(L"writer " + std::wstring(call.begin(), call.end()));
    };
    browser.onCall = [](const std::wstring&) { return Answer(); };
    writers.onResult = [] { return Answer(); };
}

FakeWindows::~FakeWindows() {
    for (void* const text : strings) {
        std::free(text);
    }
    current = nullptr;
}

FakeWindows& FakeWindows::Current() noexcept { return *current; }

bool FakeWindows::Fails() noexcept {
    if (callsUntilFailure == 0 || --callsUntilFailure > 0) {
        return false;
    }
    failed = true;
    return true;
}

HANDLE FakeWindows::MakeHandle() {
    lastHandle += 4;
    const HANDLE handle = reinterpret_cast<HANDLE>(lastHandle);
    handles.insert(handle);
    return handle;
}

bool FakeWindows::CloseHandle(HANDLE handle) noexcept { return handles.erase(handle) == 1; }

void* FakeWindows::Allocate(std::size_t size) {
    void* const memory = std::malloc(size);
    Require(memory != nullptr, "there is memory");
    strings.insert(memory);
    return memory;
}

wchar_t* FakeWindows::MakeString(std::wstring_view text) {
    auto* const copy = static_cast<wchar_t*>(Allocate((text.size() + 1) * sizeof(wchar_t)));
    std::copy(text.begin(), text.end(), copy);
    copy[text.size()] = L'\0';
    return copy;
}

void FakeWindows::FreeString(void* text) noexcept {
    if (text != nullptr) {
        Require(strings.erase(text) == 1, "only strings that were handed out are freed, and once");
        browser.OnTaskMemoryFreed(text);
        std::free(text);
    }
}

std::string FakeWindows::Leaks() {
    writers.newestSample.Reset();
    writers.outputType.Reset();
    writers.inputType.Reset();
    std::string leaks;
    for (const std::wstring& leak : browser.Leaks()) {
        leaks += std::string(leak.begin(), leak.end()) + "; ";
    }
    const auto count = [&](const char* what, std::size_t number) {
        if (number != 0) {
            leaks += std::string(what) + ": " + std::to_string(number) + "; ";
        }
    };
    count("handles", handles.size());
    count("strings", strings.size());
    count("objects", static_cast<std::size_t>(objectCount));
    count("views", static_cast<std::size_t>(mappedViews));
    count("COM", static_cast<std::size_t>(comStarts));
    count("Media Foundation", static_cast<std::size_t>(mediaStarts));
    return leaks;
}

} // namespace receiver

using receiver::current;
using receiver::Done;
using receiver::DoneUnlessFails;
using receiver::lastError;
using receiver::NewHandle;
using receiver::Require;

DWORD GetLastError() noexcept { return lastError; }
void SetLastError(DWORD error) noexcept { lastError = error; }

// COM

HRESULT CoInitializeEx(void*, DWORD) noexcept {
    const HRESULT result = receiver::Answer();
    current->comStarts += SUCCEEDED(result) ? 1 : 0;
    return result;
}
void CoUninitialize() noexcept { --current->comStarts; }
void* CoTaskMemAlloc(std::size_t size) { return current->Allocate(size); }
void CoTaskMemFree(void* memory) noexcept { current->FreeString(memory); }

// Files, memory and events. Only the shared frame file is opened with a handle.

HANDLE CreateFileW(LPCWSTR, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE) {
    return NewHandle(INVALID_HANDLE_VALUE);
}
BOOL SetFilePointerEx(HANDLE, LARGE_INTEGER distance, LARGE_INTEGER*, DWORD) {
    Require(distance.QuadPart == static_cast<LONGLONG>(current->FrameFile().size()), "the file gets its one size");
    return DoneUnlessFails();
}
BOOL SetEndOfFile(HANDLE) {
    if (current->Fails()) {
        return Done(false);
    }
    const std::span<std::uint8_t> file = current->FrameFile();
    const auto kept = static_cast<std::size_t>(std::min<std::uint64_t>(current->frameFileSize, file.size()));
    std::ranges::fill(file.subspan(kept), std::uint8_t{0});
    current->frameFileSize = file.size();
    return TRUE;
}
HANDLE CreateFileMappingW(HANDLE, SECURITY_ATTRIBUTES*, DWORD, DWORD, DWORD, LPCWSTR) { return NewHandle(nullptr); }
void* MapViewOfFile(HANDLE, DWORD, DWORD, DWORD, std::size_t size) {
    Require(size <= current->frameFileSize, "a view lies inside its file");
    if (DoneUnlessFails() == FALSE) {
        return nullptr;
    }
    ++current->mappedViews;
    return current->FrameFile().data();
}
BOOL UnmapViewOfFile(const void* view) noexcept {
    Require(view == current->FrameFile().data(), "only the view is unmapped");
    --current->mappedViews;
    return TRUE;
}
BOOL CloseHandle(HANDLE handle) noexcept {
    Require(current->CloseHandle(handle), "only open handles are closed, and once");
    return TRUE;
}
BOOL CreateDirectoryW(LPCWSTR, SECURITY_ATTRIBUTES*) noexcept { return DoneUnlessFails(); }
DWORD GetFileAttributesW(LPCWSTR) {
    return DoneUnlessFails() != FALSE ? FILE_ATTRIBUTE_DIRECTORY : INVALID_FILE_ATTRIBUTES;
}
DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR value, DWORD size) {
    const std::wstring text = std::wstring_view(name) == L"ProgramData" ? current->programData : L"C:\\Local";
    if (current->Fails()) {
        SetLastError(ERROR_ENVVAR_NOT_FOUND);
        return 0;
    }
    if (text.size() >= size) {
        return static_cast<DWORD>(text.size()) + 1;
    }
    std::copy_n(text.c_str(), text.size() + 1, value);
    return static_cast<DWORD>(text.size());
}
void GetLocalTime(SYSTEMTIME* time) noexcept { *time = {2026, 1, 5, 2, 3, 4, 5, 6}; }
ULONGLONG GetTickCount64() noexcept { return current->nowMs; }
HANDLE CreateEventW(SECURITY_ATTRIBUTES*, BOOL, BOOL, LPCWSTR) noexcept { return NewHandle(nullptr); }
DWORD WaitForSingleObject(HANDLE, DWORD) noexcept {
    return std::exchange(current->eventSignaled, false) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}
BOOL ConvertStringSecurityDescriptorToSecurityDescriptorW(LPCWSTR, DWORD, PSECURITY_DESCRIPTOR* descriptor,
                                                          ULONG*) noexcept {
    if (current->Fails()) {
        return Done(false);
    }
    *descriptor = current->MakeString({});
    return TRUE;
}
void* LocalFree(void* memory) noexcept {
    current->FreeString(memory);
    return nullptr;
}

// The system

HMODULE GetModuleHandleW(LPCWSTR) { return current->Fails() ? nullptr : reinterpret_cast<HMODULE>(current); }
FARPROC GetProcAddress(HMODULE, const char*) {
    return current->Fails() ? nullptr : reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&receiver::GetVersionOfFake));
}
LONG RegOpenKeyExW(HKEY, LPCWSTR, DWORD, DWORD, HKEY* key) {
    if (current->Fails()) {
        return static_cast<LONG>(ERROR_FILE_NOT_FOUND);
    }
    *key = static_cast<HKEY>(current->MakeHandle());
    return static_cast<LONG>(ERROR_SUCCESS);
}
LONG RegCloseKey(HKEY key) noexcept {
    Require(current->CloseHandle(key), "only open keys are closed, and once");
    return static_cast<LONG>(ERROR_SUCCESS);
}
HRESULT SHGetKnownFolderPath(REFKNOWNFOLDERID, DWORD, HANDLE, PWSTR* path) {
    *path = nullptr;
    RETURN_IF_FAILED(receiver::Answer());
    *path = current->MakeString(current->knownFolder);
    return S_OK;
}

// Windows

HICON LoadIconW(HINSTANCE, LPCWSTR) noexcept { return nullptr; }
HCURSOR LoadCursorW(HINSTANCE, LPCWSTR) noexcept { return nullptr; }
WORD RegisterClassExW(const WNDCLASSEXW* windowClass) noexcept {
    if (current->Fails()) {
        return 0;
    }
    current->windowProcedure = windowClass->lpfnWndProc;
    return 1;
}
HWND CreateWindowExW(DWORD, LPCWSTR, LPCWSTR, DWORD, int, int, int width, int height, HWND, HMENU, HINSTANCE,
                     void* parameter) {
    if (current->Fails()) {
        return nullptr;
    }
    const CREATESTRUCTW creation{parameter};
    (void)current->windowProcedure(current->Window(), WM_NCCREATE, 0, reinterpret_cast<LPARAM>(&creation));
    current->windowRectangle = {0, 0, width, height};
    current->windowExists = true;
    return current->Window();
}
BOOL ShowWindow(HWND, int) noexcept { return TRUE; }
BOOL UpdateWindow(HWND) noexcept { return TRUE; }
BOOL GetMessageW(MSG* message, HWND, UINT, UINT) {
    *message = {};
    return current->nextMessage(*message) ? TRUE : FALSE;
}
BOOL TranslateMessage(const MSG*) noexcept { return FALSE; }
LRESULT DispatchMessageW(const MSG* message) {
    return message->hwnd == nullptr
               ? 0
               : current->windowProcedure(message->hwnd, message->message, message->wParam, message->lParam);
}
LRESULT DefWindowProcW(HWND, UINT, WPARAM, LPARAM) noexcept { return 0; }
void PostQuitMessage(int) noexcept { current->windowExists = false; }
LONG_PTR GetWindowLongPtrW(HWND, int index) noexcept { return index == GWLP_USERDATA ? current->windowData : 0; }
LONG_PTR SetWindowLongPtrW(HWND, int, LONG_PTR value) noexcept { return std::exchange(current->windowData, value); }
UINT_PTR SetTimer(HWND, UINT_PTR id, UINT, void*) noexcept { return current->Fails() ? 0 : id; }
BOOL KillTimer(HWND, UINT_PTR) noexcept { return DoneUnlessFails(); }
BOOL IsIconic(HWND) noexcept { return current->minimized ? TRUE : FALSE; }
BOOL IsZoomed(HWND) noexcept { return current->maximized ? TRUE : FALSE; }
BOOL GetWindowRect(HWND, RECT* rectangle) noexcept {
    *rectangle = current->windowRectangle;
    return DoneUnlessFails();
}
BOOL GetClientRect(HWND, RECT* rectangle) noexcept {
    *rectangle = {0, 0, 100, 100};
    return DoneUnlessFails();
}
BOOL AdjustWindowRectExForDpi(RECT* rectangle, DWORD, BOOL, DWORD, UINT) noexcept {
    *rectangle = {rectangle->left - 8, rectangle->top - 31, rectangle->right + 8, rectangle->bottom + 8};
    return DoneUnlessFails();
}
UINT GetDpiForWindow(HWND) noexcept { return 96; }
HMONITOR MonitorFromWindow(HWND, DWORD) noexcept { return nullptr; }
BOOL GetMonitorInfoW(HMONITOR, MONITORINFO* information) noexcept {
    information->rcWork = {0, 0, 1280, 760};
    return DoneUnlessFails();
}
BOOL SetWindowPos(HWND window, HWND, int x, int y, int width, int height, UINT) {
    if (current->Fails()) {
        return Done(false);
    }
    Require(x >= 0 && y >= 0 && width > 0 && height > 0 && x + width <= 1280 && y + height <= 760,
            "the window stays inside the work area");
    current->windowRectangle = {x, y, x + width, y + height};
    (void)current->windowProcedure(window, WM_SIZE, 0, 0);
    return TRUE;
}
int MessageBoxW(HWND, LPCWSTR text, LPCWSTR, UINT) {
    current->events.push_back(std::wstring(L"box ") + text);
    current->boxShown = true;
    return 1;
}
