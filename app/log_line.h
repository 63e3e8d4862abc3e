// The text of one line of the receiver's log. Pure: no Windows calls.
#pragma once

#include "platform/hresult.h"

#include <string>
#include <string_view>

namespace receiver {

struct TimeOfDay {
    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;
};

// "HH:MM:SS  message", followed by " (HRESULT 0xXXXXXXXX)" when `result` is a failure. No line end.
// Each character from U+0020 to U+00FF becomes the byte of its number, any other one "?": no message makes two lines.
[[nodiscard]] std::string FormatLogLine(const TimeOfDay& time, std::wstring_view message, HRESULT result);

} // namespace receiver
