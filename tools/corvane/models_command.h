#pragma once

#include "exit_status.h"

namespace corvane::tool {

struct ModelsOptions {
    bool json = false;
};

/// Lists the catalogue.
ExitStatus listModels(const ModelsOptions& options);

}  // namespace corvane::tool
