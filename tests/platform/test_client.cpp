#include "tests/platform/test_client.h"

#include <windows.h>

#include <unknwn.h>

#include <cwchar>

namespace {

ClientCall lastCall{};

} // namespace

extern "C" __declspec(dllexport) ClientCall* __cdecl ClientCallRecord() { return &lastCall; }

extern "C" __declspec(dllexport) HRESULT STDMETHODCALLTYPE
    CreateWebViewEnvironmentWithOptionsInternal(bool joinRunningVersion, int runtimeType, PCWSTR userDataFolder,
                                                IUnknown* options, IUnknown* handler) {
    ++lastCall.count;
    lastCall.joinRunningVersion = joinRunningVersion;
    lastCall.runtimeType = runtimeType;
    std::wcsncpy(lastCall.userDataFolder, userDataFolder != nullptr ? userDataFolder : L"(null)",
                 sizeof(lastCall.userDataFolder) / sizeof(wchar_t) - 1);
    lastCall.options = options;
    lastCall.handler = handler;
    return lastCall.result;
}

// A loader that unloads on any success code would unload this one.
extern "C" __declspec(dllexport) HRESULT STDMETHODCALLTYPE DllCanUnloadNow() { return S_FALSE; }
