#pragma once

#include <stdexcept>
#include <string>

#include "exit_status.h"

namespace corvane::tool {

/// Ends the command: the text is the message for the user.
struct Failure : std::runtime_error {
    Failure(ExitStatus status, const std::string& text) : std::runtime_error(text), status(status) {}
    ExitStatus status;
};

}  // namespace corvane::tool
