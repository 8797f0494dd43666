// A BlueZ platform and a stand-in of the service behind it, on one thread, each with a loop of its own.
#pragma once

#include <memory>

#include "corvane/platform/bluez/bluez_platform.h"
#include "tests/bluez/private_bus.h"
#include "tests/bluez/stand_in.h"

namespace corvane::bluez {

/// The daemon of this test program.
PrivateBus& privateBus();

class Air {
public:
    explicit Air(BlueZOptions options = {});
    ~Air();

    /// Runs both until `done`, which is asked after each round. False when that takes longer than anything
    /// ought to.
    bool runUntil(const std::function<bool()>& done,
                  std::chrono::nanoseconds limit = std::chrono::seconds(30));
    void runFor(std::chrono::nanoseconds time);
    /// Until nothing is on its way between the two.
    void settle();

    EventLoop serviceLoop;
    StandIn service;
    std::unique_ptr<BlueZPlatform> platform;

private:
    void turn(std::chrono::nanoseconds longest);
};

}  // namespace corvane::bluez
