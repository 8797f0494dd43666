#include "corvane/platform/simulated/default_simulated.h"

namespace corvane {

SimulatedRadio& defaultSimulatedRadio() {
    static SimulatedRadio& radio = *new SimulatedRadio({.realTime = true});
    return radio;
}

Platform& defaultPlatform() { return defaultSimulatedRadio(); }

}  // namespace corvane
