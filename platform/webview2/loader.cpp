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
#include "platform/folder.h"
#include "platform/handles.h"
#include "platform/hresult.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <cstring>
#include <cwchar>
#include <map>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace receiver {
namespace {

using CompletedHandler = ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler;

// The runtime's channels, the most stable first. A list of channels holds their positions here.
constexpr std::array<std::wstring_view, 5> Channels = {
    L"{F3017226-FE2A-4295-8BDF-00C3A9A7E4C5}", // stable
    L"{2CD8A007-E189-409D-A2C8-9AF4EF3C72AA}", // beta
    L"{0D50BFEC-CD6A-4F9A-964C-C7416E3ACB10}", // dev
    L"{65C35B14-6C1D-4122-AC46-7148CC9D6497}", // canary
    L"{BE59E8FD-089A-411B-A3B0-051D9E417818}", // internal
};
constexpr std::size_t MaxTextLength = 32767; // of a path and of an environment variable, without the terminator

// A decision of the user or of an administrator: the variable counts before the policy.
struct Override {
    const wchar_t* variable;
    const wchar_t* policy;
    bool hasPolicyForAll = true; // whether the policy may name all programs with "*"
    DWORD policyTypes = RRF_RT_REG_SZ;
};
constexpr Override BrowserFolder = {L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", L"BrowserExecutableFolder"};
constexpr Override UserDataFolder = {L"WEBVIEW2_USER_DATA_FOLDER", L"UserDataFolder", false};
constexpr Override ReleaseChannels = {L"WEBVIEW2_RELEASE_CHANNELS", L"ReleaseChannels"};
constexpr DWORD TextOrNumber = RRF_RT_REG_SZ | RRF_RT_REG_DWORD;
constexpr Override SearchKind = {L"WEBVIEW2_CHANNEL_SEARCH_KIND", L"ChannelSearchKind", true, TextOrNumber};
constexpr Override Preference = {L"WEBVIEW2_RELEASE_CHANNEL_PREFERENCE", L"ReleaseChannelPreference", true,
                                 TextOrNumber};

enum class RuntimeType : int { Installed = 0, FixedVersion = 1 };

struct Runtime {
    RuntimeType type = RuntimeType::Installed;
    std::wstring clientLibrary; // full path
};

using CreateEnvironment = HRESULT(STDMETHODCALLTYPE*)(bool joinRunningVersion, RuntimeType type, PCWSTR userDataFolder,
                                                      IUnknown* options, CompletedHandler* handler);

std::wstring ProgramPath() {
    std::wstring path(MaxTextLength + 1, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

std::optional<std::wstring> ReadVariable(const wchar_t* name) {
    std::wstring value(MaxTextLength + 1, L'\0');
    SetLastError(ERROR_SUCCESS);
    value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    if (value.empty() && GetLastError() == ERROR_ENVVAR_NOT_FOUND) {
        return std::nullopt;
    }
    return value;
}

// A value of one of the types in `flags` (RRF_...) as a text; a number in decimal digits.
std::optional<std::wstring> ReadRegistry(HKEY root, const std::wstring& key, const wchar_t* name, DWORD flags) {
    flags |= RRF_SUBKEY_WOW6432KEY; // where 32-bit updaters write; policies are the same in both views
    DWORD type = REG_NONE;
    std::wstring text(MaxTextLength + 1, L'\0');
    auto bytes = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    if (RegGetValueW(root, key.c_str(), name, flags, &type, text.data(), &bytes) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    if (type == REG_DWORD) {
        DWORD number = 0;
        std::memcpy(&number, text.data(), sizeof(number));
        return std::to_wstring(number);
    }
    text.resize(std::wcslen(text.c_str()));
    return text;
}

std::optional<std::wstring> ReadOverride(const Override& override) {
    if (auto value = ReadVariable(override.variable)) {
        return value;
    }
    const std::wstring key = std::wstring(L"Software\\Policies\\Microsoft\\Edge\\WebView2\\") + override.policy;
    const std::wstring program = ProgramPath();
    const wchar_t* const programName = program.c_str() + program.rfind(L'\\') + 1;
    for (const HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
        for (const wchar_t* const name : {programName, L"*"}) {
            const bool isRead = override.hasPolicyForAll || name == programName;
            if (auto value = isRead ? ReadRegistry(root, key, name, override.policyTypes) : std::nullopt) {
                return value;
            }
        }
    }
    return std::nullopt;
}

std::vector<std::wstring_view> Split(std::wstring_view text, wchar_t separator) {
    std::vector<std::wstring_view> parts;
    for (std::size_t end = 0; (end = text.find(separator)) != std::wstring_view::npos; text.remove_prefix(end + 1)) {
        parts.push_back(text.substr(0, end));
    }
    parts.push_back(text);
    return parts;
}

std::optional<unsigned long> ParseNumber(std::wstring_view digits) {
    constexpr std::size_t MaxDigits = 9; // Any such number fits.
    unsigned long number = 0;
    for (const wchar_t digit : digits) {
        if (digit < L'0' || digit > L'9') {
            return std::nullopt;
        }
        number = number * 10 + static_cast<unsigned long>(digit - L'0');
    }
    return digits.empty() || digits.size() > MaxDigits ? std::nullopt : std::optional(number);
}

// Four decimal numbers with dots between them.
bool IsUsableVersion(std::wstring_view text) {
    std::vector<unsigned long> version;
    for (const std::wstring_view part : Split(text, L'.')) {
        const auto number = ParseNumber(part);
        if (!number) {
            return false;
        }
        version.push_back(*number);
    }
    const std::vector<unsigned long> least = {86, 0, 616, 0};
    return version.size() == least.size() && version >= least;
}

// The channels to search, in the order of the search.
std::vector<std::wstring_view> ChannelsToSearch() {
    const std::wstring list = ReadOverride(ReleaseChannels).value_or(L"");
    std::bitset<Channels.size()> listed(list.empty() ? ~0ULL : 0);
    for (std::wstring_view item : Split(list, L',')) {
        item.remove_prefix(std::min(item.find_first_not_of(L' '), item.size()));
        item = item.substr(0, item.find_last_not_of(L' ') + 1);
        if (!item.empty()) {
            const std::size_t channel = ParseNumber(item).value_or(0); // What is no channel means the stable one.
            listed.set(channel < Channels.size() ? channel : 0);
        }
    }
    const std::wstring kind = ReadOverride(SearchKind).value_or(ReadOverride(Preference).value_or(L""));
    const bool leastStableFirst = std::wcstol(kind.c_str(), nullptr, 10) == 1;
    std::vector<std::wstring_view> channels;
    for (std::size_t i = 0; i < Channels.size(); ++i) {
        if (listed.test(i)) {
            channels.insert(leastStableFirst ? channels.begin() : channels.end(), Channels[i]);
        }
    }
    return channels;
}

// The client library of a version folder, if this process can read it.
std::optional<Runtime> RuntimeIn(RuntimeType type, const std::wstring& versionFolder) {
    std::wstring library = JoinPath(versionFolder, L"EBWebView\\x64\\EmbeddedBrowserWebView.dll");
    const UniqueFile file(CreateFileW(library.c_str(), GENERIC_READ | GENERIC_EXECUTE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    return file ? std::optional(Runtime{type, std::move(library)}) : std::nullopt;
}

// A folder that does not begin with a drive and a backslash, or with two backslashes, counts from the program's own.
std::wstring ResolveFolder(const std::wstring& folder) {
    const bool isAbsolute = folder.starts_with(L"\\\\") || folder.compare(1, 2, L":\\") == 0;
    const std::wstring program = ProgramPath();
    return isAbsolute ? folder : JoinPath(program.substr(0, program.rfind(L'\\')), folder);
}

std::optional<Runtime> FindRuntime(const std::wstring& callersFolder) {
    const std::wstring fixedFolder = ReadOverride(BrowserFolder).value_or(callersFolder);
    if (!fixedFolder.empty()) {
        return RuntimeIn(RuntimeType::FixedVersion, ResolveFolder(fixedFolder));
    }
    for (const std::wstring_view channel : ChannelsToSearch()) {
        const std::wstring key = L"Software\\Microsoft\\EdgeUpdate\\ClientState\\" + std::wstring(channel);
        for (const HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
            const std::wstring folder =
                ReadRegistry(root, key, L"EBWebView", RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND)
                    .value_or(L"");
            const std::size_t separator = folder.rfind(L'\\');
            if (separator != std::wstring::npos && IsUsableVersion(folder.substr(separator + 1))) {
                if (auto runtime = RuntimeIn(RuntimeType::Installed, folder)) {
                    return runtime;
                }
            }
        }
    }
    return std::nullopt;
}

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
            const auto dataOverride = ReadOverride(UserDataFolder);
            const auto& dataFolder = dataOverride ? dataOverride : callersDataFolder;
            const auto runtime = FindRuntime(callersFolder);
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
