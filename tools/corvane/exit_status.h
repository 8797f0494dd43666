#pragma once

namespace corvane::tool {

/// What the program tells the shell. Scripts rely on the numbers.
enum class ExitStatus {
    done = 0,
    internalError = 1,
    wrongUsage = 2,
    preconditionFailed = 3,
    timedOut = 4,
    noRadio = 5,
    deviceError = 6,
    interrupted = 130,
};

}  // namespace corvane::tool
