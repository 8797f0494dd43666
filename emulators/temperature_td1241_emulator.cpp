// The ear thermometer of the eight-byte family. Asked with command 26, it answers with the body's and the
// room's temperature, each in tenths of a degree, low byte first. A reading that is taken while the link
// stands is sent as well.
#include "corvane/devices/temperature/temperature_td1241_device.h"

#include "emulators/eight_byte_frame.h"
#include "emulators/emulator.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using Driver = TemperatureTD1241Device;

constexpr std::uint8_t readTemperature = 0x26;

class TD1241Emulator final : public Emulator {
public:
    explicit TD1241Emulator(const EmulatorOptions& options) : Emulator(options) {}

    std::string name() const override { return std::string(Driver::deviceName); }
    std::vector<GattService> services() const override {
        return {{Driver::serviceCBUUID, {{Driver::characteristicCBUUID, gatt::notify | gatt::write}}}};
    }

private:
    void received(const CBUUID& /*characteristic*/, Bytes value) override {
        if (requestedCommand(value) == readTemperature) keepMeasuring(300ms, 900ms);
    }

    void measure() override {
        const int body = random().between(358, 399);
        const int room = random().between(190, 260);
        send(Driver::characteristicCBUUID,
             answerFrame(readTemperature, {lowByte(body), highByte(body), lowByte(room), highByte(room)}));
    }
};

}  // namespace

template <>
std::unique_ptr<Emulator> makeEmulatorOf<Driver>(const EmulatorOptions& options) {
    return std::make_unique<TD1241Emulator>(options);
}

}  // namespace corvane
