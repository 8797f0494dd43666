// The thermometer answers one request of 8 bytes, written when the link is ready. Bytes 2 and 3 of what it
// notifies, low byte first, are tenths of a degree; the rest is not looked at.
#include "corvane/devices/temperature/temperature_td1241_device.h"

#include "corvane/framework/central_link.h"

namespace corvane {
namespace {

constexpr LinkProfile profile{
    .model = TemperatureTD1241Device::model,
    .characteristic = TemperatureTD1241Device::characteristicCBUUID,
    .notFound = "temperatureInfo not found",
};

constexpr std::uint8_t payload[] = {0x51, 0x26, 0x00, 0x01, 0x00, 0x00, 0xA3, 0x1B};
constexpr std::size_t shortestFrame = 4;

class TD1241Session final : public Session<TemperatureInfo> {
public:
    TD1241Session(bool autoResult, Platform& platform) : Session(profile, autoResult, platform) {}

private:
    void linkReady(const CharacteristicRef& /*found*/) override {
        reportLoading();
        if (!peripheral) return log("temperature peripheral not found");
        if (!characteristic) return log("temperature characteristic not found");
        request(payload);
    }

    After valueArrived(const ValueUpdate& update) override {
        if (!update.isFrom(profile.characteristic)) return After::reportError;
        const Bytes frame = update.bytes();
        if (!require(frame.size() >= shortestFrame, "temperature frame shorter than 4 bytes"))
            return After::done;
        const unsigned tenths = static_cast<unsigned>(frame[3]) << 8 | frame[2];
        deliver({.temperature = temperatureText(tenths), .uuid = update.uuid()});
        return After::reportError;
    }
};

}  // namespace

TemperatureTD1241Device::TemperatureTD1241Device(bool autoResult, Platform& platform)
    : Device(std::make_shared<TD1241Session>(autoResult, platform)) {}

}  // namespace corvane
