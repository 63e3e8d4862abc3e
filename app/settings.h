// The two small machine-wide files in the data folder: the installation identifier, which is only read, and the video
// quality, which is only written, for the rest of the product. Nothing is logged here.
#pragma once

#include <string>
#include <string_view>

namespace receiver {

// The identifier in the first line of "installation-id.txt" unchanged, or an empty text when the file
// is missing or holds anything else.
[[nodiscard]] std::wstring ReadInstallationId();

// Replaces the content of "video-quality.txt" with the quality's name, or with the default quality's when `value` names
// none. False when that failed.
[[nodiscard]] bool SaveVideoQuality(std::wstring_view value);

} // namespace receiver
