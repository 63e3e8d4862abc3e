#include "tools/camera_probe/live_figures.h"

#include <iomanip>
#include <locale>
#include <sstream>

namespace receiver {
namespace {

constexpr std::chrono::seconds Window{2};

} // namespace

void LiveFigures::AddFrame(Clock::time_point now, std::uint64_t ageMs) {
    times_.push_back(now);
    ageMs_ = ageMs;
}

std::wstring LiveFigures::Text(Clock::time_point now, const vistel::FrameInfo& frame, bool stale,
                               std::uint64_t tornReads) {
    while (!times_.empty() && now - times_.front() > Window) {
        times_.pop_front();
    }
    std::wostringstream text;
    text.imbue(std::locale::classic());
    if (stale) {
        text << L"No live picture";
    } else {
        text << frame.width << L" x " << frame.height << L"     " << std::fixed << std::setprecision(1)
             << FramesPerSecond() << L" frames per second     " << ageMs_ << L" ms old";
    }
    text << L"     " << tornReads << L" torn";
    return text.str();
}

double LiveFigures::FramesPerSecond() const {
    if (times_.size() < 2) {
        return 0.0;
    }
    const double seconds = std::chrono::duration<double>(times_.back() - times_.front()).count();
    return seconds > 0 ? static_cast<double>(times_.size() - 1) / seconds : 0.0;
}

} // namespace receiver
