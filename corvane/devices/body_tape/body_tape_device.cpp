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

struct Marker {
    std::string_view text;
    BodyTapeUnitType unit;
};

// In the order in which they are looked for: a text with both is in inches.
constexpr Marker markers[] = {{"PI", BodyTapeUnitType::inch}, {"PM", BodyTapeUnitType::cm}};

std::optional<BodyTapeInfo> decode(std::string_view text, const std::string& uuid) {
    for (const Marker& marker : markers) {
        const std::size_t at = text.find(marker.text);
        if (at == std::string_view::npos) continue;
        return BodyTapeInfo{.measure = parseDecimal(text.substr(0, at)), .unit = marker.unit, .uuid = uuid};
    }
    return std::nullopt;
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
