// An electrocardiogram that looks like one: P, Q, R, S and T in their places, a rate that breathes a little,
// a wandering base line and noise. Computed in whole numbers, so that every machine draws the same trace.
#pragma once

#include <vector>

#include "emulators/random.h"

namespace corvane {

/// Microvolts around 0. `pulse` in beats a minute, 30 to 200; `samplesPerSecond` 100 to 1000.
std::vector<int> heartTrace(int pulse, int seconds, int samplesPerSecond, Random& random);

}  // namespace corvane
