// A private folder for a test, its files, and environment variables for the time of a test.
#pragma once

#include <windows.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace receiver {

// An empty folder that is removed with its content.
class PrivateFolder {
public:
    PrivateFolder();
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;
    ~PrivateFolder();

    [[nodiscard]] const std::filesystem::path& Path() const noexcept { return path; }

private:
    std::filesystem::path path;
};

// All bytes of a file; empty if it cannot be read.
[[nodiscard]] std::string ReadBytes(const std::filesystem::path& path);
void WriteBytes(const std::filesystem::path& path, std::string_view bytes);

// Sets an environment variable of this process, or removes it, and restores the old value at the end.
class VariableScope {
public:
    VariableScope(std::wstring newName, const wchar_t* value);
    VariableScope(const VariableScope&) = delete;
    VariableScope& operator=(const VariableScope&) = delete;
    ~VariableScope();

private:
    std::wstring name;
    std::optional<std::wstring> oldValue;
};

} // namespace receiver
