// The monitor measures when it is asked to, with the 8-byte request 0x43, and then notifies frame after
// frame: the systolic pressure in byte 3, the diastolic in byte 4, the pulse in byte 5. A closing frame, all
// zeros in its data, ends the measurement; the frame before it was the final reading.
#include "corvane/devices/blood_pressure/blood_pressure_td3140_device.h"

#include "corvane/framework/central_link.h"

namespace corvane {

template class Device<BloodPressureInfo>;

namespace {

constexpr LinkProfile profile{
    .model = BloodPressureTD3140Device::model,
    .characteristic = BloodPressureTD3140Device::characteristicCBUUID,
    .notFound = "bloodPressureInfo not found",
};

constexpr std::uint8_t payload[] = {0x51, 0x43, 0x00, 0x00, 0x00, 0x00, 0xA3, 0x37};
constexpr std::uint8_t closingFrame[] = {0x51, 0x54, 0x00, 0x00, 0x00, 0x00, 0xA5, 0x4A};
constexpr std::size_t shortestFrame = 6;

class TD3140Session final : public Session<BloodPressureInfo> {
public:
    TD3140Session(bool autoResult, bool repeatResult, Platform& platform)
        : Session(profile, autoResult, platform), repeatResult(repeatResult) {}

    void start() {
        if (!characteristic) log("bloodPressure characteristic not found");
        if (!peripheral) log("bloodPressure peripheral not found");
        request(payload);
    }

private:
    After valueArrived(const ValueUpdate& update) override {
        if (!update.isFrom(profile.characteristic)) return After::reportError;
        const Bytes frame = update.bytes();
        if (!require(frame.size() >= shortestFrame, "blood pressure frame shorter than 6 bytes")) {
            return After::done;
        }
        store({.pluse = frame[5], .sys = frame[3], .dia = frame[4], .uuid = update.uuid()});
        if (!autoResult) return After::reportError;

        const bool closing = isSame(frame, closingFrame);
        if (repeatResult) {
            if (closing) return After::reportError;
            reportSuccess(result);
        } else if (!closing) {
            lastResult = result;
        } else if (lastResult) {
            // The closing frame's zeros stay the result; what is reported is the reading before them.
            reportSuccess(lastResult);
        }
        return After::done;
    }

    const bool repeatResult;
    std::shared_ptr<const BloodPressureInfo> lastResult;
};

}  // namespace

BloodPressureTD3140Device::BloodPressureTD3140Device(bool autoResult, bool repeatResult, Platform& platform)
    : Device(std::make_shared<TD3140Session>(autoResult, repeatResult, platform)) {}

void BloodPressureTD3140Device::start() { static_cast<TD3140Session&>(*session()).start(); }

}  // namespace corvane
