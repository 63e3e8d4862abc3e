#include "tests/rig/driver/handle_count.h"

#include <winternl.h>

#include <bit>
#include <cstddef>
#include <vector>

namespace rig {
namespace {

// One that the header does not name.
constexpr auto ExtendedHandleInformation = std::bit_cast<SYSTEM_INFORMATION_CLASS>(64);
constexpr auto LengthMismatch = static_cast<NTSTATUS>(0xC0000004);

// The answer in words: the number of handles, a reserved word, then five for each handle, the second its process.
constexpr std::size_t HeaderWords = 2;
constexpr std::size_t EntryWords = 5;
constexpr std::size_t FirstRoom = 4096; // handles

} // namespace

std::optional<std::int64_t> CountHandles(DWORD processId) {
    std::vector<ULONG_PTR> words;
    NTSTATUS status = LengthMismatch;
    for (std::size_t room = FirstRoom; status == LengthMismatch; room *= 2) {
        words.resize(HeaderWords + room * EntryWords);
        status = NtQuerySystemInformation(ExtendedHandleInformation, words.data(),
                                          static_cast<ULONG>(words.size() * sizeof(ULONG_PTR)), nullptr);
    }
    if (status < 0) {
        return std::nullopt;
    }
    std::int64_t count = 0;
    for (std::size_t entry = 0; entry < words[0]; ++entry) {
        count += words[HeaderWords + entry * EntryWords + 1] == processId ? 1 : 0;
    }
    return count;
}

} // namespace rig
