// The simulated radio as the default platform of a program, in real time.
#pragma once

#include "corvane/platform/simulated/simulated_radio.h"

namespace corvane {

/// What `defaultPlatform()` returns in a program that links `corvane::default_simulated`: made on first use,
/// never destroyed. The program adds devices to it and runs its queue.
SimulatedRadio& defaultSimulatedRadio();

}  // namespace corvane
