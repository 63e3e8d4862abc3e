// The two exports by which a WebView2 loader uses a runtime's client DLL.
#include "module.h"
#include "session.h"

#include "platform/hresult.h"

#include <WebView2.h>

#include <objbase.h>

namespace rig {

HINSTANCE ModuleHandle() {
    static constexpr char InsideModule = 0;
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&InsideModule), &module);
    return module;
}

void RegisterWindowClass(const wchar_t* name, WNDPROC procedure) {
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = procedure;
    windowClass.hInstance = ModuleHandle();
    windowClass.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    windowClass.lpszClassName = name;
    RegisterClassW(&windowClass);
}

namespace {

// The DLL's threads and window procedures must never run unmapped code, even if the loader frees its handle.
void StayLoaded() {
    static constexpr char InsideModule = 0;
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<LPCWSTR>(&InsideModule), &module);
}

HRESULT CheckApartment() {
    APTTYPE type = APTTYPE_CURRENT;
    APTTYPEQUALIFIER qualifier = APTTYPEQUALIFIER_NONE;
    RETURN_IF_FAILED(CoGetApartmentType(&type, &qualifier));
    return type == APTTYPE_STA || type == APTTYPE_MAINSTA ? S_OK : RPC_E_CHANGED_MODE;
}

} // namespace
} // namespace rig

extern "C" __declspec(dllexport) HRESULT STDMETHODCALLTYPE
    CreateWebViewEnvironmentWithOptionsInternal(bool, int, PCWSTR userDataFolder, IUnknown*,
                                                ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
    rig::StayLoaded();
    if (handler == nullptr) {
        return E_POINTER;
    }
    RETURN_IF_FAILED(rig::CheckApartment());
    return rig::Session::Start(userDataFolder, handler);
}

extern "C" __declspec(dllexport) HRESULT STDMETHODCALLTYPE DllCanUnloadNow() { return S_FALSE; }
