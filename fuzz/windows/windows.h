// The part of the Windows interface that the receiver and its fakes use, so that the same sources run natively under
// sanitizers. The functions are in fuzz/windows/fake_windows.cpp. Each native wchar_t of a text holds one UTF-16 code
// unit. The other Windows headers in this folder include this one; some add interfaces.
#pragma once

#include "platform/hresult.h"

#include <compare>
#include <cstddef>
#include <cstdint>

#define CALLBACK
#define WINAPI
#define STDMETHODCALLTYPE

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using ULONG = std::uint32_t;
using LONG = std::int32_t;
using INT64 = std::int64_t;
using UINT32 = std::uint32_t;
using UINT64 = std::uint64_t;
using ULONGLONG = std::uint64_t;
using LONGLONG = std::int64_t;
using INT_PTR = std::intptr_t;
using UINT_PTR = std::uintptr_t;
using LONG_PTR = std::intptr_t;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;
using LPWSTR = wchar_t*;
using PWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;
using PCWSTR = const wchar_t*;
using HANDLE = void*;
using FARPROC = INT_PTR (*)();
using HWND = struct FakeWindow*;
using HINSTANCE = struct FakeModule*;
using HMODULE = HINSTANCE;
using HICON = struct FakeIcon*;
using HCURSOR = struct FakeCursor*;
using HBRUSH = struct FakeBrush*;
using HMENU = struct FakeMenu*;
using HMONITOR = struct FakeMonitor*;
using HKEY = struct FakeKey*;
using PSECURITY_DESCRIPTOR = void*;
using WNDPROC = LRESULT (*)(HWND, UINT, WPARAM, LPARAM);

inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;

// Results and errors

inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_ALREADY_EXISTS = 183;
inline constexpr DWORD ERROR_ENVVAR_NOT_FOUND = 203;
inline constexpr DWORD ERROR_DIRECTORY = 267;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002);
inline constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001);
inline constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFF);

[[nodiscard]] constexpr HRESULT HRESULT_FROM_WIN32(DWORD error) noexcept {
    return error == 0 ? S_OK : static_cast<HRESULT>(0x80070000 | (error & 0xFFFF));
}
DWORD GetLastError() noexcept;
void SetLastError(DWORD error) noexcept;

namespace receiver {

[[nodiscard]] inline HRESULT LastErrorResult() noexcept { return HRESULT_FROM_WIN32(GetLastError()); }

} // namespace receiver

// COM

struct GUID {
    std::uint32_t data1;
    std::uint16_t data2;
    std::uint16_t data3;
    std::uint8_t data4[8];

    bool operator==(const GUID&) const = default;
};
using IID = GUID;
using CLSID = GUID;
using KNOWNFOLDERID = GUID;
using REFIID = const GUID&;
using REFGUID = const GUID&;
using REFCLSID = const GUID&;
using REFKNOWNFOLDERID = const GUID&;

inline constexpr IID IID_IUnknown{1, 0, 0, {}};
[[nodiscard]] inline bool IsEqualIID(REFIID left, REFIID right) noexcept { return left == right; }

struct IUnknown {
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) = 0;
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;

protected:
    ~IUnknown() = default;
};

inline constexpr DWORD COINIT_APARTMENTTHREADED = 2;
inline constexpr DWORD CLSCTX_INPROC_SERVER = 1;
HRESULT CoInitializeEx(void* reserved, DWORD model) noexcept;
void CoUninitialize() noexcept;
HRESULT CoCreateInstance(REFCLSID id, IUnknown* outer, DWORD context, REFIID interfaceId, void** object);
void* CoTaskMemAlloc(std::size_t size);
void CoTaskMemFree(void* memory) noexcept;
// Only passed as pointers.
struct IStream;
struct VARIANT;

// Files, memory and events

union LARGE_INTEGER {
    LONGLONG QuadPart;
};
struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    void* lpSecurityDescriptor;
    BOOL bInheritHandle;
};
struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(std::intptr_t{-1});
inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD FILE_SHARE_READ = 1;
inline constexpr DWORD FILE_SHARE_WRITE = 2;
inline constexpr DWORD OPEN_ALWAYS = 4;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;
inline constexpr DWORD FILE_BEGIN = 0;
inline constexpr DWORD PAGE_READWRITE = 4;
inline constexpr DWORD FILE_MAP_WRITE = 2;
inline constexpr DWORD FILE_MAP_READ = 4;
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD SDDL_REVISION_1 = 1;

HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES* security, DWORD disposition,
                   DWORD attributes, HANDLE pattern);
BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* position, DWORD method);
BOOL SetEndOfFile(HANDLE file);
HANDLE CreateFileMappingW(HANDLE file, SECURITY_ATTRIBUTES* security, DWORD protection, DWORD sizeHigh, DWORD sizeLow,
                          LPCWSTR name);
void* MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, std::size_t size);
BOOL UnmapViewOfFile(const void* view) noexcept;
BOOL CloseHandle(HANDLE handle) noexcept;
BOOL CreateDirectoryW(LPCWSTR path, SECURITY_ATTRIBUTES* security) noexcept;
DWORD GetFileAttributesW(LPCWSTR path);
DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR value, DWORD size);
void GetLocalTime(SYSTEMTIME* time) noexcept;
ULONGLONG GetTickCount64() noexcept;
HANDLE CreateEventW(SECURITY_ATTRIBUTES* security, BOOL manualReset, BOOL signaled, LPCWSTR name) noexcept;
DWORD WaitForSingleObject(HANDLE handle, DWORD timeoutMs) noexcept;
BOOL ConvertStringSecurityDescriptorToSecurityDescriptorW(LPCWSTR text, DWORD revision,
                                                          PSECURITY_DESCRIPTOR* descriptor, ULONG* size) noexcept;
