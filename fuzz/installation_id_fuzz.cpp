// The installation identifier out of a file of any content. Natively a carriage return is a character like others; only
// Windows takes it away in front of a line feed.

#include "app/settings.h"
#include "fuzz/support/input_text.h"
#include "fuzz/support/require.h"
#include "fuzz/support/scratch_folder.h"
#include "fuzz/windows/fake_windows.h"

#include <fstream>

namespace receiver {
namespace {

bool IsIdentifier(const std::string& text) {
    constexpr std::size_t GroupSizes[] = {8, 4, 4, 4, 12};
    std::size_t begin = 0;
    for (const std::size_t size : GroupSizes) {
        const std::string group = begin <= text.size() ? text.substr(begin, size) : std::string();
        if (group.size() != size || group.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
            return false;
        }
        begin += size;
        if (begin < text.size() && text[begin] != '-') {
            return false;
        }
        ++begin; // behind the hyphen
    }
    return begin == text.size() + 1;
}

} // namespace
} // namespace receiver

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace receiver;
    static const ScratchFolder scratch;
    std::ofstream file(scratch.Path() / "Vistel\\installation-id.txt", std::ios::binary);
    file << AsText(data, size);
    file.close();
    Require(file.good(), "the target's own file can be written");
    FakeWindows windows({});
    windows.programData = scratch.AsVariable();

    const std::string line(SplitLines(AsText(data, size)).front());
    const std::wstring expected = IsIdentifier(line) ? std::wstring(line.begin(), line.end()) : std::wstring();
    Require(ReadInstallationId() == expected, "an identifier is the first line, if that is one");
    return 0;
}
