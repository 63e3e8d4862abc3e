#include "tools/camera_probe/probe_report.h"

#include <algorithm>
#include <cstddef>
#include <iomanip>
#include <locale>
#include <sstream>

namespace receiver {
namespace {

// The smallest value that at least `percent` of the sorted values do not exceed.
std::uint64_t Percentile(const std::vector<std::uint64_t>& sorted, std::size_t percent) {
    return sorted[(sorted.size() * percent + 99) / 100 - 1];
}

} // namespace

void ProbeReport::AddFrame(const vistel::FrameInfo& frame, std::uint64_t ageMs, bool publishedWhileWatching,
                           Clock::time_point now) {
    ++framesRead_;
    width_ = frame.width;
    height_ = frame.height;
    sequence_ = frame.sequence;
    if (!publishedWhileWatching) {
        oldFrameAgeMs_ = ageMs;
        return;
    }
    if (agesMs_.empty()) {
        firstTime_ = now;
    }
    lastTime_ = now;
    agesMs_.push_back(ageMs);
}

double ProbeReport::FramesPerSecond() const noexcept {
    const double seconds = std::chrono::duration<double>(lastTime_ - firstTime_).count();
    return agesMs_.size() < 2 || seconds <= 0 ? 0.0 : static_cast<double>(agesMs_.size() - 1) / seconds;
}

std::string ProbeReport::ToJson() const {
    std::vector<std::uint64_t> ages = agesMs_;
    if (ages.empty() && framesRead_ > 0) {
        ages.push_back(oldFrameAgeMs_);
    }
    std::sort(ages.begin(), ages.end());

    std::ostringstream json;
    json.imbue(std::locale::classic());
    json << std::fixed << std::setprecision(2);
    json << "{\"framesRead\":" << framesRead_ << ",\"tornReads\":" << tornReads_ << ",\"retries\":" << retries_
         << ",\"framesPerSecond\":" << FramesPerSecond() << ",\"ageMs\":";
    if (ages.empty()) {
        json << "{\"median\":null,\"p99\":null,\"max\":null}";
    } else {
        json << "{\"median\":" << Percentile(ages, 50) << ",\"p99\":" << Percentile(ages, 99)
             << ",\"max\":" << ages.back() << "}";
    }
    json << ",\"width\":" << width_ << ",\"height\":" << height_ << ",\"sequence\":" << sequence_ << "}\n";
    return json.str();
}

} // namespace receiver
