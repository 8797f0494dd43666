#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "corvane/devices/catalogue.h"
#include "exit_status.h"
#include "platforms.h"

namespace corvane::tool {

struct MeasureOptions {
    std::vector<const Model*> models;
    PlatformOptions platform;
    DriverArguments arguments;
    /// Of the platform's time, without a reading.
    std::chrono::nanoseconds timeout{};
    unsigned count = 1;  ///< Readings of each model.
    bool json = false;
    bool verbose = false;
    // Both only for a single model; empty for none.
    std::string record;
    std::string trace;

    /// A recording holds one driver, from its making to its end.
    bool records() const { return !record.empty() || !trace.empty(); }
};

/// Reads the devices, each with a driver of its own, all at once.
ExitStatus measure(const MeasureOptions& options);

}  // namespace corvane::tool
