// The glucose meter of the eight-byte family. Asked with command 26, it answers with the reading, low byte
// first. A test that is made while the link stands is sent as well.
#include "corvane/devices/glucose/glucose_td4257_device.h"

#include "emulators/eight_byte_frame.h"
#include "emulators/emulator.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using Driver = GlucoseTD4257Device;

constexpr std::uint8_t readReading = 0x26;

class TD4257Emulator final : public Emulator {
public:
    explicit TD4257Emulator(const EmulatorOptions& options) : Emulator(options) {}

    std::string name() const override { return std::string(Driver::deviceName); }
    std::vector<GattService> services() const override {
        return {{Driver::serviceCBUUID, {{Driver::characteristicCBUUID, gatt::notify | gatt::write}}}};
    }

private:
    void received(const CBUUID& /*characteristic*/, Bytes value) override {
        if (requestedCommand(value) == readReading) keepMeasuring(300ms, 900ms);
    }

    void measure() override {
        // As a meter set to milligrams per decilitre shows it; a few people are far above the rest.
        const int glucose = random().chance(20) ? random().between(180, 420) : random().between(68, 180);
        send(Driver::characteristicCBUUID,
             answerFrame(readReading, {lowByte(glucose), highByte(glucose), 0, 0}));
    }
};

}  // namespace

template <>
std::unique_ptr<Emulator> makeEmulatorOf<Driver>(const EmulatorOptions& options) {
    return std::make_unique<TD4257Emulator>(options);
}

}  // namespace corvane
