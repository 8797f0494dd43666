// The glucose meter that sends text: base64 of fields between double bars, the first being the reading in
// hexadecimal digits, the second the number of the test. With these two a value fits the 20 bytes that a link
// carries before a larger transfer size is agreed on.
#include "corvane/devices/glucose/glucose_tghglc01_device.h"

#include "emulators/emulator.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using Driver = GlucoseTGHGLC01Device;

std::string hexadecimal(int value, bool upperCase) {
    const char* digits = upperCase ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string text;
    for (; value > 0; value /= 16) text.insert(text.begin(), digits[value % 16]);
    return text;
}

std::string base64(std::string_view text) {
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (std::size_t i = 0; i < text.size(); i += 3) {
        const std::string_view group = text.substr(i, 3);
        unsigned bits = 0;
        for (std::size_t k = 0; k < 3; ++k)
            bits = bits << 8 | (k < group.size() ? static_cast<unsigned char>(group[k]) : 0u);
        for (std::size_t k = 0; k < 4; ++k)
            out += k <= group.size() ? alphabet[bits >> (18 - 6 * k) & 0x3F] : '=';
    }
    return out;
}

class TGHGLC01Emulator final : public Emulator {
public:
    explicit TGHGLC01Emulator(const EmulatorOptions& options) : Emulator(options) {}

    std::string name() const override { return std::string(Driver::deviceName); }
    std::vector<GattService> services() const override {
        return {{Driver::serviceCBUUID, {{Driver::characteristicCBUUID, gatt::notify}}}};
    }

private:
    void subscribedTo(const CBUUID& /*characteristic*/) override { keepMeasuring(2s, 5s); }

    void measure() override {
        const int glucose = random().chance(20) ? random().between(180, 420) : random().between(68, 180);
        const std::string fields =
            hexadecimal(glucose, random().chance(50)) + "||" + std::to_string(1000 + ++testsMade_);
        const std::string text = base64(fields);
        send(Driver::characteristicCBUUID, std::vector<std::uint8_t>(text.begin(), text.end()));
    }

    int testsMade_ = 0;
};

}  // namespace

template <>
std::unique_ptr<Emulator> makeEmulatorOf<Driver>(const EmulatorOptions& options) {
    return std::make_unique<TGHGLC01Emulator>(options);
}

}  // namespace corvane
