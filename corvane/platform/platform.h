// What a driver needs from the system it runs on.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "corvane/platform/central.h"
#include "corvane/platform/main_queue.h"

namespace corvane {

/// The text with control characters (C0, DEL and C1) and backslashes written as escapes, so that it cannot
/// steer a terminal. What is not UTF-8 is escaped byte by byte.
std::string printable(std::string_view text);

/// Prints one line on standard output, through `printable`.
void writeConsoleLine(std::string_view line);

/// Prints both texts on standard error and aborts.
[[noreturn]] void stopProcess(std::string_view driver, std::string_view what);

// Its virtual functions are inline on purpose: a program with RTTI can then derive from it although the core
// was built without.
/// A back end: the central role, the main queue, and where lines and violations go. A platform must outlive
/// every driver that was given it. Nothing here is safe to call from another thread than the main queue's.
class Platform {
public:
    Platform() = default;
    virtual ~Platform() = default;
    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;

    /// `delegate` is held weakly. Its first event is a state event, from the queue.
    virtual std::shared_ptr<CBCentralManager>
    makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) = 0;

    virtual MainQueue& mainQueue() = 0;

    /// A diagnostic line of a driver, without a line end. Goes to `logSink` where the host has set one,
    /// otherwise to standard output with control characters escaped.
    virtual void log(std::string_view line) {
        if (logSink) {
            logSink(line);
        } else {
            writeConsoleLine(line);
        }
    }

    /// A documented precondition does not hold (a frame too short for its fixed positions, a profile value
    /// that does not fit one byte, ...). Calls `onPreconditionFailed` where the host has set one; the rest of
    /// the handling of that one value is then dropped. Otherwise prints both texts on standard error and
    /// stops the process.
    virtual void preconditionFailed(std::string_view driver, std::string_view what) {
        if (onPreconditionFailed) {
            onPreconditionFailed(driver, what);
        } else {
            stopProcess(driver, what);
        }
    }

    /// Receives a line as the driver wrote it: names in it come from strangers' radios. Use `printable`
    /// before such a line reaches a terminal.
    std::function<void(std::string_view line)> logSink;

    /// Receives what a back end was refused, tries again or gives up, a line each; may be absent. A line can
    /// hold what a neighbour sends: use `printable` before it reaches a terminal.
    std::function<void(std::string_view line)> diagnostics;

    /// Set it to live on after a device breaks a precondition.
    std::function<void(std::string_view driver, std::string_view what)> onPreconditionFailed;
};

/// The platform that drivers use when they are given none. Exactly one back end linked into a program defines
/// it; it is made on first use and never destroyed.
Platform& defaultPlatform();

}  // namespace corvane
