// Fixture of the shared frame file's tests: %ProgramData% is a folder of the test.
#pragma once

#include "frames/shared_frame_file.h"
#include "platform/handles.h"
#include "tests/support/test_files.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>

namespace receiver {

inline constexpr std::size_t FrameFileSize = 6220864;

class SharedFrameFileTest : public testing::Test {
protected:
    static constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

    [[nodiscard]] static constexpr HRESULT Win32Result(DWORD error) { return HRESULT_FROM_WIN32(error); }

    // Empty when the file cannot be opened with this sharing mode.
    [[nodiscard]] UniqueFile OpenForReading(DWORD share) const {
        return UniqueFile(
            CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    }

    [[nodiscard]] static DWORD HandleCount() {
        DWORD count = 0;
        EXPECT_NE(GetProcessHandleCount(GetCurrentProcess(), &count), FALSE);
        return count;
    }

    // Expects that no handle of the file is open.
    void ExpectClosed() const {
        EXPECT_EQ(HandleCount(), handlesAtStart);
        EXPECT_TRUE(OpenForReading(0)) << "error " << GetLastError();
    }

    // The sequence in a file on disk.
    [[nodiscard]] static std::uint64_t SequenceIn(const std::filesystem::path& file) {
        const std::string bytes = ReadBytes(file);
        std::uint64_t sequence = 0;
        EXPECT_EQ(bytes.size(), FrameFileSize);
        if (bytes.size() == FrameFileSize) {
            std::memcpy(&sequence, bytes.data() + 24, sizeof(sequence));
        }
        return sequence;
    }

    const PrivateFolder folder;
    const std::filesystem::path dataFolder = folder.Path() / L"Vistel";
    const std::filesystem::path path = dataFolder / L"frame-buffer.bin";
    SharedFrameFile file;

private:
    const VariableScope programDataVariable{L"ProgramData", folder.Path().c_str()};
    const DWORD handlesAtStart = HandleCount();
};

} // namespace receiver