void* LocalFree(void* memory) noexcept;

// The system

struct RTL_OSVERSIONINFOW {
    ULONG dwOSVersionInfoSize;
    ULONG dwMajorVersion;
    ULONG dwMinorVersion;
    ULONG dwBuildNumber;
};

inline const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(std::intptr_t{1});
inline constexpr DWORD KEY_READ = 0x20019;
inline constexpr DWORD KEY_WOW64_64KEY = 0x100;

HMODULE GetModuleHandleW(LPCWSTR name);
FARPROC GetProcAddress(HMODULE library, const char* name);
LONG RegOpenKeyExW(HKEY parent, LPCWSTR name, DWORD options, DWORD access, HKEY* key);
LONG RegCloseKey(HKEY key) noexcept;
HRESULT SHGetKnownFolderPath(REFKNOWNFOLDERID id, DWORD flags, HANDLE token, PWSTR* path);
inline constexpr DWORD KF_FLAG_CREATE = 0x8000;
inline constexpr KNOWNFOLDERID FOLDERID_Pictures{2, 0, 0, {}};
inline constexpr KNOWNFOLDERID FOLDERID_Videos{2, 1, 0, {}};

// Windows

struct POINT {
    LONG x;
    LONG y;
};
struct RECT {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
};
struct MSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};
struct WNDCLASSEXW {
    UINT cbSize;
    UINT style;
    WNDPROC lpfnWndProc;
    HINSTANCE hInstance;
    HICON hIcon;
    HCURSOR hCursor;
    HBRUSH hbrBackground;
    LPCWSTR lpszClassName;
    HICON hIconSm;
};
struct CREATESTRUCTW {
    void* lpCreateParams;
};
struct MONITORINFO {
    DWORD cbSize;
    RECT rcMonitor;
    RECT rcWork;
    DWORD dwFlags;
};

inline constexpr UINT WM_DESTROY = 2;
inline constexpr UINT WM_SIZE = 5;
inline constexpr UINT WM_NCCREATE = 0x81;
inline constexpr UINT WM_TIMER = 0x113;
inline constexpr int GWLP_USERDATA = -21;
inline constexpr int GWL_STYLE = -16;
inline constexpr int GWL_EXSTYLE = -20;
inline constexpr int COLOR_WINDOW = 5;
inline constexpr int CW_USEDEFAULT = static_cast<int>(0x80000000);
inline constexpr int SW_SHOWNORMAL = 1;
inline constexpr DWORD WS_OVERLAPPEDWINDOW = 0xCF0000;
inline constexpr DWORD MONITOR_DEFAULTTONEAREST = 2;
inline constexpr UINT SWP_NOZORDER = 4;
inline constexpr UINT SWP_NOACTIVATE = 0x10;
inline constexpr UINT SWP_NOOWNERZORDER = 0x200;
inline constexpr UINT MB_OK = 0;
inline constexpr UINT MB_ICONERROR = 0x10;
inline constexpr LPCWSTR IDC_ARROW = nullptr;
[[nodiscard]] constexpr LPCWSTR MAKEINTRESOURCEW(WORD) noexcept { return nullptr; }

HICON LoadIconW(HINSTANCE module, LPCWSTR name) noexcept;
HCURSOR LoadCursorW(HINSTANCE module, LPCWSTR name) noexcept;
WORD RegisterClassExW(const WNDCLASSEXW* windowClass) noexcept;
HWND CreateWindowExW(DWORD extendedStyle, LPCWSTR className, LPCWSTR title, DWORD style, int x, int y, int width,
                     int height, HWND parent, HMENU menu, HINSTANCE module, void* parameter);
BOOL ShowWindow(HWND window, int command) noexcept;
BOOL UpdateWindow(HWND window) noexcept;
BOOL GetMessageW(MSG* message, HWND window, UINT first, UINT last);
BOOL TranslateMessage(const MSG* message) noexcept;
LRESULT DispatchMessageW(const MSG* message);
LRESULT DefWindowProcW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept;
void PostQuitMessage(int exitCode) noexcept;
LONG_PTR GetWindowLongPtrW(HWND window, int index) noexcept;
LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value) noexcept;
UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT periodMs, void* procedure) noexcept;
BOOL KillTimer(HWND window, UINT_PTR id) noexcept;
BOOL IsIconic(HWND window) noexcept;
BOOL IsZoomed(HWND window) noexcept;
BOOL GetWindowRect(HWND window, RECT* rectangle) noexcept;
BOOL GetClientRect(HWND window, RECT* rectangle) noexcept;
BOOL AdjustWindowRectExForDpi(RECT* rectangle, DWORD style, BOOL menu, DWORD extendedStyle, UINT dpi) noexcept;
UINT GetDpiForWindow(HWND window) noexcept;
HMONITOR MonitorFromWindow(HWND window, DWORD flags) noexcept;
BOOL GetMonitorInfoW(HMONITOR monitor, MONITORINFO* information) noexcept;
BOOL SetWindowPos(HWND window, HWND after, int x, int y, int width, int height, UINT flags);
int MessageBoxW(HWND owner, LPCWSTR text, LPCWSTR title, UINT type);
