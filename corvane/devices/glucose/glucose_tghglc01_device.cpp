// The meter sends text: base64 that holds fields separated by "||", of which the first is the reading in
// hexadecimal digits. What cannot be read as such is a reading of 0, but a value that is no text is an error.
#include "corvane/devices/glucose/glucose_tghglc01_device.h"

#include "corvane/framework/central_link.h"
#include "corvane/framework/text_decoding.h"

namespace corvane {
namespace {

constexpr LinkProfile profile{
    .model = GlucoseTGHGLC01Device::model,
    .characteristic = GlucoseTGHGLC01Device::characteristicCBUUID,
    .notFound = "glucoseInfo not found",
};

std::int64_t decode(std::string_view text) {
    const std::string fields = base64Decoded(text).value_or("");
    if (!isUtf8(fields)) return 0;
    return parseHexadecimal(std::string_view(fields).substr(0, fields.find("||")));
}

class TGHGLC01Session final : public Session<GlucoseInfo> {
public:
    TGHGLC01Session(bool autoResult, Platform& platform) : Session(profile, autoResult, platform) {}

private:
    After valueArrived(const ValueUpdate& update) override {
        if (!update.isFrom(profile.characteristic)) return After::reportError;
        const auto text = update.value ? utf8Text(*update.value) : std::nullopt;
        if (!text) {
            reportError("glucoseInfo not found");
            return After::done;
        }
        deliver({.glucose = decode(*text), .uuid = update.uuid()});
        return After::reportError;
    }

    void linkEnded() override { log("didDisconnectPeripheral"); }
};

}  // namespace

GlucoseTGHGLC01Device::GlucoseTGHGLC01Device(bool autoResult, Platform& platform)
    : Device(std::make_shared<TGHGLC01Session>(autoResult, platform)) {}

}  // namespace corvane
