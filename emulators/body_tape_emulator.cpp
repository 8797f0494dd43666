// The tape measure: each length it is set to goes out as text, a decimal number and the unit it is switched
// to, PI for inches and PM for centimetres. The person switches it over between measurements. A measurement
// that fails is a text without a unit.
#include "corvane/devices/body_tape/body_tape_device.h"

#include "emulators/emulator.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using Driver = BodyTapeDevice;

class BodyTapeEmulator final : public Emulator {
public:
    explicit BodyTapeEmulator(const EmulatorOptions& options)
        : Emulator(options), inches_(random().chance(50)), mustFail_(failsFirstMeasurement()) {}

    std::string name() const override { return std::string(Driver::deviceName); }
    std::vector<GattService> services() const override {
        return {{Driver::serviceCBUUID, {{Driver::characteristicCBUUID, gatt::notify}}}};
    }

private:
    void subscribedTo(const CBUUID& /*characteristic*/) override { keepMeasuring(2s, 5s); }

    void measure() override {
        const int millimetres = random().between(240, 1350);
        const int tenths = inches_ ? millimetres * 100 / 254 : millimetres;
        std::string text = std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10);
        if (!mustFail_) text += inches_ ? "PI" : "PM";
        mustFail_ = false;
        inches_ = !inches_;
        send(Driver::characteristicCBUUID, std::vector<std::uint8_t>(text.begin(), text.end()));
    }

    bool inches_;
    bool mustFail_;
};

}  // namespace

template <>
std::unique_ptr<Emulator> makeEmulatorOf<Driver>(const EmulatorOptions& options) {
    return std::make_unique<BodyTapeEmulator>(options);
}

}  // namespace corvane
