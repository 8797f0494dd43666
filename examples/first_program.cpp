#include <chrono>
#include <iostream>

#include "corvane/corvane.h"
#include "corvane/platform/simulated/simulated_radio.h"
#include "emulators/emulator.h"

int main() {
    corvane::SimulatedRadio radio;
    radio.add(corvane::makeEmulator(corvane::TemperatureAOJ20ADevice::model, {}));

    corvane::TemperatureAOJ20ADevice thermometer(/*autoResult=*/true, radio);
    bool done = false;
    thermometer.stateLoading = [&](const corvane::StateDeviceLoading<corvane::TemperatureInfo>& state) {
        if (state.isLoading()) std::cout << "linked, waiting for a reading\n";
        if (state.error()) std::cout << "failed: " << *state.error() << '\n';
        if (state.success()) std::cout << state.success()->temperature << " degrees\n";
        done = state.success() != nullptr;
    };
    thermometer.startScan();
    return radio.runUntil([&] { return done; }, std::chrono::minutes(1)) ? 0 : 1;
}
