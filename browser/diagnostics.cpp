// Posts the report on the system when the page is ready.

#include "app/receiver_app.h"
#include "app/virtual_camera.h"
#include "browser/page_json.h"
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
