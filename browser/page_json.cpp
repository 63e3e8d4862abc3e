#include "browser/page_json.h"

#include "app/client_version.h"

#include <cstdint>

namespace receiver {
namespace {

void AppendEscapedPath(std::wstring_view path, std::wstring& json) {
    for (const wchar_t character : path) {
        if (character == L'\\' || character == L'"') {
            json += L'\\';
        }
        json += character;
    }
}

std::wstring_view BooleanJson(bool value) noexcept { return value ? L"true" : L"false"; }

} // namespace

std::wstring MediaResultJson(std::wstring_view action, HRESULT code, std::wstring_view path) {
    std::wstring json = L"{\"type\":\"media-result\",\"action\":\"";
    json += action;
    json += L"\",\"success\":";
    json += BooleanJson(SUCCEEDED(code));
    json += L",\"path\":\"";
    AppendEscapedPath(path, json);
    json += L"\",\"error\":";
    json += std::to_wstring(static_cast<std::uint32_t>(code));
    json += L'}';
    return json;
}

std::wstring SlotJson(unsigned slot) { return L"{\"slot\":" + std::to_wstring(slot) + L'}'; }

std::wstring DiagnosticsJson(const OsVersion& version, bool virtualCameraRegistered) {
    constexpr std::uint32_t SupportedMajor = 10;
    constexpr std::uint32_t SupportedBuild = 22000;
    const bool supported = version.major >= SupportedMajor && version.build >= SupportedBuild;
    const std::wstring build = std::to_wstring(version.build);
    std::wstring json = L"{\"type\":\"diagnostics\",\"diagnostics\":{\"windowsVersion\":\"";
    json += std::to_wstring(version.major) + L'.' + std::to_wstring(version.minor) + L'.' + build;
    json += L"\",\"buildNumber\":" + build;
    json += L",\"architecture\":\"x64\",\"osSupported\":";
    json += BooleanJson(supported);
    json += L",\"webView2Ready\":true,\"virtualCameraRegistered\":"; // It is posted through a working browser.
    json += BooleanJson(virtualCameraRegistered);
    json += L",\"appVersion\":\"";
    json += ClientVersion;
    json += L"\"}}";
    return json;
}

} // namespace receiver
