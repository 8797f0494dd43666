// The oximeter streams frames of several kinds, told apart by first byte and length. Those that begin with
// 0x80 say that it is measuring (one of them, that the measurement failed). Those of 4 bytes are readings,
// with the pulse in byte 1 and the saturation in byte 2; one 4-byte frame stands for "no reading yet".
#include "corvane/devices/oximeter/oximeter_adfb05_device.h"

#include "corvane/framework/central_link.h"

namespace corvane {

template class Device<OximeterInfo>;

namespace {

constexpr LinkProfile profile{
    .model = OximeterADFB05Device::model,
    .characteristic = OximeterADFB05Device::characteristicCBUUID,
    .notFound = "oximeterInfo not found",
    .everyService = true,
};

constexpr std::uint8_t failedFrame[] = {0x80, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F};
constexpr std::uint8_t idleFrame[] = {0x81, 0xFF, 0x7F, 0x00};
constexpr std::size_t readingLength = 4;

bool isMeasuring(Bytes frame) { return frame.size() >= 2 && frame[0] == 0x80; }

bool isReading(Bytes frame) { return frame.size() == readingLength && !isSame(frame, idleFrame); }

class ADFB05Session final : public Session<OximeterInfo> {
public:
    ADFB05Session(bool autoResult, bool repeatResult, Platform& platform)
        : Session(profile, autoResult, platform), repeatResult(repeatResult) {}

    void startResult() {
        isResult = false;
        isLoadingResult = false;
    }

private:
    // The device's own frames say when it is loading.
    void linkReady(const CharacteristicRef& found) override { subscribe(peripheral, found); }

    After valueArrived(const ValueUpdate& update) override {
        if (!update.isFrom(profile.characteristic)) return After::reportError;
        const Bytes frame = update.bytes();
        if (isSame(frame, failedFrame)) {
            reportError("device proccess error");
            return After::done;
        }
        if (!isLoadingResult && isMeasuring(frame)) {
            isLoadingResult = true;
            reportLoading();
            return After::done;
        }
        if (!isReading(frame) || (!repeatResult && isResult)) return After::reportError;
        isResult = true;
        deliver({.oxygen = frame[2], .bpm = frame[1], .uuid = update.uuid()});
        return After::done;
    }

    const bool repeatResult;
    bool isResult = false;  // looked at without repeatResult only
    bool isLoadingResult = false;
};

}  // namespace

OximeterADFB05Device::OximeterADFB05Device(bool autoResult, bool repeatResult, Platform& platform)
    : Device(std::make_shared<ADFB05Session>(autoResult, repeatResult, platform)) {}

void OximeterADFB05Device::startResult() { static_cast<ADFB05Session&>(*session()).startResult(); }

}  // namespace corvane
