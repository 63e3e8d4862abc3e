// Posts the report on the system when the page is ready.

#include "app/receiver_app.h"
#include "browser/page_json.h"
#include "platform/handles.h"
#include "platform/hresult.h"

#include <windows.h>

#include <new>

namespace receiver {
namespace {

// The actual version, also without a manifest that names it; zeros when it cannot be read.
OsVersion ReadOsVersion() noexcept {
    using RtlGetVersion = LONG(WINAPI*)(RTL_OSVERSIONINFOW*);
    RTL_OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    const HMODULE library = GetModuleHandleW(L"ntdll.dll");
    const FARPROC address = library != nullptr ? GetProcAddress(library, "RtlGetVersion") : nullptr;
    const auto getVersion = reinterpret_cast<RtlGetVersion>(reinterpret_cast<void*>(address));
    if (getVersion == nullptr || getVersion(&version) != 0) {
        return {};
    }
    return {version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber};
}

// Whether the camera's COM server is registered for 64-bit processes; whether its file exists is not checked.
bool IsVirtualCameraRegistered() noexcept {
    RegistryKey key;
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE,
                         L"SOFTWARE\\Classes\\CLSID\\{A42D576C-2AD1-4D63-94B0-31E96BDCA54F}\\InprocServer32", 0,
                         KEY_READ | KEY_WOW64_64KEY, key.Put()) == ERROR_SUCCESS;
}

} // namespace

HRESULT ReceiverApp::PostDiagnostics() noexcept try {
    if (!webView) {
        return E_POINTER; // before the system is queried
    }
    return PostJsonToPage(DiagnosticsJson(ReadOsVersion(), IsVirtualCameraRegistered()).c_str());
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

} // namespace receiver
