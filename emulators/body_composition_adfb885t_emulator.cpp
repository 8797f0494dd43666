// The scale. Its host sends who is going to step on it; the scale says 01, is told to go on, and waits for
// the person. Once the weight stands still it announces a result on its other characteristic, is asked for
// the analysis with 01, and sends it in two frames, 42 00 and 42 01, or 41 where it failed. Values are
// tenths, high byte first; the fat lies across the two frames.
#include <algorithm>
#include <array>

#include "corvane/devices/body_composition/body_composition_adfb885t_device.h"
#include "emulators/eight_byte_frame.h"
#include "emulators/emulator.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using Driver = BodyCompositionADFB885TDevice;

struct Profile {
    int height = 0;  ///< Centimetres.
    int age = 0;     ///< Years.
    bool male = false;
};

/// Everything in tenths: kilograms, percent for fat and water, and the index.
struct Analysis {
    int weight = 0;
    int bmi = 0;
    int fat = 0;
    int muscle = 0;
    int bone = 0;
    int water = 0;
};

using Frame = std::array<std::uint8_t, 20>;

// The usual rules of thumb, in whole numbers so that every machine agrees.
Analysis analysisOf(const Profile& profile, int bmi) {
    Analysis a;
    a.bmi = bmi;
    a.weight = bmi * profile.height * profile.height / 10000;
    a.fat = std::clamp(bmi * 12 / 10 + profile.age * 23 / 10 - (profile.male ? 108 : 0) - 54, 50, 550);
    a.water = (1000 - a.fat) * 73 / 100;
    const int lean = a.weight * (1000 - a.fat) / 1000;
    a.bone = lean * 5 / 100;
    a.muscle = lean - a.bone;
    return a;
}

void put(Frame& frame, std::size_t at, int value) {
    frame[at] = highByte(value);
    frame[at + 1] = lowByte(value);
}

bool isProfile(Bytes value) {
    return value.size() == 13 && value[0] == 0x81 && value[2] == 0x81 && value[12] == 0x41;
}

bool isGoOn(Bytes value) { return value.size() == 7 && value[0] == 0x41 && value[2] == 0x82; }

class ADFB885TEmulator final : public Emulator {
public:
    explicit ADFB885TEmulator(const EmulatorOptions& options) : Emulator(options) {}

    std::string name() const override { return std::string(Driver::deviceName); }
    std::vector<GattService> services() const override {
        return {{Driver::serviceCBUUID,
                 {{Driver::characteristicCBUUIDReadWrite, gatt::notify | gatt::write},
                  {Driver::characteristicCBUUIDIndicateWrite, gatt::indicate | gatt::writeWithoutResponse}}}};
    }

private:
    enum class Stage { awaitsProfile, awaitsGoOn, weighs, announced };

    void linked() override { stage_ = Stage::awaitsProfile; }

    void received(const CBUUID& characteristic, Bytes value) override {
        if (characteristic == Driver::characteristicCBUUIDIndicateWrite) {
            if (isProfile(value)) acknowledge({value[8], value[9], value[10] == 1});
            if (isGoOn(value) && stage_ == Stage::awaitsGoOn) weigh();
        } else if (value.size() == 1 && value[0] == 0x01 && stage_ == Stage::announced) {
            after(300ms, [this] { failsFirstMeasurement() ? sendFailure() : sendAnalysis(); });
        }
    }

    void acknowledge(const Profile& profile) {
        profile_ = profile;
        stage_ = Stage::awaitsGoOn;
        after(100ms, [this] {
            const std::uint8_t acknowledgement[] = {0x01};
            send(Driver::characteristicCBUUIDIndicateWrite, acknowledgement);
        });
    }

    void weigh() {
        stage_ = Stage::weighs;
        after(random().between(3s, 6s), [this] {
            stage_ = Stage::announced;
            const std::uint8_t announcement[13] = {0x81, 0x00, 0x01};
            send(Driver::characteristicCBUUIDReadWrite, announcement);
        });
    }

    void sendAnalysis() {
        const Analysis a = analysisOf(profile_, random().between(185, 310));
        Frame first{0x42, 0x00};
        put(first, 13, a.weight);
        put(first, 15, a.bmi);
        first[19] = highByte(a.fat);
        Frame second{0x42, 0x01, lowByte(a.fat)};
        put(second, 7, a.muscle);
        put(second, 11, a.bone);
        put(second, 13, a.water);
        send(Driver::characteristicCBUUIDReadWrite, first);
        after(100ms, [this, second] { send(Driver::characteristicCBUUIDReadWrite, second); });
    }

    void sendFailure() {
        const std::uint8_t failure[] = {0x41, 0x00, 0x01};
        send(Driver::characteristicCBUUIDReadWrite, failure);
    }

    Stage stage_ = Stage::awaitsProfile;
    Profile profile_;
};

}  // namespace

template <>
std::unique_ptr<Emulator> makeEmulatorOf<Driver>(const EmulatorOptions& options) {
    return std::make_unique<ADFB885TEmulator>(options);
}

}  // namespace corvane
