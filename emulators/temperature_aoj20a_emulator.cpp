// The ear thermometer: the person presses the button, and a second or so later the reading goes out. Frame,
// 8 bytes: AA 55, kind 01, count of bytes that follow, the reading in hundredths of a degree (12 bits, high
// byte first), the place it was taken at, and the low byte of the sum of all before.
#include <cstdint>
#include <numeric>

#include "corvane/devices/temperature/temperature_aoj20a_device.h"
#include "emulators/emulator.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using Driver = TemperatureAOJ20ADevice;

class AOJ20AEmulator final : public Emulator {
public:
    explicit AOJ20AEmulator(const EmulatorOptions& options) : Emulator(options) {}

    std::string name() const override { return std::string(Driver::deviceName); }
    std::vector<GattService> services() const override {
        return {{Driver::serviceCBUUID, {{Driver::characteristicCBUUID, gatt::notify}}}};
    }

private:
    void subscribedTo(const CBUUID& /*characteristic*/) override { keepMeasuring(2s, 5s); }

    void measure() override {
        const int hundredths = random().between(3580, 3990);
        std::uint8_t frame[8] = {0xAA, 0x55, 0x01, 0x04};
        frame[4] = static_cast<std::uint8_t>(hundredths >> 8);
        frame[5] = static_cast<std::uint8_t>(hundredths & 0xFF);
        frame[6] = 0x01;
        frame[7] = static_cast<std::uint8_t>(std::accumulate(frame, frame + 7, 0));
        send(Driver::characteristicCBUUID, frame);
    }
};

}  // namespace

template <>
std::unique_ptr<Emulator> makeEmulatorOf<Driver>(const EmulatorOptions& options) {
    return std::make_unique<AOJ20AEmulator>(options);
}

}  // namespace corvane
