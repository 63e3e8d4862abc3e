#include "app/settings.h"

#include "app/installation_id.h"
#include "app/quality.h"
#include "platform/environment_variable.h"
#include "platform/folder.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace receiver {
namespace {

std::optional<std::wstring> DataFolder() {
    const std::optional<std::wstring> programData = ReadEnvironmentVariable(L"ProgramData");
    return programData ? std::optional(JoinPath(*programData, L"Vistel")) : std::nullopt;
}

} // namespace

std::wstring ReadInstallationId() {
    const std::optional<std::wstring> folder = DataFolder();
    if (!folder) {
        return {};
    }
    std::ifstream file(std::filesystem::path(JoinPath(*folder, L"installation-id.txt")));
    constexpr std::size_t ReadLimit = 38; // the identifier, its line end and one more
    std::string line(ReadLimit, '\0');
    file.read(line.data(), ReadLimit);
    line.resize(static_cast<std::size_t>(file.gcount()));
    line.resize(std::min(line.find('\n'), line.size()));
    return IsInstallationId(line) ? std::wstring(line.begin(), line.end()) : std::wstring();
}

bool SaveVideoQuality(std::wstring_view value) {
    const std::optional<std::wstring> folder = DataFolder();
    if (!folder || FAILED(EnsureFolderTree(*folder))) {
        return false;
    }
    std::ofstream file(std::filesystem::path(JoinPath(*folder, L"video-quality.txt")),
                       std::ios::binary | std::ios::trunc);
    if (!file) {
        return false;
    }
    const Quality* const quality = FindQuality(value);
    for (const wchar_t character : quality != nullptr ? quality->name : DefaultQuality.name) {
        file << static_cast<char>(character);
    }
    return file.good();
}

} // namespace receiver
