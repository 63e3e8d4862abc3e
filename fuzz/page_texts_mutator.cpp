// Changes sequences of page texts by lines as often as by bytes, because most effects depend on the order of the texts.
// Only libFuzzer uses it.

#include "fuzz/support/input_text.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace receiver {
namespace {

constexpr std::string_view UsualLines[] = {
    "!start --url=https://receiver.example/page?a=b",
    "!start \"",
    "!id 01234567-89ab-cdef-0123-456789ABCDEF",
    "ready",
    "frame:0:NV12:1280:720:0:0:0:1280:720:0,1280;921600,1280",
    "frame:1:RGBA:64:36:1:90:0:36:64:0,256",
    "frame:1:I420:64:36:0:180:1:64:36:0,64;2304,32;2880,32;",
    "frame:0:BGRX:64:36:0:0:0:64:36:8294399,256",
    "frame:1:YUY2:2:2:0:0:0:1:1:0,4",
    "media:snapshot",
    "media:record:start",
    "media:record:stop",
    "quality:720p",
    "quality:1080p",
    "quality:480p",
    "window:orientation:portrait",
    "window:orientation:landscape",
    "window:orientation:setup",
    "!object",
    "!null",
    "!signal",
    "!quiet",
    "!navigated 23",
    "!permission 9",
    "!later 4000",
    "!minimize",
    "!maximize",
    "!restore",
};

std::string MutateLines(std::string_view text, std::minstd_rand& random) {
    const auto below = [&](std::size_t count) { return static_cast<std::size_t>(random()) % count; };
    const std::vector<std::string_view> old = SplitLines(text);
    std::vector<std::string> lines(old.begin(), old.end());
    const std::size_t place = below(lines.size());
    const auto position = lines.begin() + static_cast<std::ptrdiff_t>(place);
    switch (below(6)) {
    case 0:
        lines.erase(position);
        break;
    case 1:
        std::swap(lines[place], lines[below(lines.size())]);
        break;
    case 2:
        lines.insert(position, std::string(lines[below(lines.size())]));
        break;
    case 3:
        lines.insert(position, "!fail " + std::to_string(1 + below(20)));
        break;
    default:
        lines.insert(position, std::string(UsualLines[below(std::size(UsualLines))]));
        break;
    }
    std::string result;
    for (const std::string& line : lines) {
        result += (result.empty() ? "" : "\n") + line;
    }
    return result;
}

} // namespace
} // namespace receiver

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed) {
    std::minstd_rand random(seed);
    if (random() % 2 == 0) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    const std::string text = receiver::MutateLines(receiver::AsText(data, size), random);
    const std::size_t newSize = std::min(text.size(), maxSize);
    std::memcpy(data, text.data(), newSize);
    return newSize;
}
