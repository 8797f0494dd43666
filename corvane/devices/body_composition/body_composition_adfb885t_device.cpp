// The scale has two characteristics, and the exchange goes back and forth over both:
//
//   driver, on "indicate-write":  the user's profile, 81 00 81 ...
//   scale,  on "indicate-write":  01, which is answered with 41 00 82 ...
//   scale,  on "read-write":      81 00 01 ..., which is answered with 01: the analysis is asked for
//   scale,  on either:            two answer frames, 42 00 ... and 42 01 ...
//
// A frame that begins with 41 says that the measurement failed. Each step is taken once in a driver's life.
// The fields of the analysis are cut out of the two frames by hexadecimal digit, since some begin in
// mid-byte.
#include "corvane/devices/body_composition/body_composition_adfb885t_device.h"

#include <deque>
#include <utility>

#include "corvane/framework/central_link.h"
#include "corvane/framework/hexadecimal_text.h"
#include "corvane/framework/text_decoding.h"

namespace corvane {

template class Device<BodyCompositionInfo>;

namespace {

using Header = BodyCompositionADFB885TDeviceHeader;
using Gender = BodyCompositionADFB885TDeviceGender;
using Scale = BodyCompositionADFB885TDevice;

constexpr LinkProfile profile{
    .model = Scale::model,
    .characteristic = Scale::characteristicCBUUIDReadWrite,
    .notFound = "bodyCompositionInfo not found",
};

constexpr std::uint8_t analysisRequest[] = {0x01};
constexpr std::uint8_t profileReceipt[] = {0x41, 0x00, 0x82, 0x00, 0x00, 0x00, 0x00};
constexpr std::string_view profileAcknowledged = "01";
constexpr std::string_view analysisReady = "81000100000000000000000000";
constexpr std::string_view firstFrame = "00";
constexpr std::string_view secondFrame = "01";

// Digits up to the last one that is read.
constexpr std::size_t firstFrameDigits = 40;
constexpr std::size_t secondFrameDigits = 30;

std::int64_t number(std::string_view frame, std::size_t at) { return parseHexadecimal(frame.substr(at, 3)); }

double tenths(std::string_view frame, std::size_t at) {
    return static_cast<double>(number(frame, at)) / 10.0;
}

// The number's high byte ends the first frame, its low byte is in the second. Its tenth is dropped.
double fat(std::string_view first, std::string_view second) {
    std::string digits(first.substr(38, 2));
    digits += second.substr(4, 2);
    const std::int64_t whole = parseHexadecimal(digits) / 10;
    return static_cast<double>(whole);
}

std::string shown(const std::deque<std::string>& texts) {
    std::string line = "[";
    for (const std::string& text : texts) {
        if (line.size() > 1) line += ", ";
        line += '"';
        line += text;
        line += '"';
    }
    return line + ']';
}

class ADFB885TSession final : public Session<BodyCompositionInfo> {
public:
    ADFB885TSession(bool autoResult, double height, std::int64_t age, Gender gender, Platform& platform)
        : Session(profile, autoResult, platform), height(height), age(age), gender(gender) {}

private:
    void characteristicFound(const PeripheralRef& from, const CharacteristicRef& found) override {
        peripheral = from;
        if (found->uuid == Scale::characteristicCBUUIDReadWrite) {
            characteristicReadWrite = found;
            subscribe(peripheral, found);
        }
        if (found->uuid == Scale::characteristicCBUUIDIndicateWrite) {
            characteristicIndicateWrite = found;
            subscribe(peripheral, found);
            if (!std::exchange(isSetUserRequest, true)) sendProfile();
        }
    }

    After valueArrived(const ValueUpdate& update) override {
        const std::string text = update.value ? hexadecimalText(*update.value) : "-";
        log(text);
        if (!update.value) return After::reportError;

        const auto header = bodyCompositionADFB885TDeviceHeader(std::string_view(text).substr(0, 2));
        if (header == Header::header_42 && !answerArrived(text, update.uuid())) return After::done;
        if (header == Header::header_41) reportError("process error");
        if (update.isFrom(Scale::characteristicCBUUIDReadWrite) && text == analysisReady &&
            !std::exchange(isBodyCompositionRequest, true)) {
            requestAnalysis();
        }
        if (update.isFrom(Scale::characteristicCBUUIDIndicateWrite) && text == profileAcknowledged &&
            !std::exchange(isSetUserReceive, true)) {
            indicateWrite(profileReceipt);
        }
        return After::reportError;
    }

