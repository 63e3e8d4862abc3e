#include "frames/frame_message.h"

#include <array>
#include <cstddef>
#include <limits>
#include <optional>

namespace receiver {
namespace {

constexpr std::uint32_t MaxCodedWidth = 4096;
constexpr std::uint32_t MaxCodedHeight = 2160;
constexpr std::uint32_t MaxDisplaySize = 4096;

// Decimal digits only: no sign, no blank, no prefix, at least one digit, no overflow.
std::optional<std::uint64_t> ParseDecimal(std::wstring_view text) {
    if (text.empty()) {
        return std::nullopt;
    }
    constexpr std::uint64_t Max = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t value = 0;
    for (const wchar_t character : text) {
        if (character < L'0' || character > L'9') {
            return std::nullopt;
        }
        const auto digit = static_cast<std::uint64_t>(character - L'0');
        if (value > (Max - digit) / 10) {
            return std::nullopt;
        }
        value = value * 10 + digit;
    }
    return value;
}

bool ParseSize(std::wstring_view text, std::uint32_t max, std::uint32_t& size) {
    const std::optional<std::uint64_t> value = ParseDecimal(text);
    if (!value || *value < 1 || *value > max) {
        return false;
    }
    size = static_cast<std::uint32_t>(*value);
    return true;
}

bool ParseEvenSize(std::wstring_view text, std::uint32_t max, std::uint32_t& size) {
    return ParseSize(text, max, size) && size % 2 == 0;
}

bool ParseRotation(std::wstring_view text, std::uint32_t& rotation) {
    const std::optional<std::uint64_t> value = ParseDecimal(text);
    if (!value || *value > 270 || *value % 90 != 0) {
        return false;
    }
    rotation = static_cast<std::uint32_t>(*value);
    return true;
}

bool ParseFlag(std::wstring_view text, bool& flag) {
    flag = text == L"1";
    return flag || text == L"0";
}

bool ParsePlane(std::wstring_view text, PlaneLayout& plane) {
    const std::size_t comma = text.find(L',');
    if (comma == std::wstring_view::npos) {
        return false;
    }
    const std::optional<std::uint64_t> offset = ParseDecimal(text.substr(0, comma));
    const std::optional<std::uint64_t> stride = ParseDecimal(text.substr(comma + 1));
    if (!offset || !stride || *stride == 0 || *offset >= SlotSize) {
        return false;
    }
    plane = {*offset, *stride};
    return true;
}

// One ";" may end the list; an empty list or an empty item fails.
bool ParsePlanes(std::wstring_view list, std::vector<PlaneLayout>& planes) {
    planes.clear();
    do {
        const std::size_t end = list.find(L';');
        PlaneLayout plane;
        if (!ParsePlane(list.substr(0, end), plane)) {
            return false;
        }
        planes.push_back(plane);
        list = end == std::wstring_view::npos ? std::wstring_view{} : list.substr(end + 1);
    } while (!list.empty());
    return true;
}

} // namespace

bool ParseFrameDescriptor(std::wstring_view text, FrameDescriptor& descriptor) {
    std::array<std::wstring_view, 8> fields;
    for (std::wstring_view& field : fields) {
        const std::size_t colon = text.find(L':');
        if (colon == std::wstring_view::npos) {
            return false;
        }
        field = text.substr(0, colon);
        text.remove_prefix(colon + 1);
    }
    descriptor.format = fields[0];
    return ParseEvenSize(fields[1], MaxCodedWidth, descriptor.codedWidth) &&
           ParseEvenSize(fields[2], MaxCodedHeight, descriptor.codedHeight) && ParseFlag(fields[3], descriptor.flipA) &&
           ParseRotation(fields[4], descriptor.rotation) && ParseFlag(fields[5], descriptor.flipB) &&
           ParseSize(fields[6], MaxDisplaySize, descriptor.displayWidth) &&
           ParseSize(fields[7], MaxDisplaySize, descriptor.displayHeight) && ParsePlanes(text, descriptor.planes);
}

} // namespace receiver
