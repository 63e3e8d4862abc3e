// The text protocol between the runtime and the browser server: one line per event, fields separated by tabs, UTF-8.
// Backslash, tab, line feed and carriage return inside a field are written as \\ \t \n \r.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace rig {

using Fields = std::vector<std::string>;

[[nodiscard]] std::string EncodeLine(std::initializer_list<std::string_view> fields);
[[nodiscard]] Fields DecodeLine(std::string_view line);

[[nodiscard]] std::string ToUtf8(std::wstring_view text);
[[nodiscard]] std::wstring ToWide(std::string_view text);

// The eight hexadecimal digits of an HRESULT.
[[nodiscard]] std::string HexCode(long result);

// A value of the process environment, empty when it is unset.
[[nodiscard]] std::wstring EnvironmentValue(const wchar_t* name);

} // namespace rig
