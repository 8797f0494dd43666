// Where the faults of a radio strike: drawn from a generator of their own, so that a run with a fault takes
// the course of the run without it up to the first strike.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "corvane/platform/simulated/radio_fault.h"
#include "corvane/platform/simulated/seeded_random.h"

namespace corvane::simulated {

class FaultPlan {
public:
    FaultPlan(std::vector<RadioFault> faults, std::uint64_t seed)
        : faults_(std::move(faults)), seed_(seed), random_(~seed) {}

    bool has(RadioFault::Kind kind) const { return find(kind) != nullptr; }

    /// After how many events the fault strikes the n-th device; 0 for never.
    unsigned stepOf(RadioFault::Kind kind, std::uint64_t device = 0) const;

    /// By how much the next event is late; mostly 0.
    std::chrono::nanoseconds lateness();
    /// Whether the next event comes twice.
    bool repeats() { return has(RadioFault::Kind::duplicate) && random_.below(2) == 0; }
    void damage(std::vector<std::uint8_t>& value);

private:
    const RadioFault* find(RadioFault::Kind kind) const;

    const std::vector<RadioFault> faults_;
    const std::uint64_t seed_;
    SeededRandom random_;
};

}  // namespace corvane::simulated
