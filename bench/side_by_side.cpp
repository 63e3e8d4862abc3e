#include "bench/side_by_side.h"

#include <algorithm>
#include <chrono>
#include <numeric>
#include <random>

namespace receiver {
namespace {

constexpr std::size_t Repetitions = 31;
constexpr std::size_t SlowRepetitions = 5;
constexpr std::size_t WarmUpCalls = 5; // They bring back to the caches what other work has evicted.
constexpr std::size_t TimedCalls = 5;

class Stopwatch {
public:
    // Microseconds of one call.
    double Time(const Work& work) {
        Call(work, WarmUpCalls);
        const auto start = std::chrono::steady_clock::now();
        Call(work, TimedCalls);
        const std::chrono::duration<double, std::micro> elapsed = std::chrono::steady_clock::now() - start;
        return elapsed.count() / static_cast<double>(TimedCalls);
    }

private:
    void Call(const Work& work, std::size_t times) {
        for (std::size_t i = 0; i < times; ++i) {
            work(calls++);
        }
    }

    std::size_t calls = 0;
};

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace

std::vector<Timing> MeasureSideBySide(const std::vector<Contender>& contenders, const Work& baseline) {
    std::mt19937 random(std::random_device{}());
    std::vector<std::size_t> order(contenders.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::vector<std::vector<double>> ratios(contenders.size());
    std::vector<std::vector<double>> microseconds(contenders.size());
    Stopwatch watch;
    for (std::size_t repetition = 0; repetition < Repetitions; ++repetition) {
        std::shuffle(order.begin(), order.end(), random);
        for (const std::size_t index : order) {
            if (contenders[index].isSlow && repetition >= SlowRepetitions) {
                continue;
            }
            const double before = watch.Time(baseline);
            const double time = watch.Time(contenders[index].run);
            const double after = watch.Time(baseline);
            ratios[index].push_back(2 * time / (before + after));
            microseconds[index].push_back(time);
        }
    }
    std::vector<Timing> timings;
    for (std::size_t index = 0; index < contenders.size(); ++index) {
        timings.push_back({contenders[index].name, Median(ratios[index]), Median(microseconds[index])});
    }
    return timings;
}

} // namespace receiver
