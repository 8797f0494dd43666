#include "tests/bluez/air.h"

#include <poll.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>

namespace corvane::bluez {
namespace {

// Long enough for what is sent to pass the daemon in both directions, and for the shortest retries.
constexpr auto settlingTime = std::chrono::milliseconds(80);

BlueZOptions onPrivateBus(BlueZOptions options) {
    options.busAddress = privateBus().address();
    return options;
}

}  // namespace

PrivateBus& privateBus() {
    static PrivateBus bus;
    // Without it nothing here can pass, and nothing must hang.
    if (bus.address().empty()) {
        std::fprintf(stderr, "no private bus: %s\n", bus.failure().c_str());
        std::exit(EXIT_FAILURE);
    }
    return bus;
}

Air::Air(BlueZOptions options)
    : service(privateBus().address(), serviceLoop),
      platform(std::make_unique<BlueZPlatform>(onPrivateBus(std::move(options)))) {}

Air::~Air() { serviceLoop.discardTasks(); }

bool Air::runUntil(const std::function<bool()>& done, std::chrono::nanoseconds limit) {
    const auto end = Clock::now() + limit;
    while (!done()) {
        if (Clock::now() >= end) return false;
        turn(end - Clock::now());
    }
    return true;
}

void Air::runFor(std::chrono::nanoseconds time) {
    runUntil([] { return false; }, time);
}

void Air::settle() {
    runFor(settlingTime);
    // What the daemon had received when it answers, it has passed on.
    for (int i = 0; i < 4; ++i) {
        bool passed = false;
        const Slot call = service.ping([&] { passed = true; });
        runUntil([&] { return passed || !call; });
    }
}

void Air::turn(std::chrono::nanoseconds longest) {
    for (const auto& timeout : {serviceLoop.timeout(), platform->timeout()}) {
        if (timeout) longest = std::min(longest, *timeout);
    }
    pollfd both[] = {{.fd = serviceLoop.descriptor(), .events = POLLIN, .revents = 0},
                     {.fd = platform->descriptor(), .events = platform->events(), .revents = 0}};
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(longest).count();
    ::poll(both, 2, static_cast<int>(std::clamp<std::int64_t>(milliseconds, 0, INT_MAX)));
    serviceLoop.step(std::chrono::nanoseconds::zero());
    platform->process();
}

}  // namespace corvane::bluez
