// Reads the bytes that a fuzzer generates as text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {

// UTF-16 code units, one in each wchar_t. The bytes are decoded as UTF-8, so that corpora are readable; a byte that
// starts no sequence becomes one unit, and unpaired surrogates are accepted.
[[nodiscard]] std::wstring ToUnits(std::string_view bytes);

// The parts between line feeds.
[[nodiscard]] std::vector<std::string_view> SplitLines(std::string_view bytes);

// All decimal numbers in a text in their order; numbers that are too large wrap around.
[[nodiscard]] std::vector<std::uint64_t> NumbersIn(std::string_view text);

// Chooses the inputs that get a slow check: always the same ones.
[[nodiscard]] std::uint32_t Hash(std::string_view bytes);

[[nodiscard]] inline std::string_view AsText(const std::uint8_t* data, std::size_t size) {
    return size == 0 ? std::string_view() : std::string_view(reinterpret_cast<const char*>(data), size);
}

} // namespace receiver
