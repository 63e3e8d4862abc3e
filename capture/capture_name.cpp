#include "capture/capture_name.h"

#include <array>
#include <cstdio>
#include <string>

namespace receiver {

std::wstring CaptureFileName(const CaptureTime& time, std::wstring_view extension) {
    std::array<char, 96> stamp{};
    (void)std::snprintf(stamp.data(), stamp.size(), "Vistel-%04u%02u%02u-%02u%02u%02u-%03u.", time.year, time.month,
                        time.day, time.hour, time.minute, time.second, time.millisecond);
    const std::string_view text = stamp.data();
    return std::wstring(text.begin(), text.end()).append(extension);
}

} // namespace receiver
