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

// The holder of answer frames is one text: each frame between quotes, and the one that counts first at the
// end, since those that come are put before the others.
std::string_view lastOf(std::string_view holder) {
    return holder.substr(holder.rfind('"', holder.size() - 2));
}

std::string_view withoutLast(std::string_view holder) {
    return holder.substr(0, holder.size() - lastOf(holder).size());
}

std::string_view unquoted(std::string_view text) { return text.substr(1, text.size() - 2); }

void appendList(std::string& line, std::string_view holder) {
    line += '[';
    for (std::string_view rest = holder; !rest.empty(); rest = withoutLast(rest)) {
        if (rest.size() < holder.size()) line += ", ";
        line += lastOf(rest);
    }
    line += ']';
}

class ADFB885TSession final : public Session<BodyCompositionInfo> {
public:
    ADFB885TSession(bool autoResult, double height, std::int64_t age, Gender gender, Platform& platform)
        : Session(profile, autoResult, platform), height(height), age(age), gender(gender) {
        // Room for one analysis, whose last frame then allocates for its record only.
        bodyCompositionHolderDataSDIC.reserve(96);
        line.reserve(128);
    }

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
        line.clear();
        if (update.value) {
            appendHexadecimalText(line, *update.value);
        } else {
            line = "-";
        }
        log(line);

        const auto header = bodyCompositionADFB885TDeviceHeader(std::string_view(line).substr(0, 2));
        if (header == Header::header_42)
            return answerArrived(update.uuid()) ? After::reportError : After::done;
        if (header == Header::header_41) reportError("process error");
        if (update.isFrom(Scale::characteristicCBUUIDReadWrite) && line == analysisReady &&
            !std::exchange(isBodyCompositionRequest, true)) {
            requestAnalysis();
        }
        if (update.isFrom(Scale::characteristicCBUUIDIndicateWrite) && line == profileAcknowledged &&
            !std::exchange(isSetUserReceive, true)) {
            indicateWrite(profileReceipt);
        }
        return After::reportError;
    }

    // False where a precondition ends the handling.
    bool answerArrived(const std::string& uuid) {
        if (!require(line.size() >= 4, "answer frame shorter than 2 bytes")) return false;
        const std::string_view number = std::string_view(line).substr(2, 2);
        std::string& holder = bodyCompositionHolderDataSDIC;
        if (number == firstFrame) return insert(holder.size());
        if (number == secondFrame) {
            return require(!holder.empty(), "second answer frame before the first") &&
                   insert(withoutLast(holder).size()) && analyse(uuid);
        }
        return true;
    }

    bool insert(std::size_t at) {
        constexpr std::size_t quotesAndSeparator = 4;
        const std::size_t added = line.size() + quotesAndSeparator;
        if (!require(added <= listLimit - listSize, "more than 64 KiB of answer frames")) return false;
        listSize += added;
        bodyCompositionHolderDataSDIC.insert(at, 2, '"').insert(at + 1, line);
        return true;
    }

    bool analyse(const std::string& uuid) {
        const std::string_view holder = bodyCompositionHolderDataSDIC;
        line = "hex array = ";
        appendList(line, holder);
        log(line);
        const std::string_view first = unquoted(lastOf(holder));
        const std::string_view second = unquoted(lastOf(withoutLast(holder)));
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

    // One analysis needs 78 characters. Each value that ends one is followed by the whole list on the
    // console, so a list without a limit would let a stranger fill it.
    static constexpr std::size_t listLimit = std::size_t{64} << 10;

    std::string bodyCompositionHolderDataSDIC;
    std::size_t listSize = 0;  // of the list as the console shows it
    std::string line;          // what the console is shown; it keeps its room
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
