#include "corvane/platform/simulated/fault_plan.h"

#include <algorithm>

namespace corvane::simulated {

using Kind = RadioFault::Kind;

const RadioFault* FaultPlan::find(Kind kind) const {
    const auto found = std::find_if(faults_.begin(), faults_.end(),
                                    [&](const RadioFault& fault) { return fault.kind == kind; });
    return found == faults_.end() ? nullptr : &*found;
}

unsigned FaultPlan::stepOf(Kind kind, std::uint64_t device) const {
    const RadioFault* fault = find(kind);
    if (!fault) return 0;
    if (fault->step != 0) return fault->step;
    // A link has about this many events up to the first reading of a talkative model.
    constexpr unsigned usualSteps = 12;
    SeededRandom choice(seed_ ^ (device + 1) << 8 ^ static_cast<std::uint64_t>(kind));
    return 1 + static_cast<unsigned>(choice.below(usualSteps));
}

std::chrono::nanoseconds FaultPlan::lateness() {
    if (!has(Kind::late) || random_.below(3) != 0) return {};
    return std::chrono::milliseconds(10 + random_.below(3000));
}

void FaultPlan::damage(std::vector<std::uint8_t>& value) {
    if (value.empty()) return;
    if (has(Kind::corrupt) && random_.below(2) == 0) {
        value[random_.below(value.size())] ^= static_cast<std::uint8_t>(1u << random_.below(8));
    }
    if (has(Kind::truncated) && random_.below(2) == 0) value.resize(random_.below(value.size()));
}

}  // namespace corvane::simulated
