#include "app/log_line.h"

#include <array>
#include <cstdio>

namespace receiver {
namespace {

bool IsHighSurrogate(wchar_t unit) noexcept { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(wchar_t unit) noexcept { return unit >= 0xDC00 && unit <= 0xDFFF; }

void AppendNarrow(std::wstring_view text, std::string& line) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool pair = i + 1 < text.size() && IsHighSurrogate(text[i]) && IsLowSurrogate(text[i + 1]);
        line += text[i] >= L' ' && text[i] <= 0xFF ? static_cast<char>(text[i]) : '?';
        if (pair) {
            ++i; // A surrogate pair is one character.
        }
    }
}

} // namespace

std::string FormatLogLine(const TimeOfDay& time, std::wstring_view message, HRESULT result) {
    std::array<char, 32> text{};
    (void)std::snprintf(text.data(), text.size(), "%02u:%02u:%02u  ", time.hour, time.minute, time.second);
    std::string line = text.data();
    AppendNarrow(message, line);
    if (FAILED(result)) {
        (void)std::snprintf(text.data(), text.size(), " (HRESULT 0x%08X)", static_cast<unsigned>(result));
        line += text.data();
    }
    return line;
}

} // namespace receiver
