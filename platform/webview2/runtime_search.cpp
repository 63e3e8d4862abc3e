#include "platform/webview2/runtime_search.h"

#include "platform/folder.h"
#include "platform/handles.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <cstddef>
#include <cstring>
#include <cwchar>
#include <vector>

namespace receiver {
namespace {

struct Channel {
    std::wstring_view key;
    std::wstring_view name;
};
// The runtime's channels, the most stable first. A list of channels holds their positions here.
constexpr std::array<Channel, 5> Channels = {{
    {L"{F3017226-FE2A-4295-8BDF-00C3A9A7E4C5}", L"stable"},
    {L"{2CD8A007-E189-409D-A2C8-9AF4EF3C72AA}", L"beta"},
    {L"{0D50BFEC-CD6A-4F9A-964C-C7416E3ACB10}", L"dev"},
    {L"{65C35B14-6C1D-4122-AC46-7148CC9D6497}", L"canary"},
    {L"{BE59E8FD-089A-411B-A3B0-051D9E417818}", L"internal"},
}};

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

std::optional<std::wstring> ReadOverride(const Override& override, const std::wstring& programPath) {
    if (auto value = ReadVariable(override.variable)) {
        return value;
    }
    const std::wstring key = std::wstring(L"Software\\Policies\\Microsoft\\Edge\\WebView2\\") + override.policy;
    const wchar_t* const programName = programPath.c_str() + programPath.rfind(L'\\') + 1;
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
std::vector<Channel> ChannelsToSearch(const std::wstring& programPath) {
    const std::wstring list = ReadOverride(ReleaseChannels, programPath).value_or(L"");
    std::bitset<Channels.size()> listed(list.empty() ? ~0ULL : 0);
    for (std::wstring_view item : Split(list, L',')) {
        item.remove_prefix(std::min(item.find_first_not_of(L' '), item.size()));
        item = item.substr(0, item.find_last_not_of(L' ') + 1);
        if (!item.empty()) {
            const std::size_t channel = ParseNumber(item).value_or(0); // What is no channel means the stable one.
            listed.set(channel < Channels.size() ? channel : 0);
        }
    }
    const std::wstring preference = ReadOverride(Preference, programPath).value_or(L"");
    const std::wstring kind = ReadOverride(SearchKind, programPath).value_or(preference);
    const bool leastStableFirst = std::wcstol(kind.c_str(), nullptr, 10) == 1;
    std::vector<Channel> channels;
    for (std::size_t i = 0; i < Channels.size(); ++i) {
        if (listed.test(i)) {
            channels.insert(leastStableFirst ? channels.begin() : channels.end(), Channels[i]);
        }
    }
    return channels;
}

// The path from its drive or server on. Of a relative one, which a registry value may hold, the library's dependencies
// would be searched for in other folders.
std::wstring FullPath(const std::wstring& path) {
    std::wstring full(MaxTextLength + 1, L'\0');
    full.resize(GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
    return full;
}

// The runtime of a version folder, if this process can read its client library.
std::optional<Runtime> RuntimeIn(RuntimeType type, std::wstring_view channel, const std::wstring& versionFolder) {
    const std::wstring library = JoinPath(versionFolder, L"EBWebView\\x64\\EmbeddedBrowserWebView.dll");
    const UniqueFile file(CreateFileW(library.c_str(), GENERIC_READ | GENERIC_EXECUTE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    return file ? std::optional(Runtime{type, channel, versionFolder, FullPath(library)}) : std::nullopt;
}

// A folder that does not begin with a drive and a backslash, or with two backslashes, counts from the program's own.
std::wstring ResolveFolder(const std::wstring& folder, const std::wstring& programPath) {
    const bool isAbsolute = folder.starts_with(L"\\\\") || folder.compare(1, 2, L":\\") == 0;
    return isAbsolute ? folder : JoinPath(programPath.substr(0, programPath.rfind(L'\\')), folder);
}

} // namespace

std::wstring ProgramPath() {
    std::wstring path(MaxTextLength + 1, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

std::optional<Runtime> FindRuntime(const std::wstring& programPath, const std::wstring& callersFolder) {
    const std::wstring fixedFolder = ReadOverride(BrowserFolder, programPath).value_or(callersFolder);
    if (!fixedFolder.empty()) {
        return RuntimeIn(RuntimeType::FixedVersion, {}, ResolveFolder(fixedFolder, programPath));
    }
    for (const Channel& channel : ChannelsToSearch(programPath)) {
        const std::wstring key = L"Software\\Microsoft\\EdgeUpdate\\ClientState\\" + std::wstring(channel.key);
        for (const HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
            const std::wstring folder =
                ReadRegistry(root, key, L"EBWebView", RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND)
                    .value_or(L"");
            const std::size_t separator = folder.rfind(L'\\');
            if (separator != std::wstring::npos && IsUsableVersion(folder.substr(separator + 1))) {
                if (auto runtime = RuntimeIn(RuntimeType::Installed, channel.name, folder)) {
                    return runtime;
                }
            }
        }
    }
    return std::nullopt;
}

std::optional<std::wstring> FindUserDataOverride(const std::wstring& programPath) {
    return ReadOverride(UserDataFolder, programPath);
}

} // namespace receiver
