#include "fuzz/support/input_text.h"

namespace receiver {

std::wstring ToUnits(std::string_view bytes) {
    const auto byteAt = [&](std::size_t i) -> unsigned {
        return i < bytes.size() ? static_cast<std::uint8_t>(bytes[i]) : 0U;
    };
    const auto continues = [&](std::size_t i) { return (byteAt(i) & 0xC0) == 0x80; };
    std::wstring units;
    std::size_t i = 0;
    while (i < bytes.size()) {
        const unsigned first = byteAt(i);
        unsigned unit = first;
        std::size_t length = 1;
        if ((first & 0xE0) == 0xC0 && continues(i + 1)) {
            unit = (first & 0x1F) << 6 | (byteAt(i + 1) & 0x3F);
            length = 2;
        } else if ((first & 0xF0) == 0xE0 && continues(i + 1) && continues(i + 2)) {
            unit = (first & 0x0F) << 12 | (byteAt(i + 1) & 0x3F) << 6 | (byteAt(i + 2) & 0x3F);
            length = 3;
        }
        units += static_cast<wchar_t>(unit);
        i += length;
    }
    return units;
}

std::vector<std::string_view> SplitLines(std::string_view bytes) {
    std::vector<std::string_view> lines;
    for (std::size_t end = bytes.find('\n'); end != std::string_view::npos; end = bytes.find('\n')) {
        lines.push_back(bytes.substr(0, end));
        bytes.remove_prefix(end + 1);
    }
    lines.push_back(bytes);
    return lines;
}

std::vector<std::uint64_t> NumbersIn(std::string_view text) {
    const auto isDigit = [](char character) { return character >= '0' && character <= '9'; };
    std::vector<std::uint64_t> numbers;
    bool inside = false;
    for (const char character : text) {
        if (isDigit(character)) {
            if (!inside) {
                numbers.push_back(0);
            }
            numbers.back() = numbers.back() * 10 + static_cast<std::uint64_t>(character - '0');
        }
        inside = isDigit(character);
    }
    return numbers;
}

std::uint32_t Hash(std::string_view bytes) {
    std::uint64_t hash = 1;
    for (const char byte : bytes) {
        hash = (hash + static_cast<std::uint8_t>(byte)) * 6364136223846793005U + 1442695040888963407U;
    }
    return static_cast<std::uint32_t>(hash >> 32);
}

} // namespace receiver
