// The thermometer notifies a frame a reading. Of its bytes only two matter: the low four bits of byte 4 and
// all of byte 5 are a 12-bit number of hundredths of a degree. There is no command, no checksum and no frame
// type, and nothing tells a final reading from one before it: each notification is a record.
#include "corvane/devices/temperature/temperature_aoj20a_device.h"

#include "corvane/framework/central_link.h"

namespace corvane {

template class Device<TemperatureInfo>;

namespace {

constexpr LinkProfile profile{
    .model = TemperatureAOJ20ADevice::model,
    .characteristic = TemperatureAOJ20ADevice::characteristicCBUUID,
    .notFound = "temperatureInfo not found",
};

constexpr std::size_t frameLength = 6;

TemperatureInfo decode(Bytes frame, const std::string& uuid) {
    const int hundredths = (frame[4] & 0x0F) << 8 | frame[5];
    const int tenths = (hundredths + 5) / 10;
    return {.temperature = temperatureText(static_cast<unsigned>(tenths)), .uuid = uuid};
}

class AOJ20ASession final : public Session<TemperatureInfo> {
public:
    AOJ20ASession(bool autoResult, Platform& platform) : Session(profile, autoResult, platform) {}

private:
    After valueArrived(const ValueUpdate& update) override {
        if (!update.isFrom(profile.characteristic)) return After::reportError;
        const Bytes frame = update.bytes();
        if (!require(frame.size() >= frameLength, "temperature frame shorter than 6 bytes"))
            return After::done;
        deliver(decode(frame, update.uuid()));
        return After::reportError;
    }
};

}  // namespace

TemperatureAOJ20ADevice::TemperatureAOJ20ADevice(bool autoResult, Platform& platform)
    : Device(std::make_shared<AOJ20ASession>(autoResult, platform)) {}

}  // namespace corvane
