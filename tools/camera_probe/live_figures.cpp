#include "tools/camera_probe/live_figures.h"

#include <iomanip>
#include <locale>
#include <sstream>

namespace receiver {
namespace {

constexpr std::chrono::seconds Window{2};

} // namespace

void LiveFigures::AddFrame(Clock::time_point now, std::uint64_t newAgeMs) {
    times.push_back(now);
    ageMs = newAgeMs;
}

std::wstring LiveFigures::Text(Clock::time_point now, const vistel::FrameInfo& frame, bool stale,
                               std::uint64_t tornReads) {
    while (!times.empty() && now - times.front() > Window) {
        times.pop_front();
    }
    std::wostringstream text;
    text.imbue(std::locale::classic());
    if (stale) {
        text << L"No live picture";
    } else {
        text << frame.width << L" x " << frame.height << L"     " << std::fixed << std::setprecision(1)
             << FramesPerSecond() << L" frames per second     " << ageMs << L" ms old";
    }
    text << L"     " << tornReads << L" torn";
    return text.str();
}

double LiveFigures::FramesPerSecond() const {
    if (times.size() < 2) {
        return 0.0;
    }
    const double seconds = std::chrono::duration<double>(times.back() - times.front()).count();
    return seconds > 0 ? static_cast<double>(times.size() - 1) / seconds : 0.0;
}

} // namespace receiver
