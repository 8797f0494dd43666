// The recorder holds one case and hands it over when asked. Both sides speak in frames of 64 bytes:
//
//   90 00  how many cases?     -> C0 status, E1 number of cases
//   90 02  what is in it?      -> E1 the case, with the pulse as two halves of seven bits in bytes 14 and 15
//   A0     give the waveform   -> blocks of D0 frames, each block ended by E0; then the end of the transfer,
//                                 F0, which is known by the 7F before its last byte
//   FE     confirms; after E0 the recorder goes on only when it has been confirmed
//
// A D0 frame has 25 samples from byte 10 on, low byte first, with 4000 (hexadecimal) for zero. The byte
// before the last of every frame but the end is zero: a 7F there would end the transfer. Frames of this
// length need a transfer size that a central on the air asks for (67 bytes); the smallest one carries 20.
#include "emulators/ecg_td4257_emulator.h"

#include <algorithm>
#include <array>

#include "corvane/devices/ecg/ecg_td4257_device.h"
#include "emulators/eight_byte_frame.h"
#include "emulators/emulator.h"
#include "emulators/heart_trace.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using Driver = ECGTD4257Device;
using Frame = std::array<std::uint8_t, 64>;

constexpr std::size_t samplesPerFrame = 25;
constexpr std::size_t framesPerBlock = 50;
constexpr auto framePeriod = 10ms;

constexpr std::uint8_t sevenBits(std::size_t value) { return static_cast<std::uint8_t>(value & 0x7F); }

class ECGRecorderEmulator final : public Emulator {
public:
    explicit ECGRecorderEmulator(const EmulatorOptions& options)
        : Emulator(options), serial_(random().between(1000, 9999)), pulse_(random().between(52, 140)),
          samples_(heartTrace(pulse_, emulatedEcgSeconds, emulatedEcgSamplesPerSecond, random())) {}

    // Each device adds its serial number.
    std::string name() const override { return std::string(Driver::ecgName) + '-' + std::to_string(serial_); }

    // A host that finds the command characteristic first has nowhere to hear the answer, and does not ask.
    std::vector<GattService> services() const override {
        return {{Driver::serviceCBUUID,
                 {{Driver::characteristicCBUUIDread, gatt::notify},
                  {Driver::characteristicCBUUIDwrite, gatt::write}}}};
    }

private:
    enum class Transfer { idle, sending, awaitsConfirmation };

    void linked() override { transfer_ = Transfer::idle; }

    void received(const CBUUID& /*characteristic*/, Bytes command) override {
        if (command.size() != Frame().size()) return;
        switch (command[0]) {
        case 0x90:
            command[1] == 0x02 ? tellCase() : tellCases();
            break;
        case 0xA0:
            beginTransfer();
            break;
        case 0xFE:
            confirmed();
            break;
        default:
            break;
        }
    }

    void tellCases() {
        after(40ms, [this] { tell({0xC0, 0x01, 0x5A}); });
        after(80ms, [this] { tell({0xE1, 0x00, 0x01}); });
    }

    void tellCase() {
        Frame info{0xE1, 0x02, 0x01};
        info[14] = sevenBits(static_cast<std::size_t>(pulse_ / 128));
        info[15] = sevenBits(static_cast<std::size_t>(pulse_ % 128));
        after(40ms, [this, info] { tell(info); });
    }

    // A host may ask again while the waveform is already on its way; that changes nothing.
    void beginTransfer() {
        if (transfer_ != Transfer::idle) return;
        transfer_ = Transfer::sending;
        nextFrame_ = 0;
        after(200ms, [this] { sendWaveform(); });
    }

    void confirmed() {
        if (transfer_ != Transfer::awaitsConfirmation) return;
        transfer_ = Transfer::sending;
        after(20ms, [this] { nextFrame_ < frameCount() ? sendWaveform() : endTransfer(); });
    }

    void sendWaveform() {
        tell(waveform(nextFrame_++));
        const bool blockEnds = nextFrame_ % framesPerBlock == 0 || nextFrame_ == frameCount();
        after(framePeriod, [this, blockEnds] { blockEnds ? endBlock() : sendWaveform(); });
    }

    Frame waveform(std::size_t index) const {
        Frame frame{0xD0, sevenBits(index / framesPerBlock), sevenBits(index), sevenBits(index >> 7),
                    samplesPerFrame};
        for (std::size_t i = 0; i < samplesPerFrame; ++i) {
            const int sample = 0x4000 + samples_[index * samplesPerFrame + i];
            frame[10 + 2 * i] = lowByte(sample);
            frame[11 + 2 * i] = highByte(sample);
        }
        return frame;
    }

    void endBlock() {
        transfer_ = Transfer::awaitsConfirmation;
        tell({0xE0, sevenBits((nextFrame_ - 1) / framesPerBlock), sevenBits(nextFrame_),
              sevenBits(nextFrame_ >> 7)});
    }

    void endTransfer() {
        transfer_ = Transfer::idle;
        Frame end{0xF0};
        end[62] = 0x7F;
        tell(end);
    }

    void tell(const Frame& frame) { send(Driver::characteristicCBUUIDread, frame); }

    std::size_t frameCount() const { return samples_.size() / samplesPerFrame; }

    const int serial_;
    const int pulse_;
    const std::vector<int> samples_;
    Transfer transfer_ = Transfer::idle;
    std::size_t nextFrame_ = 0;
};

}  // namespace

template <>
std::unique_ptr<Emulator> makeEmulatorOf<Driver>(const EmulatorOptions& options) {
    return std::make_unique<ECGRecorderEmulator>(options);
}

}  // namespace corvane
