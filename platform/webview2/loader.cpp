// Finds the WebView2 runtime and asks its client library for an environment. Written for the x64 program; a build with
// the vendor's SDK uses the vendor's loader instead. This one decides as the vendor's does, with these differences:
// - missing runtime: reported through the handler from the message loop, so that the program's window stays open. The
//   vendor's loader returns the code at once.
// - version names: four numbers of up to nine digits, as installations write them. The vendor's loader also accepts
//   fewer or more numbers and a text after them ("150", "150.0.0.1-beta").
// - registry values: a version folder is a text of any length. The vendor's loader reads 260 characters of any type.
// - policy default value: has no documented meaning and is not read. The vendor's loader reads it as a folder.
// - empty data folder policy: passed on as an empty text, as an empty variable is. The vendor's loader passes null.
// - channels in the options: not read, because the program passes no options.
// - stable browser: WEBVIEW2_USE_EDGE_VIEW is not documented and not read.
// - packages: a runtime that a packaged program depends on is not searched for, because this program has no package.
// - unloading: a client library stays loaded, because the objects that it creates live in it.

#include <WebView2.h>

#include "platform/com_object.h"
#include "platform/com_ptr.h"
#include "platform/hresult.h"
#include "platform/webview2/runtime_search.h"

#include <map>
#include <new>
#include <optional>
#include <string>
#include <utility>

namespace receiver {
namespace {

using CompletedHandler = ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler;

using CreateEnvironment = HRESULT(STDMETHODCALLTYPE*)(bool joinRunningVersion, RuntimeType type, PCWSTR userDataFolder,
                                                      IUnknown* options, CompletedHandler* handler);

// The handlers that wait for the message loop of their thread, by the timer that ends the wait.
thread_local std::map<UINT_PTR, ComPtr<CompletedHandler>> waitingHandlers;

void CALLBACK DeliverFailure(HWND, UINT, UINT_PTR timer, DWORD) noexcept {
    KillTimer(nullptr, timer);
    if (const auto waiting = waitingHandlers.extract(timer)) {
        // No caller takes the handler's own result.
        (void)waiting.mapped()->Invoke(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), nullptr);
    }
}

HRESULT ReportMissingRuntime(CompletedHandler* handler) {
    const UINT_PTR timer = SetTimer(nullptr, 0, USER_TIMER_MINIMUM, DeliverFailure);
    if (timer == 0) {
        return LastErrorResult();
    }
    waitingHandlers.try_emplace(timer, handler);
    return S_OK;
}

HRESULT CreateEnvironmentWith(const Runtime& runtime, PCWSTR userDataFolder, IUnknown* options,
                              CompletedHandler* handler) {
    // Its dependencies come from its own folder or from the system's, not from the program's or the current one.
    const HMODULE library = LoadLibraryExW(runtime.clientLibrary.c_str(), nullptr,
                                           LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (library == nullptr) {
        return LastErrorResult();
    }
    const FARPROC address = GetProcAddress(library, "CreateWebViewEnvironmentWithOptionsInternal");
    if (address == nullptr) {
        return LastErrorResult();
    }
    const auto create = reinterpret_cast<CreateEnvironment>(reinterpret_cast<void*>(address));
    return create(true, runtime.type, userDataFolder, options, handler);
}

// One request of the program. It receives the runtime's answer to the first try. When that try fails, by the code of
// the call or through the handler, it searches and calls once more, and the program receives the second outcome.
class Request final
    : public ComObject<CompletedHandler, IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler> {
public:
    Request(PCWSTR browserFolder, PCWSTR dataFolder, IUnknown* requestedOptions, CompletedHandler* caller)
        : callersFolder(browserFolder != nullptr ? browserFolder : L""),
          callersDataFolder(dataFolder != nullptr ? std::optional<std::wstring>(dataFolder) : std::nullopt),
          options(requestedOptions), callersHandler(caller) {}

    HRESULT Start() noexcept {
        const HRESULT result = Try(this);
        return FAILED(result) ? TryAgain(result) : result;
    }

    HRESULT STDMETHODCALLTYPE Invoke(HRESULT result, ICoreWebView2Environment* environment) noexcept override {
        if (SUCCEEDED(result) || triedAgain) {
            return callersHandler->Invoke(result, environment);
        }
        const HRESULT secondResult = TryAgain(result);
        return SUCCEEDED(secondResult) ? S_OK : callersHandler->Invoke(secondResult, nullptr);
    }

private:
    // `firstResult` when there has been a second try before.
    HRESULT TryAgain(HRESULT firstResult) noexcept {
        return std::exchange(triedAgain, true) ? firstResult : Try(callersHandler.Get());
    }
    HRESULT Try(CompletedHandler* handler) noexcept {
        try {
            const std::wstring program = ProgramPath();
            const auto dataOverride = FindUserDataOverride(program);
            const auto& dataFolder = dataOverride ? dataOverride : callersDataFolder;
            const auto runtime = FindRuntime(program, callersFolder);
            return runtime ? CreateEnvironmentWith(*runtime, dataFolder ? dataFolder->c_str() : nullptr, options.Get(),
                                                   handler)
                           : ReportMissingRuntime(callersHandler.Get());
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    std::wstring callersFolder;
    std::optional<std::wstring> callersDataFolder;
    ComPtr<IUnknown> options;
    ComPtr<CompletedHandler> callersHandler;
    bool triedAgain = false;
};

} // namespace
} // namespace receiver

extern "C" HRESULT STDMETHODCALLTYPE CreateCoreWebView2EnvironmentWithOptions(
    PCWSTR browserExecutableFolder, PCWSTR userDataFolder, ICoreWebView2EnvironmentOptions* environmentOptions,
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* environmentCreatedHandler) {
    using namespace receiver;
    if (environmentCreatedHandler == nullptr) {
        return E_POINTER;
    }
    // The options' interface is incomplete here; every COM interface begins with IUnknown.
    auto* const options = reinterpret_cast<IUnknown*>(environmentOptions);
    try {
        const auto request = ComPtr<Request>::Attach(
            new Request(browserExecutableFolder, userDataFolder, options, environmentCreatedHandler));
        return request->Start();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}
