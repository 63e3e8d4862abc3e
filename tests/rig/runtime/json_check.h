// Whether a text is one JSON value, which the real browser also checks before it accepts a text from the host.
#pragma once

#include <string_view>

namespace rig {

[[nodiscard]] bool IsJson(std::wstring_view text);

} // namespace rig
