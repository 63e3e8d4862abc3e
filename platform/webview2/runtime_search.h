// Finds the WebView2 runtime that a program gets: what the user and administrators decide, then the installed channels.
// Starts nothing.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace receiver {

enum class RuntimeType : int { Installed = 0, FixedVersion = 1 };

struct Runtime {
    RuntimeType type = RuntimeType::Installed;
    std::wstring_view channel; // "stable" for example; empty for a fixed version
    std::wstring versionFolder;
    std::wstring clientLibrary; // full path
};

// The longest path, environment variable and registry text that is read, without the terminator.
inline constexpr std::size_t MaxTextLength = 32767;

// The full path of the program that runs.
[[nodiscard]] std::wstring ProgramPath();

// `programPath` is the full path of the program that asks: policies name it, and a relative folder counts from its
// folder. `callersFolder` is the folder of a fixed version, or empty.
[[nodiscard]] std::optional<Runtime> FindRuntime(const std::wstring& programPath, const std::wstring& callersFolder);

// The folder for the browser's data that the user or an administrator has set in place of the program's own.
[[nodiscard]] std::optional<std::wstring> FindUserDataOverride(const std::wstring& programPath);

} // namespace receiver
