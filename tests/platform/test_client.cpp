#include "tests/platform/test_client.h"

namespace {

HMODULE thisLibrary = nullptr;

} // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason != DLL_PROCESS_ATTACH) {
        return TRUE;
    }
    thisLibrary = instance;
    return GetEnvironmentVariableW(RefuseVariable, nullptr, 0) == 0 ? TRUE : FALSE;
}

extern "C" __declspec(dllexport) HRESULT STDMETHODCALLTYPE
    CreateWebViewEnvironmentWithOptionsInternal(bool joinRunningVersion, int runtimeType, PCWSTR userDataFolder,
                                                IUnknown* options, IUnknown* handler) {
    const FARPROC address = GetProcAddress(GetModuleHandleW(nullptr), "ClientCalled");
    return reinterpret_cast<ClientCalledFunction>(reinterpret_cast<void*>(address))(
        thisLibrary, joinRunningVersion, runtimeType, userDataFolder, options, handler);
}
