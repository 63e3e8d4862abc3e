// The settings files, on real folders.
#include "app/settings.h"

#include "platform/handles.h"
#include "tests/support/allocation_fault.h"
#include "tests/support/test_files.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <filesystem>
#include <new>
#include <string>

namespace receiver {
namespace {

constexpr char Id[] = "01234567-89ab-CDEF-0123-456789abcdef";
constexpr wchar_t WideId[] = L"01234567-89ab-CDEF-0123-456789abcdef";

class SettingsTest : public testing::Test {
protected:
    std::wstring ReadIdFrom(const std::string& bytes) const {
        std::filesystem::create_directories(data);
        WriteBytes(idFile, bytes);
        return ReadInstallationId();
    }

    const PrivateFolder folder;
    const std::filesystem::path programData = folder.Path() / L"parent" / L"ProgramData";
    const std::filesystem::path data = programData / L"Vistel";
    const std::filesystem::path idFile = data / L"installation-id.txt";
    const std::filesystem::path qualityFile = data / L"video-quality.txt";
    const VariableScope variable{L"ProgramData", programData.c_str()};
};

TEST_F(SettingsTest, ReturnsTheIdentifierUnchanged) {
    EXPECT_EQ(ReadIdFrom(Id), WideId);
    EXPECT_EQ(ReadIdFrom("ABCDEFAB-CDEF-ABCD-EFAB-CDEFABCDEFAB"), L"ABCDEFAB-CDEF-ABCD-EFAB-CDEFABCDEFAB");
    EXPECT_EQ(ReadBytes(idFile), "ABCDEFAB-CDEF-ABCD-EFAB-CDEFABCDEFAB");
}

TEST_F(SettingsTest, ReadsOnlyTheFirstLineOfTheIdentifierFile) {
    const std::string id = Id;
    EXPECT_EQ(ReadIdFrom(id + "\n"), WideId);
    EXPECT_EQ(ReadIdFrom(id + "\r\n"), WideId);
    EXPECT_EQ(ReadIdFrom(id + "\r\nanything\r\n"), WideId);
    EXPECT_EQ(ReadIdFrom("\r\n" + id), L"");
    EXPECT_EQ(ReadIdFrom("anything\n" + id), L"");
}

TEST_F(SettingsTest, RejectsAnythingElse) {
    const std::string id = Id;
    for (const std::string& bytes :
         {std::string(), std::string("\n"), '{' + id + '}', id + ' ', ' ' + id, id.substr(1), id + '0',
          "\xEF\xBB\xBF" + id, std::string("012345678-9ab-cdef-0123-456789abcde"),
          std::string("012345678-9abcdef-0123-456789abcdef0"), "0123456g" + id.substr(8), id.substr(0, 35) + '\0'}) {
        EXPECT_EQ(ReadIdFrom(bytes), L"") << bytes;
    }
}

// The number of allocations shows how much of the file is stored.
TEST_F(SettingsTest, ReadsNoMoreOfAHugeFileThanAnIdentifier) {
    const auto allocations = [this](const std::string& bytes) {
        std::filesystem::create_directories(data);
        WriteBytes(idFile, bytes);
        for (unsigned allocation = 0;; ++allocation) {
            const AllocationFault fault(allocation);
            try {
                EXPECT_EQ(ReadInstallationId().size(), bytes.size() == 36 ? 36U : 0U);
            } catch (const std::bad_alloc&) {
            }
            if (!fault.Happened()) {
                return allocation;
            }
        }
    };
    const unsigned forId = allocations(Id);
    EXPECT_GT(forId, 0U);
    EXPECT_LE(allocations(std::string(1 << 20, '0')), forId); // There is no text to return.
}

TEST_F(SettingsTest, ReturnsNoIdentifierWithoutItsFile) {
    EXPECT_EQ(ReadInstallationId(), L"");
    EXPECT_FALSE(std::filesystem::exists(programData)); // Reading creates nothing.
    std::filesystem::create_directories(data);
    EXPECT_EQ(ReadInstallationId(), L"");
    EXPECT_FALSE(std::filesystem::exists(idFile));
    std::filesystem::create_directory(idFile);
    EXPECT_EQ(ReadInstallationId(), L"");
}

TEST_F(SettingsTest, ReadsAndSavesNothingWithoutProgramData) {
    EXPECT_EQ(ReadIdFrom(Id), WideId);
    // The same folder under a name of 260 characters.
    std::wstring longName = programData.native();
    while (longName.size() + 2 <= 260) {
        longName += L"\\.";
    }
    longName.resize(260, L'\\');
    for (const wchar_t* value : {static_cast<const wchar_t*>(nullptr), L"", longName.c_str()}) {
        const VariableScope unusable(L"ProgramData", value);
        EXPECT_EQ(ReadInstallationId(), L"");
        EXPECT_FALSE(SaveVideoQuality(L"720p"));
    }
    EXPECT_FALSE(std::filesystem::exists(qualityFile));
}

TEST_F(SettingsTest, ProgramDataMayEndInASeparator) {
    for (const wchar_t* separator : {L"\\", L"/"}) {
        const VariableScope ended(L"ProgramData", (programData.native() + separator).c_str());
        EXPECT_EQ(ReadIdFrom(Id), WideId);
        EXPECT_TRUE(SaveVideoQuality(L"1080p"));
        EXPECT_EQ(ReadBytes(qualityFile), "1080p");
        std::filesystem::remove(qualityFile);
    }
}

TEST_F(SettingsTest, SavesTheNameOfTheQualityAndNothingElse) {
    for (int time = 0; time < 2; ++time) {
        EXPECT_TRUE(SaveVideoQuality(L"1080p"));
        EXPECT_EQ(ReadBytes(qualityFile), "1080p");
    }
    EXPECT_TRUE(SaveVideoQuality(L"720p"));
    EXPECT_EQ(ReadBytes(qualityFile), "720p");
}

TEST_F(SettingsTest, SavesEveryOtherValueAs720p) {
    for (const wchar_t* value : {L"", L"1080P", L"1080p ", L" 1080p", L"1080", L"480p", L"720P"}) {
        EXPECT_TRUE(SaveVideoQuality(L"1080p"));
        EXPECT_TRUE(SaveVideoQuality(value));
        EXPECT_EQ(ReadBytes(qualityFile), "720p");
    }
    EXPECT_TRUE(SaveVideoQuality({L"1080p\0", 6}));
    EXPECT_EQ(ReadBytes(qualityFile), "720p");
    EXPECT_TRUE(SaveVideoQuality(std::wstring_view(L"1080p and more").substr(0, 5)));
    EXPECT_EQ(ReadBytes(qualityFile), "1080p");
}

TEST_F(SettingsTest, ReplacesThePreviousContentOfTheQualityFile) {
    std::filesystem::create_directories(data);
    WriteBytes(qualityFile, "something much longer\r\n");
    EXPECT_TRUE(SaveVideoQuality(L"1080p"));
    EXPECT_EQ(ReadBytes(qualityFile), "1080p");
}

TEST_F(SettingsTest, CreatesTheDataFolderAndItsParents) {
    ASSERT_FALSE(std::filesystem::exists(programData.parent_path()));
    EXPECT_TRUE(SaveVideoQuality(L"720p"));
    EXPECT_EQ(ReadBytes(qualityFile), "720p");
}

TEST_F(SettingsTest, FailsWhenTheFolderOrFileNameIsTaken) {
    std::filesystem::create_directories(programData);
    WriteBytes(data, "a file with the name of the folder");
    EXPECT_FALSE(SaveVideoQuality(L"720p"));
    EXPECT_EQ(ReadBytes(data), "a file with the name of the folder");
    std::filesystem::remove(data);
    std::filesystem::create_directories(qualityFile);
    EXPECT_FALSE(SaveVideoQuality(L"720p"));
}

TEST_F(SettingsTest, FailsWhileAnotherProcessHoldsTheQualityFile) {
    ASSERT_TRUE(SaveVideoQuality(L"1080p"));
    UniqueFile holder;
    holder.Reset(CreateFileW(qualityFile.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(holder);
    EXPECT_FALSE(SaveVideoQuality(L"720p"));
    holder.Reset();
    EXPECT_EQ(ReadBytes(qualityFile), "1080p");
    EXPECT_TRUE(SaveVideoQuality(L"720p"));
    EXPECT_EQ(ReadBytes(qualityFile), "720p");
}

} // namespace
} // namespace receiver
