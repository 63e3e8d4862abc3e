#include "frames/frame_message.h"

#include <algorithm>
#include <cstddef>
#include <limits>

namespace receiver {
namespace {

constexpr std::uint32_t MaxCodedWidth = 4096;
constexpr std::uint32_t MaxCodedHeight = 2160;
constexpr std::uint32_t MaxDisplaySize = 4096;

// Reads a message's fields in order. Each function reads one field and the separator after it, and returns false when
// the text does not continue with such a field.
class FieldReader {
public:
    explicit FieldReader(std::wstring_view text) noexcept : rest(text) {}

    [[nodiscard]] bool AtEnd() const noexcept { return rest.empty(); }

    bool ReadText(std::wstring_view& field) noexcept {
        const std::size_t size = std::min(rest.find(L':'), rest.size());
        field = rest.substr(0, size);
        rest.remove_prefix(size);
        return Skip(L':');
    }

    // Decimal digits only: no sign, no blank, no prefix, at least one digit, no overflow.
    bool ReadNumber(std::uint64_t& value) noexcept {
        constexpr std::uint64_t Max = std::numeric_limits<std::uint64_t>::max();
        std::size_t size = 0;
        value = 0;
        for (; size < rest.size() && rest[size] >= L'0' && rest[size] <= L'9'; ++size) {
            const auto digit = static_cast<std::uint64_t>(rest[size] - L'0');
            if (value > Max / 10 || value * 10 > Max - digit) {
                return false;
            }
            value = value * 10 + digit;
        }
        rest.remove_prefix(size);
        return size > 0;
    }

    bool Skip(wchar_t separator) noexcept {
        if (rest.empty() || rest.front() != separator) {
            return false;
        }
        rest.remove_prefix(1);
        return true;
    }

    bool ReadSize(std::uint32_t max, std::uint32_t& size) noexcept {
        std::uint64_t value = 0;
        if (!ReadNumber(value) || value < 1 || value > max) {
            return false;
        }
        size = static_cast<std::uint32_t>(value);
        return Skip(L':');
    }

    bool ReadEvenSize(std::uint32_t max, std::uint32_t& size) noexcept { return ReadSize(max, size) && size % 2 == 0; }

    bool ReadRotation(std::uint32_t& rotation) noexcept {
        std::uint64_t value = 0;
        if (!ReadNumber(value) || value > 270 || value % 90 != 0) {
            return false;
        }
        rotation = static_cast<std::uint32_t>(value);
        return Skip(L':');
    }

    // Exactly one digit, 0 or 1.
    bool ReadFlag(bool& flag) noexcept {
        flag = Skip(L'1');
        return (flag || Skip(L'0')) && Skip(L':');
    }

    bool ReadPlane(PlaneLayout& plane) noexcept {
        return ReadNumber(plane.offset) && plane.offset < SlotSize && Skip(L',') && ReadNumber(plane.stride) &&
               plane.stride > 0 && (AtEnd() || Skip(L';'));
    }

private:
    std::wstring_view rest; // of the message: what has not been read
};

// One ";" may end the list; an empty list or an empty item fails.
bool ReadPlanes(FieldReader& fields, FrameDescriptor& descriptor) noexcept {
    do {
        PlaneLayout plane;
        if (!fields.ReadPlane(plane)) {
            return false;
        }
        descriptor.AddPlane(plane);
    } while (!fields.AtEnd());
    return true;
}

} // namespace

bool ParseFrameDescriptor(std::wstring_view text, FrameDescriptor& descriptor) noexcept {
    descriptor = {};
    FieldReader fields(text);
    return fields.ReadText(descriptor.format) && fields.ReadEvenSize(MaxCodedWidth, descriptor.codedWidth) &&
           fields.ReadEvenSize(MaxCodedHeight, descriptor.codedHeight) && fields.ReadFlag(descriptor.flipA) &&
           fields.ReadRotation(descriptor.rotation) && fields.ReadFlag(descriptor.flipB) &&
           fields.ReadSize(MaxDisplaySize, descriptor.displayWidth) &&
           fields.ReadSize(MaxDisplaySize, descriptor.displayHeight) && ReadPlanes(fields, descriptor);
}

} // namespace receiver
