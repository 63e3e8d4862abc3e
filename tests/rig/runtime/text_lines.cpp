#include "text_lines.h"

#include <windows.h>

#include <charconv>

namespace rig {
namespace {

constexpr std::size_t SurrogateDigits = 4;
constexpr std::size_t SurrogateBytes = 3;

// UTF-8 as it would be if it had half surrogate pairs.
void AppendSurrogate(std::string_view digits, std::string& text) {
    unsigned unit = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), unit, 16);
    text += static_cast<char>(0xE0 | (unit >> 12));
    text += static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
    text += static_cast<char>(0x80 | (unit & 0x3F));
}

std::size_t FindSurrogate(std::string_view text) {
    for (std::size_t at = text.find('\xED'); at != std::string_view::npos; at = text.find('\xED', at + 1)) {
        if (at + SurrogateBytes <= text.size() && static_cast<unsigned char>(text[at + 1]) >= 0xA0) {
            return at;
        }
    }
    return std::string_view::npos;
}

void AppendWide(std::string_view text, std::wstring& wide) {
    if (text.empty()) {
        return; // Often, between one half of a pair and the next.
    }
    const int bytes = static_cast<int>(text.size());
    const std::size_t before = wide.size();
    const int units = MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, nullptr, 0);
    wide.resize(before + static_cast<std::size_t>(units));
    MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, wide.data() + before, units);
}

} // namespace

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
            if (line[i] == 'u') {
                AppendSurrogate(line.substr(i + 1, SurrogateDigits), fields.back());
                i += SurrogateDigits;
                continue;
            }
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
    std::wstring result;
    for (;;) {
        const std::size_t at = FindSurrogate(text);
        AppendWide(text.substr(0, at), result);
        if (at == std::string_view::npos) {
            return result;
        }
        const auto low = [&](std::size_t byte) { return static_cast<unsigned char>(text[at + byte]) & 0x3Fu; };
        result += static_cast<wchar_t>(0xD000 | (low(1) << 6) | low(2));
        text.remove_prefix(at + SurrogateBytes);
    }
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
