// One JSON object on one line, built field by field; and the conversions between UTF-8 and UTF-16.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace rig {

[[nodiscard]] std::wstring FromUtf8(std::string_view text);
[[nodiscard]] std::string ToUtf8(std::wstring_view text);

class JsonLine {
public:
    JsonLine& Number(std::string_view name, std::int64_t value);
    JsonLine& Boolean(std::string_view name, bool value);
    JsonLine& Text(std::string_view name, std::wstring_view value);
    // `json` is put in as it is.
    JsonLine& Raw(std::string_view name, std::string_view json);
    [[nodiscard]] std::string Take() { return std::move(text) + '}'; }

private:
    std::string text = "{";
};

} // namespace rig
