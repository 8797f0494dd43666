#pragma once

#include <string>
#include <vector>

#include "corvane/devices/catalogue.h"
#include "exit_status.h"

namespace corvane::tool {

struct DecodeOptions {
    const Model* model = nullptr;
    DriverArguments arguments;
    /// Hexadecimal text, with the characteristic and a colon before it where it is not the first that
    /// notifies.
    std::vector<std::string> values;
    bool json = false;
};

/// Prints the records that the model's driver makes of notified values.
ExitStatus decode(const DecodeOptions& options);

}  // namespace corvane::tool
