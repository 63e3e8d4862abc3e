// A private folder of this process for the small files that the program reads and writes. Removed at a normal end.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace receiver {

class ScratchFolder {
public:
    ScratchFolder() : path(std::filesystem::temp_directory_path() / "vistel-fuzz-XXXXXX") {
        std::string name = path.string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot create a folder in " + path.parent_path().string());
        }
        path = name;
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder() {
        std::error_code ignored; // There is no caller to report it to.
        std::filesystem::remove_all(path, ignored);
    }

    [[nodiscard]] const std::filesystem::path& Path() const noexcept { return path; }
    // For %ProgramData%. It ends in a slash, so that the rest of the program's paths, which has only backslashes, is
    // one file name in this folder.
    [[nodiscard]] std::wstring AsVariable() const { return path.wstring() + L'/'; }

private:
    std::filesystem::path path;
};

} // namespace receiver
