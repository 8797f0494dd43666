// Writes down, while it happens, what comes to a driver and what comes from it: a script, and the trace that
// replaying the script gives.
#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>
#include <memory>

#include "sessions/host_device.h"

namespace corvane::sessions {

struct Recording {
    /// Real or virtual time, from whenever on; it never goes back.
    std::function<std::chrono::nanoseconds()> clock;
    /// Each may be null. They are flushed whenever the driver has come to rest; whether everything could be
    /// written shows in their state.
    std::ostream* script = nullptr;
    std::ostream* trace = nullptr;
};

/// A driver that is recorded: what `makeHostDevice` makes, with a tap on the platform and one on everything
/// that the host does through this object. The host does it between events, or inside a callback (through
/// the listener), and nowhere else. Destroying this object destroys the driver, and records that too; not
/// inside a callback, where `destroy` does it.
///
/// A failed precondition drops the frame, whatever the platform would do about it, and is passed on to the
/// platform's `onPreconditionFailed` where there is one.
///
/// The platform and the streams must outlive the device. What a script cannot say is kept from the driver:
/// a value waits while the services have been discovered anew and their characteristics have not, and a
/// timer that is due waits for the tasks before it.
std::unique_ptr<HostDevice> makeRecordedDevice(const DeviceSetup& setup, Platform& platform,
                                               HostListener listener, const Recording& recording);

}  // namespace corvane::sessions
