// camera_probe --play and --check: the receiver's part for authors of cameras, and the judge of a writer.
#pragma once

#include <windows.h>

#include <chrono>
#include <optional>
#include <string>

namespace receiver {

// Plays the named scenario into the file, or all of them one after the other when `scenario` is empty, until `ended` is
// signaled. The exit code.
[[nodiscard]] int PlayFrames(const std::wstring& path, const std::wstring& scenario, HANDLE ended);

// Watches the writer of the file for `duration`, or until `ended` is signaled, and prints a verdict for each rule.
// The exit code: 0 only when frames were seen and no rule was broken.
[[nodiscard]] int CheckWriter(const std::wstring& path, std::optional<std::chrono::seconds> duration, HANDLE ended);

} // namespace receiver
