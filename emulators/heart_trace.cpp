#include "emulators/heart_trace.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace corvane {
namespace {

/// A wave of a beat: a smooth hump.
struct Hump {
    std::int64_t centre;     ///< Milliseconds after the beat's R.
    std::int64_t halfWidth;  ///< Milliseconds; the hump is flat beyond.
    std::int64_t height;     ///< Microvolts.
};

class Trace {
public:
    Trace(int seconds, int samplesPerSecond)
        : samplesPerSecond_(samplesPerSecond),
          samples_(static_cast<std::size_t>(seconds * samplesPerSecond)) {}

    std::int64_t microseconds() const {
        return static_cast<std::int64_t>(samples_.size()) * 1'000'000 / samplesPerSecond_;
    }

    void add(std::int64_t beat, const Hump& hump) {
        const std::int64_t centre = beat + hump.centre * 1000;
        const std::int64_t halfWidth = hump.halfWidth * 1000;
        const auto size = static_cast<std::int64_t>(samples_.size());
        const std::int64_t first = std::max<std::int64_t>(0, sampleAt(centre - halfWidth));
        const std::int64_t end = std::min<std::int64_t>(size, sampleAt(centre + halfWidth) + 1);
        constexpr std::int64_t top = 1024;
        for (std::int64_t i = first; i < end; ++i) {
            const std::int64_t distance = i * 1'000'000 / samplesPerSecond_ - centre;
            const std::int64_t rise =
                std::max<std::int64_t>(0, top - distance * distance * top / (halfWidth * halfWidth));
            samples_[static_cast<std::size_t>(i)] +=
                static_cast<int>(hump.height * rise * rise / (top * top));
        }
    }

    /// What does not come from the heart: breathing moves the line, muscles and the device add noise.
    void disturb(Random& random) {
        const int breath = 4 * samplesPerSecond_;
        int moment = random.between(0, breath - 1);
        for (int& sample : samples_) {
            moment = (moment + 1) % breath;
            sample += std::abs(moment - breath / 2) * 80 / breath - 20 + random.between(-12, 12);
        }
    }

    std::vector<int> take() { return std::move(samples_); }

private:
    std::int64_t sampleAt(std::int64_t microsecond) const {
        return microsecond * samplesPerSecond_ / 1'000'000;
    }

    const int samplesPerSecond_;
    std::vector<int> samples_;
};

}  // namespace

std::vector<int> heartTrace(int pulse, int seconds, int samplesPerSecond, Random& random) {
    const int interval = 60'000 / pulse;  // Milliseconds from beat to beat.
    const int strength = random.between(80, 130);
    // The faster the heart, the sooner the chambers recover.
    const Hump humps[] = {{-160, 48, 120 * strength / 100},
                          {-28, 16, -100 * strength / 100},
                          {0, 24, 1100 * strength / 100},
                          {32, 20, -280 * strength / 100},
                          {100 + interval / 6, 56 + interval / 24, 300 * strength / 100}};

    Trace trace(seconds, samplesPerSecond);
    std::int64_t beat = random.between(0, interval) * std::int64_t{1000};
    while (beat < trace.microseconds()) {
        for (const Hump& hump : humps) trace.add(beat, hump);
        beat += std::int64_t{60'000} * random.between(970, 1030) / pulse;
    }
    trace.disturb(random);
    return trace.take();
}

}  // namespace corvane
