// The tape sends each measurement as text: a decimal number directly followed by a marker for the unit, and
// perhaps something after that. A number that cannot be read is a length of 0; a text without a marker is an
// error.
#include "corvane/devices/body_tape/body_tape_device.h"

#include "corvane/framework/central_link.h"
#include "corvane/framework/text_decoding.h"

namespace corvane {

template class Device<BodyTapeInfo>;

namespace {

constexpr LinkProfile profile{
    .model = BodyTapeDevice::model,
    .characteristic = BodyTapeDevice::characteristicCBUUID,
    .notFound = "BodyTapeInfo not found",
};

// A text with both markers is in inches.
std::optional<BodyTapeInfo> decode(std::string_view text, const std::string& uuid) {
    const std::size_t inches = text.find("PI");
    const std::size_t end = inches != text.npos ? inches : text.find("PM");
    if (end == text.npos) return std::nullopt;
    return BodyTapeInfo{
        .measure = parseDecimal(text.substr(0, end)),
        .unit = inches != text.npos ? BodyTapeUnitType::inch : BodyTapeUnitType::cm,
        .uuid = uuid,
    };
}

class BodyTapeSession final : public Session<BodyTapeInfo> {
public:
    BodyTapeSession(bool autoResult, Platform& platform) : Session(profile, autoResult, platform) {}

private:
    After valueArrived(const ValueUpdate& update) override {
        if (!update.isFrom(profile.characteristic)) return After::reportError;
        const auto text = update.value ? utf8Text(*update.value) : std::nullopt;
        auto info = text ? decode(*text, update.uuid()) : std::nullopt;
        if (!info) {
            reportError("BodyTapeInfo not found");
            return After::done;
        }
        deliver(std::move(*info));
        return After::reportError;
    }
};

}  // namespace

BodyTapeDevice::BodyTapeDevice(bool autoResult, Platform& platform)
    : Device(std::make_shared<BodyTapeSession>(autoResult, platform)) {}

}  // namespace corvane
