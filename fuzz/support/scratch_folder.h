// A folder of this process's own for the small files that the program reads and writes; removed at a normal end.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace receiver {

class ScratchFolder {
public:
    ScratchFolder() : path_(std::filesystem::temp_directory_path() / "vistel-fuzz-XXXXXX") {
        std::string name = path_.string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no folder for files can be made in " + path_.parent_path().string());
        }
        path_ = name;
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder() {
        std::error_code ignored; // Nobody is left to tell.
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] const std::filesystem::path& Path() const noexcept { return path_; }
    // For %ProgramData%. The slash at its end makes what the program appends with backslashes one name in this folder.
    [[nodiscard]] std::wstring AsVariable() const { return path_.wstring() + L'/'; }

private:
    std::filesystem::path path_;
};

} // namespace receiver
