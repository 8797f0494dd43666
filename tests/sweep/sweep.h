// The lifetime sweep: whatever an application may do to a driver, at every moment at which it can.
//
// For each driver, a measurement is first played undisturbed. Then it is played again for each moment of it,
// between any two steps of the queue and inside each callback, console line and violation, and for each
// action. Whatever happens, after the driver's destruction nothing more of it may be seen, and the back end
// may hold nothing for it.
//
// A back end is plugged in with one small file: a `SweepBackEnd` for it, and one line,
//
//     static const bool registered = registerSweep("CoreBluetooth", [] { return ...; });
//
// in a program that links `lifetime_sweep`.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "corvane/platform/peripheral_device.h"
#include "corvane/platform/platform.h"

namespace corvane::sweep {

/// A platform with an air of its own, on which nothing is yet, and with the adapter on.
class SweepBackEnd {
public:
    virtual ~SweepBackEnd() = default;

    virtual Platform& platform() = 0;
    virtual void add(std::shared_ptr<PeripheralDevice> device) = 0;
    /// `poweredOn` or `poweredOff`.
    virtual void setState(CBManagerState state) = 0;
    /// Runs the next item of the main queue. False when there is none.
    virtual bool step() = 0;
    /// Runs the main queue until what is under way has come to its end.
    virtual void settle() = 0;
    /// How many operations were called on centrals and peripherals so far.
    virtual std::size_t operations() = 0;
    /// What is left of drivers that are gone, in words: scans, links, timers. Empty when nothing is.
    virtual std::string leftovers() = 0;
};

using MakeSweepBackEnd = std::function<std::unique_ptr<SweepBackEnd>()>;

/// Makes a test of each driver.
bool registerSweep(const char* backEnd, const MakeSweepBackEnd& make);

}  // namespace corvane::sweep
