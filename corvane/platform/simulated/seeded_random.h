#pragma once

#include <cstdint>

namespace corvane::simulated {

/// A small generator whose numbers are the same with every standard library.
class SeededRandom {
public:
    explicit SeededRandom(std::uint64_t seed) : state_(seed) {}

    std::uint64_t next() {
        std::uint64_t z = state_ += 0x9E3779B97F4A7C15u;
        z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9u;
        z = (z ^ z >> 27) * 0x94D049BB133111EBu;
        return z ^ z >> 31;
    }
    /// From 0 to `count` - 1; `count` is not 0.
    std::uint64_t below(std::uint64_t count) { return next() % count; }

private:
    std::uint64_t state_;
};

}  // namespace corvane::simulated
