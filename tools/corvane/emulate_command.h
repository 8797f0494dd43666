#pragma once

#include <cstdint>
#include <string>

#include "corvane/framework/model.h"
#include "emulators/emulator_fault.h"
#include "exit_status.h"

namespace corvane::tool {

struct EmulateOptions {
    const Model* model = nullptr;
    std::string adapter = "hci0";
    std::uint64_t seed = 1;
    EmulatorFault fault;
};

/// Puts an emulated device on the air until the program is interrupted, and shows what happens to it.
ExitStatus emulate(const EmulateOptions& options);

}  // namespace corvane::tool
