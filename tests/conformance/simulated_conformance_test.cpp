#include "tests/conformance/simulated_back_end.h"

namespace corvane::conformance {
namespace {

const bool registered =
    registerConformance("SimulatedRadio", [] { return std::make_unique<SimulatedBackEnd>(); });

}  // namespace
}  // namespace corvane::conformance
