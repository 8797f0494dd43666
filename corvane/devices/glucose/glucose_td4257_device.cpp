// The meter speaks in frames of 8 bytes: 0x51, a command, four bytes of data, 0xA3 in a request or 0xA5 in an
// answer, and the low byte of the sum of the seven before. One request, 0x26, asks for the reading. The
// answer carries it in bytes 2 and 3, low byte first; any frame that comes is taken as a reading.
#include "corvane/devices/glucose/glucose_td4257_device.h"

#include "corvane/framework/central_link.h"

namespace corvane {

template class Device<GlucoseInfo>;

namespace {

constexpr LinkProfile profile{
    .model = GlucoseTD4257Device::model,
    .characteristic = GlucoseTD4257Device::characteristicCBUUID,
    .notFound = "glucoseInfo not found",
};

constexpr std::uint8_t payload[] = {0x51, 0x26, 0x00, 0x00, 0x00, 0x00, 0xA3, 0x1A};
constexpr std::size_t shortestFrame = 4;

class TD4257Session final : public Session<GlucoseInfo> {
public:
    TD4257Session(bool autoResult, Platform& platform) : Session(profile, autoResult, platform) {}

private:
    void linkReady(const CharacteristicRef& /*found*/) override {
        reportLoading();
        if (!characteristic) log("glucose characteristic not found");
        if (!peripheral) log("glucose peripheral not found");
        request(payload);
    }

    After valueArrived(const ValueUpdate& update) override {
        if (!update.isFrom(profile.characteristic)) return After::reportError;
        const Bytes frame = update.bytes();
        if (require(frame.size() >= shortestFrame, "glucose frame shorter than 4 bytes")) {
            deliver({.glucose = frame[3] << 8 | frame[2], .uuid = update.uuid()});
        }
        return After::done;
    }
};

}  // namespace

GlucoseTD4257Device::GlucoseTD4257Device(bool autoResult, Platform& platform)
    : Device(std::make_shared<TD4257Session>(autoResult, platform)) {}

}  // namespace corvane