    // False where a precondition ends the handling.
    bool answerArrived(const std::string& text, const std::string& uuid) {
        if (!require(text.size() >= 4, "answer frame shorter than 2 bytes")) return false;
        const std::string_view number = std::string_view(text).substr(2, 2);
        if (number == firstFrame) return insert(0, text);
        if (number == secondFrame) {
            return require(!bodyCompositionHolderDataSDIC.empty(), "second answer frame before the first") &&
                   insert(1, text) && analyse(uuid);
        }
        return true;
    }

    bool insert(std::size_t index, const std::string& text) {
        if (!require(text.size() <= holderLimit - holderSize, "more than 64 MiB of answer frames"))
            return false;
        holderSize += text.size();
        bodyCompositionHolderDataSDIC.insert(
            bodyCompositionHolderDataSDIC.begin() + static_cast<std::ptrdiff_t>(index), text);
        return true;
    }

    bool analyse(const std::string& uuid) {
        log("hex array = " + shown(bodyCompositionHolderDataSDIC));
        const std::string& first = bodyCompositionHolderDataSDIC[0];
        const std::string& second = bodyCompositionHolderDataSDIC[1];
        if (!require(first.size() >= firstFrameDigits, "first answer frame shorter than 20 bytes") ||
            !require(second.size() >= secondFrameDigits, "second answer frame shorter than 15 bytes")) {
            return false;
        }
        deliver({
            .weight = tenths(first, 27),
            .fat = fat(first, second),
            .bone = tenths(second, 23),
            .water = tenths(second, 27),
            .muscle = tenths(second, 15),
            .bmi = tenths(first, 31),
            .height = height,
            .age = age,
            .gender = gender,
            .uuid = uuid,
        });
        return true;
    }

    void sendProfile() {
        if (!require(height > -1.0 && height < 256.0, "height does not fit one byte") ||
            !require(age >= 0 && age <= 255, "age does not fit one byte")) {
            return;
        }
        const auto byte = [](auto value) { return static_cast<std::uint8_t>(value); };
        const std::uint8_t frame[] = {0x81, 0x00,         0x81,      0x00,         0x00, 0x00, 0x00,
                                      0x00, byte(height), byte(age), byte(gender), 0x00, 0x41};
        indicateWrite(frame);
    }

    void indicateWrite(Bytes frame) {
        if (!peripheral) return log("peripheral not found");
        if (!characteristicIndicateWrite) return log("indicate characteristic not found");
        write(peripheral, characteristicIndicateWrite, frame, CBCharacteristicWriteType::withoutResponse);
    }

    void requestAnalysis() {
        if (!characteristicReadWrite) return log("read write characteristic not found");
        write(peripheral, characteristicReadWrite, analysisRequest);
    }

    static constexpr std::size_t holderLimit = std::size_t{64} << 20;

    std::deque<std::string> bodyCompositionHolderDataSDIC;
    std::size_t holderSize = 0;  // of all its texts
    bool isSetUserRequest = false;
    bool isSetUserReceive = false;
    [[maybe_unused]] bool isGetUserRequest = false;  // no exchange uses it, nor the next but one
    [[maybe_unused]] bool isGetUserReceive = false;
    bool isBodyCompositionRequest = false;
    [[maybe_unused]] bool isBodyCompositionRequestReceive = false;
    const double height;
    const std::int64_t age;
    const Gender gender;
    CharacteristicRef characteristicReadWrite;
    CharacteristicRef characteristicIndicateWrite;
};

}  // namespace

BodyCompositionADFB885TDevice::BodyCompositionADFB885TDevice(bool autoResult, double height, std::int64_t age,
                                                             Gender gender, Platform& platform)
    : Device(std::make_shared<ADFB885TSession>(autoResult, height, age, gender, platform)) {}

}  // namespace corvane
