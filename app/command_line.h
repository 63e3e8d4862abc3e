// The command line: which page the browser shows. Pure: no Windows calls.
#pragma once

#include <string>
#include <string_view>

namespace receiver {

// The page address for `commandLine`, the text after the program name. Empty means the built-in page.
//   --embedded        the built-in page
//   --url=ADDRESS     that address; one pair of double quotes around it is removed
//   anything else     `defaultAddress`
// Nothing is trimmed or split: the text is one token, compared case-sensitively.
[[nodiscard]] std::wstring ChoosePageAddress(std::wstring_view commandLine, std::wstring_view defaultAddress);

} // namespace receiver
