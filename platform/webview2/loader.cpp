// Finds the installed WebView2 runtime and asks its client library for an environment. Written for the x64 program;
// a build with the vendor's SDK uses the vendor's loader instead. Of the overrides that the platform knows only the two
// environment variables for the folders are read, no policies and no choice of channels.

#include <WebView2.h>

#include "platform/com_ptr.h"
#include "platform/environment_variable.h"
#include "platform/handles.h"
#include "platform/hresult.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace receiver {
namespace {

// The runtime's update channels, the most stable first.
constexpr std::wstring_view Channels[] = {
    L"{F3017226-FE2A-4295-8BDF-00C3A9A7E4C5}", // stable
    L"{2CD8A007-E189-409D-A2C8-9AF4EF3C72AA}", // beta
    L"{0D50BFEC-CD6A-4F9A-964C-C7416E3ACB10}", // dev
    L"{65C35B14-6C1D-4122-AC46-7148CC9D6497}", // canary
};
constexpr std::array<unsigned long, 4> MinimumVersion = {86, 0, 616, 0};

enum class RuntimeType : int { Installed = 0, FixedVersion = 1 };

struct Runtime {
    RuntimeType type = RuntimeType::Installed;
    std::wstring clientLibrary; // full path
};

using CreateEnvironment = HRESULT(STDMETHODCALLTYPE*)(bool joinRunningVersion, RuntimeType type, PCWSTR userDataFolder,
                                                      IUnknown* options,
                                                      ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler*);

// A relative folder counts from the program's own.
std::wstring ResolveFolder(const std::wstring& folder) {
    std::array<wchar_t, 32768> program{};
    const DWORD length = GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size()));
    const std::filesystem::path programPath(std::wstring_view(program.data(), length));
    return programPath.parent_path() / folder;
}

std::wstring ClientLibraryIn(std::wstring_view versionFolder) {
    return std::wstring(versionFolder) + L"\\EBWebView\\x64\\EmbeddedBrowserWebView.dll";
}

// Four decimal numbers with dots between them.
std::optional<std::array<unsigned long, 4>> ParseVersion(std::wstring_view text) {
    std::array<unsigned long, 4> version{};
    for (std::size_t i = 0; i < version.size(); ++i) {
        std::size_t digits = 0;
        while (digits < text.size() && digits < 9 && text[digits] >= L'0' && text[digits] <= L'9') {
            version[i] = version[i] * 10 + static_cast<unsigned long>(text[digits] - L'0');
            ++digits;
        }
        const bool last = i + 1 == version.size();
        if (digits == 0 || (last ? digits != text.size() : digits >= text.size() || text[digits] != L'.')) {
            return std::nullopt;
        }
        text.remove_prefix(last ? digits : digits + 1);
    }
    return version;
}

// The version folder that the registry names for a channel; empty when there is none.
std::wstring InstalledFolder(HKEY root, std::wstring_view channel) {
    const std::wstring path = L"Software\\Microsoft\\EdgeUpdate\\ClientState\\" + std::wstring(channel);
    RegistryKey key;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ | KEY_WOW64_32KEY, key.Put()) != ERROR_SUCCESS) {
        return {};
    }
    DWORD bytes = 0;
    if (RegGetValueW(key.Get(), nullptr, L"EBWebView", RRF_RT_REG_SZ, nullptr, nullptr, &bytes) != ERROR_SUCCESS) {
        return {};
    }
    std::wstring folder(bytes / sizeof(wchar_t), L'\0');
    bytes = static_cast<DWORD>(folder.size() * sizeof(wchar_t)); // An odd size is possible and would be too large.
    if (RegGetValueW(key.Get(), nullptr, L"EBWebView", RRF_RT_REG_SZ, nullptr, folder.data(), &bytes) !=
        ERROR_SUCCESS) {
        return {};
    }
    folder.resize(std::min(folder.find(L'\0'), folder.size()));
    while (!folder.empty() && folder.back() == L'\\') {
        folder.pop_back();
    }
    return folder;
}

std::optional<Runtime> FindInstalledRuntime() {
    for (const std::wstring_view channel : Channels) {
        for (const HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
            const std::wstring folder = InstalledFolder(root, channel);
            const std::wstring_view name = std::wstring_view(folder).substr(folder.find_last_of(L'\\') + 1);
            const auto version = ParseVersion(name);
            if (!version || *version < MinimumVersion) {
                continue;
            }
            std::wstring library = ClientLibraryIn(folder);
            if (GetFileAttributesW(library.c_str()) != INVALID_FILE_ATTRIBUTES) {
                return Runtime{RuntimeType::Installed, std::move(library)};
            }
        }
    }
    return std::nullopt;
}

// A failure that waits for the message loop of its thread.
struct PendingFailure {
    UINT_PTR timer = 0;
    ComPtr<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler> handler;
    HRESULT result = S_OK;
};
thread_local std::vector<PendingFailure> pendingFailures;

void CALLBACK DeliverFailure(HWND, UINT, UINT_PTR timer, DWORD) noexcept {
    KillTimer(nullptr, timer);
    for (auto failure = pendingFailures.begin(); failure != pendingFailures.end(); ++failure) {
        if (failure->timer == timer) {
            const PendingFailure delivered = std::move(*failure);
            pendingFailures.erase(failure);
            (void)delivered.handler->Invoke(delivered.result, nullptr); // The handler's own result has no taker.
            return;
        }
    }
}

HRESULT FailFromMessageLoop(HRESULT result, ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
    pendingFailures.push_back({0, ComPtr(handler), result});
    const UINT_PTR timer = SetTimer(nullptr, 0, USER_TIMER_MINIMUM, DeliverFailure);
    if (timer == 0) {
        const HRESULT timerResult = LastErrorResult();
        pendingFailures.pop_back();
        return timerResult;
    }
    pendingFailures.back().timer = timer;
    return S_OK;
}

HRESULT CreateEnvironmentWith(const Runtime& runtime, PCWSTR userDataFolder, IUnknown* options,
                              ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
    // Never unloaded: the objects that it hands out live in it.
    const HMODULE library = LoadLibraryW(runtime.clientLibrary.c_str());
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
        const auto folderOverride = ReadEnvironmentVariable(L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER");
        const auto dataOverride = ReadEnvironmentVariable(L"WEBVIEW2_USER_DATA_FOLDER");
        const PCWSTR dataFolder = dataOverride ? dataOverride->c_str() : userDataFolder;
        const std::wstring fixedFolder =
            folderOverride.value_or(browserExecutableFolder != nullptr ? browserExecutableFolder : L"");
        const std::optional<Runtime> runtime =
            fixedFolder.empty() ? FindInstalledRuntime()
                                : Runtime{RuntimeType::FixedVersion, ClientLibraryIn(ResolveFolder(fixedFolder))};
        if (!runtime) {
            return FailFromMessageLoop(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), environmentCreatedHandler);
        }
        return CreateEnvironmentWith(*runtime, dataFolder, options, environmentCreatedHandler);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_FAIL;
    }
}
