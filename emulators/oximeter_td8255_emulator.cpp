// The oximeter of the eight-byte family. It speaks only when asked with command 49, and answers with the
// saturation (16 bits, low byte first) and, in the last data byte, the pulse rate. Until the finger has been
// found both are zero.
#include <algorithm>

#include "corvane/devices/oximeter/oximeter_td8255_device.h"
#include "emulators/eight_byte_frame.h"
#include "emulators/emulator.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using Driver = OximeterTD8255Device;

constexpr std::uint8_t readOximeter = 0x49;

class TD8255Emulator final : public Emulator {
public:
    explicit TD8255Emulator(const EmulatorOptions& options) : Emulator(options) {}

    std::string name() const override { return std::string(Driver::deviceName); }
    std::vector<GattService> services() const override {
        return {{Driver::serviceCBUUID, {{Driver::characteristicCBUUID, gatt::notify | gatt::write}}}};
    }

private:
    void linked() override {
        pulse_ = random().between(55, 100);
        oxygen_ = random().between(94, 99);
        answersUntilFound_ = random().between(2, 4);
    }

    void received(const CBUUID& /*characteristic*/, Bytes value) override {
        if (requestedCommand(value) == readOximeter)
            after(random().between(40ms, 120ms), [this] { answer(); });
    }

    void answer() {
        if (answersUntilFound_ > 0) {
            --answersUntilFound_;
            tell(0, 0);
            return;
        }
        pulse_ = std::clamp(pulse_ + random().between(-1, 1), 50, 105);
        oxygen_ = std::clamp(oxygen_ + random().between(-1, 1), 93, 99);
        tell(oxygen_, pulse_);
    }

    void tell(int oxygen, int pulse) {
        send(Driver::characteristicCBUUID,
             answerFrame(readOximeter, {lowByte(oxygen), highByte(oxygen), 0, lowByte(pulse)}));
    }

    int pulse_ = 0;
    int oxygen_ = 0;
    int answersUntilFound_ = 0;
};

}  // namespace

template <>
std::unique_ptr<Emulator> makeEmulatorOf<Driver>(const EmulatorOptions& options) {
    return std::make_unique<TD8255Emulator>(options);
}

}  // namespace corvane
