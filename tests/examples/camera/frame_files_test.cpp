// The header's reader against the files of frame_files.tsv, whose head explains them.
#include "examples/camera/frame_reader.h"

#include "platform/handles.h"
#include "tests/support/test_files.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace receiver {
namespace {

struct FrameFile {
    std::string name;
    std::optional<std::size_t> size; // empty: there is no file
    vistel::FileHeader header{};
    std::int64_t ageMs = 0;
    std::optional<std::uint64_t> change;
    std::array<std::string, 2> results;
    std::string state;
    std::optional<std::uint64_t> sequence;
};

std::vector<FrameFile> FrameFiles() {
    std::array<wchar_t, 1024> program{};
    GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size()));
    std::ifstream table(std::filesystem::path(program.data()).parent_path() / L"frame_files.tsv");
    std::vector<FrameFile> files;
    for (std::string line; std::getline(table, line);) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::istringstream fields(line);
        const auto field = [&fields] {
            std::string text;
            std::getline(fields, text, '\t');
            return text;
        };
        const auto number = [](const std::string& text) {
            return text == "-" ? std::optional<std::uint64_t>() : std::stoull(text, nullptr, 0);
        };
        FrameFile file;
        file.name = field();
        file.size = number(field());
        std::istringstream header(field());
        const auto value = [&header] {
            std::string text;
            header >> text;
            return std::stoull(text, nullptr, 0);
        };
        for (std::uint32_t* const member : {&file.header.magic, &file.header.version, &file.header.width,
                                            &file.header.height, &file.header.stride, &file.header.frameSize}) {
            *member = static_cast<std::uint32_t>(value());
        }
        file.header.sequence = value();
        file.header.activeBuffer = static_cast<std::uint32_t>(value());
        file.ageMs = std::stoll(field());
        file.change = number(field());
        std::istringstream(field()) >> file.results[0] >> file.results[1];
        file.state = field();
        file.sequence = number(field());
        files.push_back(file);
    }
    return files;
}

std::string Name(vistel::ReadResult result) {
    constexpr const char* Names[] = {"NewFrame", "NoNewFrame",   "Busy",   "NotWanted",
                                     "NoFile",   "OtherVersion", "Damaged"};
    return Names[static_cast<std::size_t>(result)];
}

std::string Name(vistel::PictureState state) {
    constexpr const char* Names[] = {"Live",      "Stale",        "NoFrameYet", "Missing", "Denied",
                                     "WrongSize", "OtherVersion", "Damaged",    "Failed"};
    return Names[static_cast<std::size_t>(state)];
}

char ByteOf(std::size_t buffer, std::size_t index) {
    return static_cast<char>(static_cast<std::uint8_t>(31 * index + index / 256 + 7 * buffer));
}

std::string Content(const FrameFile& file) {
    std::string content(vistel::FileSize + 1, '\0');
    std::memcpy(content.data(), &file.header, sizeof(file.header));
    for (std::size_t buffer = 0; buffer < 2; ++buffer) {
        char* const first = content.data() + sizeof(file.header) + buffer * vistel::MaxFrameSize;
        for (std::size_t i = 0; i < vistel::MaxFrameSize; ++i) {
            first[i] = ByteOf(buffer, i);
        }
    }
    content.resize(*file.size);
    return content;
}

void StoreSequence(const std::filesystem::path& path, std::uint64_t sequence) {
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(offsetof(vistel::FileHeader, sequence));
    file.write(reinterpret_cast<const char*>(&sequence), sizeof(sequence));
    ASSERT_TRUE(file.flush());
}

TEST(FrameFilesTest, EachFileIsReadAsTheTableSays) {
    const PrivateFolder folder;
    const std::filesystem::path path = folder.Path() / L"frame-buffer.bin";
    std::vector<FrameFile> files = FrameFiles();
    ASSERT_GT(files.size(), 20U);
    for (FrameFile& file : files) {
        SCOPED_TRACE(file.name);
        std::filesystem::remove(path);
        file.header.timestamp = GetTickCount64();
        if (file.size) {
            WriteBytes(path, Content(file));
        }
        vistel::FrameReader reader(path.c_str());
        vistel::FrameInfo info;
        std::vector<std::uint8_t> nv12(vistel::MaxFrameSize);
        const auto read = [&] {
            return Name(reader.Read(info, [&](std::uint32_t width, std::uint32_t) {
                if (file.change) {
                    StoreSequence(path, *file.change);
                    file.change.reset();
                }
                return vistel::Destination{nv12.data(), width};
            }));
        };
        for (const std::string& result : file.results) {
            EXPECT_EQ(read(), result);
        }
        EXPECT_EQ(Name(reader.State(file.header.timestamp + static_cast<std::uint64_t>(file.ageMs))), file.state);
        EXPECT_EQ(info.sequence, file.sequence.value_or(0));
        if (file.sequence) {
            EXPECT_EQ(info.width, file.header.width);
            EXPECT_EQ(info.height, file.header.height);
            const std::size_t buffer = file.header.activeBuffer == 0 ? 0 : 1;
            std::size_t wrong = 0;
            for (std::size_t i = 0; i < file.header.frameSize; ++i) {
                wrong += nv12[i] == static_cast<std::uint8_t>(ByteOf(buffer, i)) ? 0U : 1U;
            }
            EXPECT_EQ(wrong, 0U);
        }
    }
}

} // namespace
} // namespace receiver
