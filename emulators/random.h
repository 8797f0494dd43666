// Chance from a seed, the same on every machine: the distributions of the standard library differ from one
// implementation to the next, its engines do not.
#pragma once

#include <chrono>
#include <cstdint>
#include <random>

namespace corvane {

class Random {
public:
    explicit Random(std::uint64_t seed) : engine_(seed) {}

    /// A whole number from `low` to `high`, both included; `low` is not above `high`.
    int between(int low, int high) {
        const auto count = static_cast<std::uint64_t>(static_cast<std::int64_t>(high) - low) + 1;
        return static_cast<int>(low + static_cast<std::int64_t>(engine_() % count));
    }
    std::chrono::milliseconds between(std::chrono::milliseconds low, std::chrono::milliseconds high) {
        return std::chrono::milliseconds(
            between(static_cast<int>(low.count()), static_cast<int>(high.count())));
    }
    std::uint8_t byte() { return static_cast<std::uint8_t>(between(0, 255)); }
    bool chance(int percent) { return between(1, 100) <= percent; }

private:
    std::mt19937_64 engine_;
};

}  // namespace corvane
