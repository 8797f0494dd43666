// The checks, a list for each header whose contracts they are.
#pragma once

#include "tests/conformance/scene.h"

namespace corvane::conformance {

std::vector<Contract> platformContracts();
std::vector<Contract> centralContracts();
std::vector<Contract> peripheralContracts();
std::vector<Contract> deviceContracts();

}  // namespace corvane::conformance
