// The back end, and a stand-in of the service behind it, on one loop and in a time that passes by itself
// when nothing is on its way.
#pragma once

#include <memory>

#include "corvane/platform/bluez/radio.h"
#include "tests/bluez/private_bus.h"
#include "tests/bluez/stand_in.h"

namespace corvane::bluez {

/// The daemon of this test program.
PrivateBus& privateBus();

/// What BlueZPlatform is, on a loop that the test owns.
class LoopPlatform final : public Platform {
public:
    LoopPlatform(BlueZOptions options, EventLoop& loop);
    std::shared_ptr<CBCentralManager>
    makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) override;
    MainQueue& mainQueue() override { return loop_; }
    Radio& radio() { return *radio_; }

private:
    EventLoop& loop_;
    std::shared_ptr<Radio> radio_;
};

class Air {
public:
    explicit Air(BlueZOptions options = {});
    ~Air();

    /// Runs everything until `done`. False when nothing is left to happen, or it takes longer than that.
    bool runUntil(const std::function<bool()>& done,
                  std::chrono::nanoseconds limit = std::chrono::minutes(5));
    /// Runs everything that happens in this time.
    void runFor(std::chrono::nanoseconds time);

    /// What either side has sent is where it is to go when this returns; nobody has handled it yet.
    void passOn();

    /// How many rules the daemon keeps for the platform.
    std::size_t matchRules();

    EventLoop loop;
    StandIn service;
    LoopPlatform platform;

private:
    bool isQuiet();
    void ask(const char* interface, const char* member, const std::function<void(const Reply&)>& answered);

    std::shared_ptr<Bus> witness_;  // Neither side's; asks the daemon.
};

}  // namespace corvane::bluez
