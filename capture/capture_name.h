// The name of a capture file. Pure: no Windows calls.
#pragma once

#include <string>
#include <string_view>

namespace receiver {

// Local time.
struct CaptureTime {
    unsigned year = 0;
    unsigned month = 0; // 1 to 12
    unsigned day = 0; // 1 to 31
    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;
    unsigned millisecond = 0;
};

// "Vistel-YYYYMMDD-HHMMSS-mmm." and the extension, which is given without its dot.
[[nodiscard]] std::wstring CaptureFileName(const CaptureTime& time, std::wstring_view extension);

} // namespace receiver
