// The oximeter answers only when it is asked: the 8-byte request 0x49, once a second. The answer carries the
// saturation in bytes 2 and 3, low byte first, and the pulse in byte 5. Until it has found the pulse it
// answers with zeros.
#include "corvane/devices/oximeter/oximeter_td8255_device.h"

#include "corvane/framework/central_link.h"

namespace corvane {
namespace {

constexpr LinkProfile profile{
    .model = OximeterTD8255Device::model,
    .characteristic = OximeterTD8255Device::characteristicCBUUID,
    .notFound = "oximeterInfo not found",
    .everyService = true,
};

constexpr std::uint8_t payload[] = {0x51, 0x49, 0x00, 0x00, 0x00, 0x00, 0xA3, 0x3D};
constexpr std::chrono::seconds pollInterval{1};
constexpr std::size_t shortestAnswer = 6;

class TD8255Session final : public Session<OximeterInfo> {
public:
    TD8255Session(bool autoResult, bool repeatResult, Platform& platform)
        : Session(profile, autoResult, platform), repeatResult(repeatResult) {}

    void startResult() { isResult = false; }

    void requestPayload() {
        if (!peripheral) return log("oximeter peripheral not found");
        if (!characteristic) return log("oximeter characteristic not found");
        request(payload);
    }

private:
    // Nothing is subscribed to here: the first poll does that.
    void characteristicFound(const PeripheralRef& from, const CharacteristicRef& found) override {
        if (found->uuid != profile.characteristic) return;
        peripheral = from;
        characteristic = found;
        reportLoading();
        every(pollInterval, [this] { requestPayload(); });
    }

    After valueArrived(const ValueUpdate& update) override {
        if (!update.isFrom(profile.characteristic)) return After::reportError;
        const Bytes answer = update.bytes();
        if (answer.size() < shortestAnswer || (!repeatResult && isResult)) return After::reportError;
        OximeterInfo info{.oxygen = answer[3] << 8 | answer[2], .bpm = answer[5], .uuid = update.uuid()};
        if (!repeatResult && (info.oxygen == 0 || info.bpm == 0)) return After::reportError;
        isResult = true;
        deliver(std::move(info));
        return After::done;
    }

    void linkEnded() override { stopTimer(); }

    const bool repeatResult;
    bool isResult = false;  // looked at without repeatResult only
};

}  // namespace

OximeterTD8255Device::OximeterTD8255Device(bool autoResult, bool repeatResult, Platform& platform)
    : Device(std::make_shared<TD8255Session>(autoResult, repeatResult, platform)) {}

void OximeterTD8255Device::startResult() { static_cast<TD8255Session&>(*session()).startResult(); }
void OximeterTD8255Device::requestPayload() { static_cast<TD8255Session&>(*session()).requestPayload(); }

}  // namespace corvane
