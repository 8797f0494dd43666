// The blood-pressure cuff of the eight-byte family. Command 43 starts it: while it inflates it tells the
// pressure of the cuff where the systolic value will be, then it listens while the pressure falls, sends the
// reading (systolic, diastolic, pulse in the last three data bytes), and closes with command 54, all zero.
#include "corvane/devices/blood_pressure/blood_pressure_td3140_device.h"

#include "emulators/eight_byte_frame.h"
#include "emulators/emulator.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using Driver = BloodPressureTD3140Device;

constexpr std::uint8_t measurePressure = 0x43;
constexpr std::uint8_t close = 0x54;

class TD3140Emulator final : public Emulator {
public:
    explicit TD3140Emulator(const EmulatorOptions& options) : Emulator(options) {}

    std::string name() const override { return std::string(Driver::deviceName); }
    std::vector<GattService> services() const override {
        return {{Driver::serviceCBUUID, {{Driver::characteristicCBUUID, gatt::notify | gatt::write}}}};
    }

private:
    void linked() override { running_ = false; }

    void received(const CBUUID& /*characteristic*/, Bytes value) override {
        if (running_ || requestedCommand(value) != measurePressure) return;
        running_ = true;
        systolic_ = random().between(98, 165);
        diastolic_ = systolic_ - random().between(32, 55);
        after(800ms, [this] { inflate(0); });
    }

    void inflate(int pressure) {
        const bool tight = pressure > systolic_ + 30;
        if (tight) {
            after(random().between(6s, 10s), [this] { tellReading(); });
            return;
        }
        pressure += random().between(8, 18);
        tell(measurePressure, pressure, 0, 0);
        after(400ms, [this, pressure] { inflate(pressure); });
    }

    void tellReading() {
        tell(measurePressure, systolic_, diastolic_, random().between(52, 105));
        after(300ms, [this] {
            tell(close, 0, 0, 0);
            running_ = false;
        });
    }

    void tell(std::uint8_t command, int systolic, int diastolic, int pulse) {
        send(Driver::characteristicCBUUID,
             answerFrame(command, {0, lowByte(systolic), lowByte(diastolic), lowByte(pulse)}));
    }

    bool running_ = false;
    int systolic_ = 0;
    int diastolic_ = 0;
};

}  // namespace

template <>
std::unique_ptr<Emulator> makeEmulatorOf<Driver>(const EmulatorOptions& options) {
    return std::make_unique<TD3140Emulator>(options);
}

}  // namespace corvane
