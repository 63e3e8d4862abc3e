#include "text_lines.h"

#include <windows.h>

namespace rig {

std::string EncodeLine(std::initializer_list<std::string_view> fields) {
    std::string line;
    for (const std::string_view field : fields) {
        if (!line.empty()) {
            line += '\t';
        }
        for (const char c : field) {
            switch (c) {
            case '\\':
                line += "\\\\";
                break;
            case '\t':
                line += "\\t";
                break;
            case '\n':
                line += "\\n";
                break;
            case '\r':
                line += "\\r";
                break;
            default:
                line += c;
            }
        }
    }
    line += '\n';
    return line;
}

Fields DecodeLine(std::string_view line) {
    Fields fields(1);
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '\t') {
            fields.emplace_back();
        } else if (line[i] == '\\' && i + 1 < line.size()) {
            ++i;
            fields.back() += line[i] == 't' ? '\t' : line[i] == 'n' ? '\n' : line[i] == 'r' ? '\r' : line[i];
        } else {
            fields.back() += line[i];
        }
    }
    return fields;
}

std::string ToUtf8(std::wstring_view text) {
    const int units = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), units, result.data(), bytes, nullptr, nullptr);
    return result;
}

std::wstring ToWide(std::string_view text) {
    const int bytes = static_cast<int>(text.size());
    const int units = MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, nullptr, 0);
    std::wstring result(static_cast<std::size_t>(units), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, result.data(), units);
    return result;
}

std::string HexCode(long result) {
    char digits[9];
    wsprintfA(digits, "%08lx", result);
    return digits;
}

std::wstring EnvironmentValue(const wchar_t* name) {
    std::wstring value(GetEnvironmentVariableW(name, nullptr, 0), L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return value;
}

} // namespace rig
