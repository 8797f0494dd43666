#pragma once

#include <string>

#include "exit_status.h"

namespace corvane::tool {

struct DoctorOptions {
    std::string adapter;  ///< Empty for any.
    /// Where the kernel tells of adapters and their switches.
    std::string sys = "/sys";
};

/// Behind the text of whatever is missing.
inline constexpr const char* doctorsHint = " (corvane doctor says why)";

/// Says what Bluetooth needs on this machine to work from here, what of it is missing, and what to do about
/// it. `noRadio` if anything is missing.
ExitStatus examineBluetooth(const DoctorOptions& options);

}  // namespace corvane::tool
