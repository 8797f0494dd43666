// The meter for three strips: glucose, uric acid, cholesterol. A test goes out as one frame of 13 bytes: 02,
// what was measured (41, 51, 61 as digits), the number of the test, and at the end the value: 12 bits, low
// byte first, with a scale in the high half of the second byte. Cholesterol is told in tenths.
#include <cstdint>
#include <numeric>

#include "corvane/devices/multi_monitoring/multi_monitoring_benecheck_device.h"
#include "emulators/eight_byte_frame.h"
#include "emulators/emulator.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using Driver = MultiMonitoringBeneCheckDevice;

struct Strip {
    std::uint8_t code;
    int lowest;
    int highest;
};
constexpr Strip strips[] = {{0x41, 68, 240}, {0x51, 28, 84}, {0x61, 1300, 2900}};

class BeneCheckEmulator final : public Emulator {
public:
    explicit BeneCheckEmulator(const EmulatorOptions& options)
        : Emulator(options), serial_(random().between(1000, 9999)), tests_(random().between(0, 2)) {}

    // Each device adds its serial number.
    std::string name() const override {
        return std::string(Driver::deviceName) + '-' + std::to_string(serial_);
    }
    std::vector<GattService> services() const override {
        return {{Driver::serviceCBUUID, {{Driver::characteristicCBUUID, gatt::notify}}}};
    }

private:
    void subscribedTo(const CBUUID& /*characteristic*/) override { keepMeasuring(2s, 5s); }

    void measure() override {
        const Strip& strip = strips[++tests_ % 3];
        const int value = random().between(strip.lowest, strip.highest);
        std::uint8_t frame[13] = {0x02, strip.code, lowByte(tests_), highByte(tests_)};
        frame[10] = lowByte(value);
        frame[11] = static_cast<std::uint8_t>(0xB0 | highByte(value));
        frame[12] = lowByte(std::accumulate(frame, frame + 12, 0));
        send(Driver::characteristicCBUUID, frame);
    }

    const int serial_;
    int tests_;
};

}  // namespace

template <>
std::unique_ptr<Emulator> makeEmulatorOf<Driver>(const EmulatorOptions& options) {
    return std::make_unique<BeneCheckEmulator>(options);
}

}  // namespace corvane
