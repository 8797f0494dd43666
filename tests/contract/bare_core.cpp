// An ordinary program, with exceptions and RTTI, against a core that was built without either.
#include <cstdio>
#include <stdexcept>
#include <typeinfo>

#include "corvane/corvane.h"
#include "tests/support/direct_platform.h"

namespace {

struct Thermometer final : corvane::PeripheralDevice {
    std::string name() const override { return "AOJ-20A"; }
    std::vector<corvane::GattService> services() const override {
        using Driver = corvane::TemperatureAOJ20ADevice;
        return {{Driver::serviceCBUUID, {{Driver::characteristicCBUUID, corvane::gatt::notify}}}};
    }
};

}  // namespace

int main() try {
    corvane::DirectPlatform platform{Thermometer{}};
    corvane::TemperatureAOJ20ADevice driver{true, platform};
    std::string temperature;
    driver.stateLoading = [&](const auto& state) {
        if (state.success()) temperature = state.success()->temperature;
    };
    driver.startScan();
    platform.link();
    const auto link = platform.peripheral->delegate.lock();
    const std::uint8_t frame[] = {0, 0, 0, 0, 0x0E, 0x42};
    link->didUpdateValueFor(platform.peripheral, platform.peripheral->characteristics[0], frame, nullptr);

    const corvane::Platform& base = platform;
    const corvane::CBPeripheral& peripheral = *platform.peripheral;
    const bool known = dynamic_cast<const corvane::DirectPlatform*>(&base) &&
                       typeid(base) == typeid(corvane::DirectPlatform) &&
                       typeid(peripheral) == typeid(corvane::DirectPeripheral);
    if (temperature != "36.5" || !known) throw std::runtime_error("unexpected: " + temperature);
    std::puts("36.5 from a core without exceptions and RTTI");
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
