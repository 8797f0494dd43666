#pragma once

#include <string>

#include "exit_status.h"

namespace corvane::tool {

/// Prints the trace of a session script; "-" is standard input.
ExitStatus replay(const std::string& path);

}  // namespace corvane::tool
