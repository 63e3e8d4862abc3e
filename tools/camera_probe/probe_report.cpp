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
    ++framesRead;
    width = frame.width;
    height = frame.height;
    sequence = frame.sequence;
    if (!publishedWhileWatching) {
        oldFrameAgeMs = ageMs;
        return;
    }
    if (agesMs.empty()) {
        firstTime = now;
    }
    lastTime = now;
    agesMs.push_back(ageMs);
}

double ProbeReport::FramesPerSecond() const noexcept {
    const double seconds = std::chrono::duration<double>(lastTime - firstTime).count();
    return agesMs.size() < 2 || seconds <= 0 ? 0.0 : static_cast<double>(agesMs.size() - 1) / seconds;
}

std::string ProbeReport::ToJson() const {
    std::vector<std::uint64_t> ages = agesMs;
    if (ages.empty() && framesRead > 0) {
        ages.push_back(oldFrameAgeMs);
    }
    std::sort(ages.begin(), ages.end());

    std::ostringstream json;
    json.imbue(std::locale::classic());
    json << std::fixed << std::setprecision(2);
    json << "{\"framesRead\":" << framesRead << ",\"tornReads\":" << tornReads << ",\"retries\":" << retries
         << ",\"framesPerSecond\":" << FramesPerSecond() << ",\"ageMs\":";
    if (ages.empty()) {
        json << "{\"median\":null,\"p99\":null,\"max\":null}";
    } else {
        json << "{\"median\":" << Percentile(ages, 50) << ",\"p99\":" << Percentile(ages, 99)
             << ",\"max\":" << ages.back() << "}";
    }
    json << ",\"width\":" << width << ",\"height\":" << height << ",\"sequence\":" << sequence << "}\n";
    return json.str();
}

} // namespace receiver
