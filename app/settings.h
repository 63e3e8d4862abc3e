// The small machine-wide files in the product's data folder. Not built yet: no identifier is known, nothing is saved.
#pragma once

#include <string>
#include <string_view>

namespace receiver {

// The installation identifier, or an empty text when there is none.
[[nodiscard]] std::wstring ReadInstallationId();

// True when "720p" or "1080p" has been written for the rest of the product to read.
[[nodiscard]] bool SaveVideoQuality(std::wstring_view value);

} // namespace receiver
