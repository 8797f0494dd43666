// The meter sends each measurement as one frame of 13 bytes. Byte 1 says what was measured, as two decimal
// digits; bytes 10 and 11, low byte first and only 12 bits wide, are the value. Cholesterol comes in tenths.
#include "corvane/devices/multi_monitoring/multi_monitoring_benecheck_device.h"

#include "corvane/framework/central_link.h"

namespace corvane {

template class Device<MultiMonitoringBeneCheckInfo>;

namespace {

using Type = MultiMonitoringBeneCheckType;

constexpr LinkProfile profile{
    .model = MultiMonitoringBeneCheckDevice::model,
    .characteristic = MultiMonitoringBeneCheckDevice::characteristicCBUUID,
    .notFound = "multiMonitoringBeneCheckInfo not found",
    .everyService = true,
};

constexpr std::size_t frameLength = 13;

// Any code but these two is glucose.
Type measured(std::uint8_t code) {
    if (code == 0x51) return Type::uric;
    if (code == 0x61) return Type::cholesterol;
    return Type::glucose;
}

MultiMonitoringBeneCheckInfo decode(Bytes frame, const std::string& uuid) {
    const Type type = measured(frame[1]);
    const int sent = (frame[11] & 0x0F) << 8 | frame[10];
    return {.type = type, .value = type == Type::cholesterol ? sent / 10 : sent, .uuid = uuid};
}

class BeneCheckSession final : public Session<MultiMonitoringBeneCheckInfo> {
public:
    BeneCheckSession(bool autoResult, Platform& platform) : Session(profile, autoResult, platform) {}

private:
    // This model reports no loading.
    void linkReady(const CharacteristicRef& found) override { subscribe(peripheral, found); }

    After valueArrived(const ValueUpdate& update) override {
        const Bytes frame = update.bytes();
        if (!update.isFrom(profile.characteristic) || frame.size() != frameLength) return After::reportError;
        deliver(decode(frame, update.uuid()));
        return After::done;
    }
};

}  // namespace

MultiMonitoringBeneCheckDevice::MultiMonitoringBeneCheckDevice(bool autoResult, Platform& platform)
    : Device(std::make_shared<BeneCheckSession>(autoResult, platform)) {}

}  // namespace corvane
