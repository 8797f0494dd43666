// The recorder's trace and the pulse that it tells belong to one heart.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "emulators/ecg_td4257_emulator.h"
#include "tests/emulators/watched_driver.h"

namespace corvane {
namespace {

/// Places of the R peaks: the highest samples of each stretch above half of the trace's height.
std::vector<std::size_t> peaks(const std::vector<std::int64_t>& graph) {
    const std::int64_t threshold = *std::max_element(graph.begin(), graph.end()) / 2;
    std::vector<std::size_t> found;
    bool above = false;
    for (std::size_t i = 0; i < graph.size(); ++i) {
        const bool aboveNow = graph[i] > threshold;
        if (aboveNow && !above) {
            found.push_back(i);
        } else if (aboveNow && graph[i] > graph[found.back()]) {
            found.back() = i;
        }
        above = aboveNow;
    }
    return found;
}

TEST(ECGRecorder, ItsPulseCanBeCountedInItsTrace) {
    for (std::uint64_t seed = 1; seed <= 30; ++seed) {
        SCOPED_TRACE(seed);
        Bench<ECGTD4257Device> bench({.seed = seed});
        ASSERT_TRUE(bench.runUntilRecords(1)) << bench.watched->transcript;
        const ECGInfo& info = bench.watched->records[0];
        ASSERT_EQ(info.graph.size(), std::size_t{emulatedEcgSeconds} * emulatedEcgSamplesPerSecond);

        const std::vector<std::size_t> beats = peaks(info.graph);
        ASSERT_GT(beats.size(), 10u);
        const auto samples = static_cast<double>(beats.back() - beats.front());
        const double perMinute =
            static_cast<double>(beats.size() - 1) * 60 * emulatedEcgSamplesPerSecond / samples;
        EXPECT_NEAR(perMinute, std::atof(info.pulse.c_str()), 2);

        EXPECT_EQ(bench.watched->records.size(), 1u);
        bench.radio.runFor(std::chrono::seconds(30));
        EXPECT_EQ(bench.watched->records.size(), 1u) << "one transfer, however often the host asked";
    }
}

}  // namespace
}  // namespace corvane
