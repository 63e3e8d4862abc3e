#include "browser/page_json.h"

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

} // namespace

std::wstring MediaResultJson(std::wstring_view action, HRESULT code, std::wstring_view path) {
    std::wstring json = L"{\"type\":\"media-result\",\"action\":\"";
    json += action;
    json += L"\",\"success\":";
    json += SUCCEEDED(code) ? L"true" : L"false";
    json += L",\"path\":\"";
    AppendEscapedPath(path, json);
    json += L"\",\"error\":";
    json += std::to_wstring(static_cast<std::uint32_t>(code));
    json += L'}';
    return json;
}

std::wstring SlotJson(unsigned slot) { return L"{\"slot\":" + std::to_wstring(slot) + L'}'; }

} // namespace receiver
