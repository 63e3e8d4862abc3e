// Texts out of the bytes that a fuzzer makes up.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {

// UTF-16 code units, one in each wchar_t. UTF-8 reads as what it says, so that corpora can be read; a byte that starts
// no sequence stands for itself, and unpaired surrogates pass.
[[nodiscard]] std::wstring ToUnits(std::string_view bytes);

// The parts between line feeds.
[[nodiscard]] std::vector<std::string_view> SplitLines(std::string_view bytes);

// All decimal numbers in a text in their order; those that are too large wrap around.
[[nodiscard]] std::vector<std::uint64_t> NumbersIn(std::string_view text);

[[nodiscard]] inline std::string_view AsText(const std::uint8_t* data, std::size_t size) {
    return size == 0 ? std::string_view() : std::string_view(reinterpret_cast<const char*>(data), size);
}

} // namespace receiver
