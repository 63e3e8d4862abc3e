#include "tests/support/test_files.h"

#include <fstream>
#include <system_error>
#include <utility>

namespace receiver {

PrivateFolder::PrivateFolder() {
    static unsigned made = 0; // by this process
    path = std::filesystem::temp_directory_path() /
           (L"vistel-test-" + std::to_wstring(GetCurrentProcessId()) + L'-' + std::to_wstring(made++));
    std::filesystem::remove_all(path); // A killed process with the same identifier may have left it.
    std::filesystem::create_directory(path);
}

PrivateFolder::~PrivateFolder() {
    std::error_code ignored; // Files that are still open remain in the temporary folder.
    std::filesystem::remove_all(path, ignored);
}

std::string ReadBytes(const std::filesystem::path& path) {
    std::error_code missing;
    const auto size = std::filesystem::file_size(path, missing);
    std::string bytes(missing ? 0 : static_cast<std::size_t>(size), '\0');
    std::ifstream file(path, std::ios::binary);
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(file.gcount()));
    return bytes;
}

void WriteBytes(const std::filesystem::path& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

VariableScope::VariableScope(std::wstring newName, const wchar_t* value) : name(std::move(newName)) {
    std::wstring old(32768, L'\0'); // the longest value of a variable
    SetLastError(ERROR_SUCCESS);
    const DWORD length = GetEnvironmentVariableW(name.c_str(), old.data(), static_cast<DWORD>(old.size()));
    if (length > 0 || GetLastError() != ERROR_ENVVAR_NOT_FOUND) {
        oldValue = old.substr(0, length);
    }
    SetEnvironmentVariableW(name.c_str(), value);
}

VariableScope::~VariableScope() { SetEnvironmentVariableW(name.c_str(), oldValue ? oldValue->c_str() : nullptr); }

} // namespace receiver
