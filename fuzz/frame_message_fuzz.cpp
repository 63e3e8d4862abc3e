// Compares the frame message parser with a simple one that splits the text first and checks the parts afterwards.
// Input: the text after the slot digit.

#include "frames/frame_message.h"
#include "fuzz/support/input_text.h"
#include "fuzz/support/require.h"

#include <charconv>
#include <optional>

namespace receiver {
namespace {

std::vector<std::wstring> Split(const std::wstring& text, wchar_t separator) {
    std::vector<std::wstring> parts(1);
    for (const wchar_t character : text) {
        if (character == separator) {
            parts.emplace_back();
        } else {
            parts.back() += character;
        }
    }
    return parts;
}

std::optional<std::uint64_t> Number(const std::wstring& text) {
    std::string digits;
    for (const wchar_t character : text) {
        digits += character < 0x80 ? static_cast<char>(character) : '?';
    }
    std::uint64_t value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value);
    return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

std::optional<FrameDescriptor> PlainParse(const std::wstring& text) {
    constexpr std::size_t PlanesField = 8; // The rest of the text, colons included.
    const std::vector<std::wstring> fields = Split(text, L':');
    if (fields.size() < PlanesField + 1) {
        return std::nullopt;
    }
    std::wstring planes = fields[PlanesField];
    for (std::size_t i = PlanesField + 1; i < fields.size(); ++i) {
        planes += L':' + fields[i];
    }
    FrameDescriptor frame;
    frame.format = std::wstring_view(text).substr(0, fields[0].size());
    const auto size = [&](std::size_t field, std::uint64_t max, bool even, std::uint32_t& result) {
        const auto value = Number(fields[field]).value_or(0);
        result = static_cast<std::uint32_t>(value);
        return value >= 1 && value <= max && (!even || value % 2 == 0);
    };
    const auto rotation = Number(fields[4]);
    if (!size(1, 4096, true, frame.codedWidth) || !size(2, 2160, true, frame.codedHeight) ||
        !size(6, 4096, false, frame.displayWidth) || !size(7, 4096, false, frame.displayHeight) ||
        (fields[3] != L"0" && fields[3] != L"1") || (fields[5] != L"0" && fields[5] != L"1") ||
        (rotation != 0U && rotation != 90U && rotation != 180U && rotation != 270U)) {
        return std::nullopt;
    }
    frame.rotation = static_cast<std::uint32_t>(*rotation);
    frame.flipA = fields[3] == L"1";
    frame.flipB = fields[5] == L"1";

    std::vector<std::wstring> items = Split(planes, L';');
    if (items.size() > 1 && items.back().empty()) {
        items.pop_back();
    }
    for (const std::wstring& item : items) {
        const std::vector<std::wstring> numbers = Split(item, L',');
        const auto offset = Number(numbers[0]);
        const auto stride = numbers.size() == 2 ? Number(numbers[1]) : std::nullopt;
        if (!offset || !stride || *offset >= 8294400 || *stride == 0) {
            return std::nullopt;
        }
        frame.AddPlane({*offset, *stride});
    }
    return frame;
}

bool Same(const FrameDescriptor& a, const FrameDescriptor& b) {
    return a.format == b.format && a.codedWidth == b.codedWidth && a.codedHeight == b.codedHeight &&
           a.flipA == b.flipA && a.rotation == b.rotation && a.flipB == b.flipB && a.displayWidth == b.displayWidth &&
           a.displayHeight == b.displayHeight && a.planeCount == b.planeCount && a.planes == b.planes;
}

} // namespace
} // namespace receiver

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace receiver;
    const std::wstring text = ToUnits(AsText(data, size));
    FrameDescriptor frame;
    frame.AddPlane({1, 1}); // from the previous frame
    const bool accepted = ParseFrameDescriptor(text, frame);
    const std::optional<FrameDescriptor> expected = PlainParse(text);
    Require(accepted == expected.has_value(), "exactly the well-formed texts are accepted");
    Require(!accepted || Same(frame, *expected), "the descriptor has the values of the text");
    return 0;
}
