// Reads a thermometer through this computer's Bluetooth, in a program with a loop of its own: it also waits
// for its user, who ends it with Enter.
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <iostream>

#include "corvane/corvane.h"
#include "corvane/platform/bluez/bluez_platform.h"

int main() {
    corvane::BlueZPlatform platform;
    platform.diagnostics = [](std::string_view line) { std::cerr << corvane::printable(line) << '\n'; };
    corvane::TemperatureAOJ20ADevice thermometer(/*autoResult=*/true, platform);
    bool done = false;
    thermometer.stateLoading = [&](const corvane::StateDeviceLoading<corvane::TemperatureInfo>& state) {
        if (state.success()) std::cout << state.success()->temperature << " degrees\n";
        done = state.success() != nullptr;
    };
    thermometer.stateConnection = [&](corvane::StateDeviceConnection state) {
        if (state == corvane::StateDeviceConnection::disconnect && !done) thermometer.startScan();
    };
    thermometer.startScan();

    while (!done) {
        const auto timeout = platform.timeout();
        const auto wait = timeout ? std::chrono::ceil<std::chrono::milliseconds>(*timeout).count() : -1;
        pollfd ready[] = {{platform.descriptor(), platform.events(), 0}, {STDIN_FILENO, POLLIN, 0}};
        poll(ready, 2, static_cast<int>(wait));
        platform.process();
        if (ready[1].revents != 0) return 1;
    }
    return 0;
}
