// Runs a session script: a driver is made, everything that comes to it is read from the script, and
// everything that comes from it is written as a trace. No radio, no clock.
#pragma once

#include <iosfwd>

namespace corvane::sessions {

enum class ReplayStatus {
    done = 0,
    faultyScript = 2,        ///< A line is not understood; the trace up to it has been written.
    preconditionFailed = 3,  ///< The library stopped; that is the trace's last line.
};

/// Reads the script to its end, or to where the replay ends. One line on `messages` says what is wrong with a
/// faulty script, and where. Whatever the script holds, the replay ends in one of these ways.
ReplayStatus replay(std::istream& script, std::ostream& trace, std::ostream& messages);

}  // namespace corvane::sessions
