#include "corvane/platform/bluez/event_loop.h"

#include <gtest/gtest.h>

#include "corvane/platform/bluez/bluez_platform.h"

namespace corvane {
namespace {

// A regression ends in the test runner's own limit: the wait has no end of its own.
TEST(EventLoop, DoesNotSleepBetweenATaskAndWhoeverWaitsForIt) {
    bluez::EventLoop loop;
    bool done = false;
    loop.post([&] { done = true; });
    while (!done) loop.step();
    EXPECT_TRUE(done);
}

TEST(BlueZPlatform, WithoutABusSaysThatThereIsNoRadio) {
    struct Delegate final : CBCentralManagerDelegate {
        void didUpdateState() override { ++events; }
        void didDiscover(const PeripheralRef& /*peripheral*/) override {}
        void didConnect(const PeripheralRef& /*peripheral*/) override {}
        void didDisconnectPeripheral(const PeripheralRef& /*peripheral*/, const CBError* /*error*/) override {
        }
        int events = 0;
    };
    BlueZPlatform platform({.busAddress = "unix:path=/nonexistent/bus"});
    const auto delegate = std::make_shared<Delegate>();
    const auto central = platform.makeCentralManager(delegate);
    EXPECT_EQ(central->state(), CBManagerState::unknown);
    EXPECT_TRUE(platform.runUntil([&] { return delegate->events > 0; }, std::chrono::hours(1)));
    EXPECT_EQ(central->state(), CBManagerState::unsupported);
}

}  // namespace
}  // namespace corvane
