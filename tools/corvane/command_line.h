#pragma once

#include <functional>

#include "exit_status.h"

namespace corvane::tool {

/// The command that the arguments ask for. Where they ask for help or are wrong, the text has been printed
/// and the command does nothing but return the status.
std::function<ExitStatus()> parseCommandLine(int argc, char** argv);

}  // namespace corvane::tool
