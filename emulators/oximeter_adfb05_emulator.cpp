// The fingertip oximeter that streams by itself, four frames a second. While it looks for a pulse it sends
// its pulse wave (80 and ten heights), and now and then 81 FF 7F 00, which says that there is no value yet.
// Then each second one of the frames is a reading: 81, pulse rate, saturation, 00. A measurement that fails
// is a wave frame of 7F throughout; it then looks for the pulse again.
#include "corvane/devices/oximeter/oximeter_adfb05_device.h"

#include <algorithm>

#include "emulators/emulator.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using Driver = OximeterADFB05Device;

constexpr auto framePeriod = 250ms;
constexpr int framesPerSecond = 4;
constexpr int waveHeights = 10;
constexpr int heightsPerMinute = 60 * framesPerSecond * waveHeights;

class ADFB05Emulator final : public Emulator {
public:
    explicit ADFB05Emulator(const EmulatorOptions& options) : Emulator(options) {}

    std::string name() const override { return std::string(Driver::deviceName); }
    std::vector<GattService> services() const override {
        return {{Driver::serviceCBUUID, {{Driver::characteristicCBUUID, gatt::notify}}}};
    }

private:
    void subscribedTo(const CBUUID& /*characteristic*/) override {
        pulse_ = random().between(55, 100);
        oxygen_ = random().between(94, 99);
        lookForPulse();
        mustFail_ = failsFirstMeasurement();
        after(framePeriod, [this] { sendFrame(0); });
    }

    void lookForPulse() { framesUntilFound_ = random().between(3 * framesPerSecond, 6 * framesPerSecond); }

    /// `count` is the number of the frame within its second.
    void sendFrame(int count) {
        if (framesUntilFound_ > 0) --framesUntilFound_;
        const bool found = framesUntilFound_ == 0;
        if (found && mustFail_) {
            mustFail_ = false;
            sendFailure();
            lookForPulse();
        } else if (count != framesPerSecond - 1) {
            sendWave();
        } else if (found) {
            sendReading();
        } else {
            sendNoValue();
        }
        after(framePeriod, [this, count] { sendFrame((count + 1) % framesPerSecond); });
    }

    void sendWave() {
        std::uint8_t frame[1 + waveHeights] = {0x80};
        for (int i = 0; i < waveHeights; ++i) {
            // One beat: a fast rise and a slow fall, never as high as the height that means failure.
            beat_ = (beat_ + pulse_) % heightsPerMinute;
            const int percent = beat_ * 100 / heightsPerMinute;
            const int height = percent < 25 ? percent * 4 : 100 - (percent - 25) * 4 / 3;
            frame[1 + i] = static_cast<std::uint8_t>(10 + height);
        }
        send(Driver::characteristicCBUUID, frame);
    }

    void sendFailure() {
        std::uint8_t frame[1 + waveHeights];
        std::fill(std::begin(frame), std::end(frame), std::uint8_t{0x7F});
        frame[0] = 0x80;
        send(Driver::characteristicCBUUID, frame);
    }

    void sendNoValue() {
        const std::uint8_t frame[] = {0x81, 0xFF, 0x7F, 0x00};
        send(Driver::characteristicCBUUID, frame);
    }

    void sendReading() {
        pulse_ = std::clamp(pulse_ + random().between(-1, 1), 50, 105);
        oxygen_ = std::clamp(oxygen_ + random().between(-1, 1), 93, 99);
        const std::uint8_t frame[] = {0x81, static_cast<std::uint8_t>(pulse_),
                                      static_cast<std::uint8_t>(oxygen_), 0x00};
        send(Driver::characteristicCBUUID, frame);
    }

    int pulse_ = 0;
    int oxygen_ = 0;
    int framesUntilFound_ = 0;
    bool mustFail_ = false;
    int beat_ = 0;  ///< Where the wave stands within a beat, of `heightsPerMinute`.
};

}  // namespace

template <>
std::unique_ptr<Emulator> makeEmulatorOf<Driver>(const EmulatorOptions& options) {
    return std::make_unique<ADFB05Emulator>(options);
}

}  // namespace corvane
