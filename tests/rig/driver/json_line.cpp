// Builds JSON text; every character that JSON does not take as it is becomes an escape.
#include "tests/rig/driver/json_line.h"

#include <windows.h>

#include <cstdio>

namespace rig {
namespace {

std::string Quoted(std::string_view text) {
    std::string quoted = "\"";
    for (const char character : text) {
        if (character == '"' || character == '\\') {
            quoted += '\\';
            quoted += character;
        } else if (static_cast<unsigned char>(character) < 0x20) {
            char escape[7];
            std::snprintf(escape, sizeof(escape), "\\u%04x", static_cast<unsigned>(character));
            quoted += escape;
        } else {
            quoted += character;
        }
    }
    return quoted + '"';
}

} // namespace

std::wstring FromUtf8(std::string_view text) {
    const int bytes = static_cast<int>(text.size());
    std::wstring wide(static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, nullptr, 0)), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, wide.data(), static_cast<int>(wide.size()));
    return wide;
}

std::string ToUtf8(std::wstring_view text) {
    const int units = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), units, narrow.data(), bytes, nullptr, nullptr);
    return narrow;
}

JsonLine& JsonLine::Raw(std::string_view name, std::string_view json) {
    if (text.size() > 1) {
        text += ',';
    }
    text += Quoted(name);
    text += ':';
    text += json;
    return *this;
}

JsonLine& JsonLine::Number(std::string_view name, std::int64_t value) { return Raw(name, std::to_string(value)); }

JsonLine& JsonLine::Boolean(std::string_view name, bool value) { return Raw(name, value ? "true" : "false"); }

JsonLine& JsonLine::Text(std::string_view name, std::wstring_view value) { return Raw(name, Quoted(ToUtf8(value))); }

} // namespace rig
