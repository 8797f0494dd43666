// The recorder keeps a case, and gives it out in an exchange of 64-byte frames over two characteristics:
// commands go out on one, frames come in on the other. Frames are told apart by their first byte:
//
//   c0  status; wants an acknowledgement
//   e1  case information; the first one is answered with two questions, for the case's channel and its graph
//   d0  waveform; opens a block, in which every frame is collected
//   e0  end of a block; wants an acknowledgement, and a second one once the case information is complete
//
// A frame of any kind whose last byte but one is 7F ends the transfer. The pulse stands in the case
// information as two 7-bit halves; a waveform frame holds 25 samples of 16 bits, low byte first, centred on
// 0x4000.
#include "corvane/devices/ecg/ecg_td4257_device.h"

#include <array>

#include "corvane/framework/central_link.h"

namespace corvane {

template class Device<ECGInfo>;

namespace {

using Recorder = ECGTD4257Device;

constexpr LinkProfile profile{
    .model = Recorder::model,
    .characteristic = Recorder::characteristicCBUUIDread,
    .notFound = "ecgInfo not found",
};

constexpr std::array wanted{Recorder::characteristicCBUUIDread, Recorder::characteristicCBUUIDwrite};

constexpr std::size_t frameLength = 64;
using Frame = std::array<std::uint8_t, frameLength>;

// The full command set; the driver sends four of them. Each is filled up with zeros.
[[maybe_unused]] constexpr Frame payload_setDevice{0x83, 0x01, 0x01, 0x00, 0x00, 0x01};
constexpr Frame payload_confirm{0xFE};
[[maybe_unused]] constexpr Frame payload_set_date_time{0x82};
constexpr Frame payload_askCaseCounts{0x90, 0x00, 0x00, 0x00, 0x01};
[[maybe_unused]] constexpr Frame payload_handCheck{0x80};
constexpr Frame payload_askCaseChanel{0x90, 0x02, 0x01, 0x00, 0x01};
constexpr Frame payload_askGraph{0xA0, 0x01};
[[maybe_unused]] constexpr Frame payload_delete{0xB0, 0x00, 0x02, 0x02};

constexpr std::uint8_t statusHeader = 0xC0;
constexpr std::uint8_t waveformHeader = 0xD0;
constexpr std::uint8_t blockEndHeader = 0xE0;
constexpr std::uint8_t caseHeader = 0xE1;
constexpr std::uint8_t transferEnd = 0x7F;

// A frame of one byte has no header.
std::uint8_t headerOf(Bytes frame) { return frame.size() >= 2 ? frame[0] : std::uint8_t{0}; }

bool endsTransfer(Bytes frame) { return frame.size() >= 4 && frame[frame.size() - 2] == transferEnd; }

constexpr std::size_t pulseAt = 14;

std::string pulseOf(Bytes caseInformation) {
    return std::to_string(caseInformation[pulseAt] * 128 + caseInformation[pulseAt + 1]);
}

std::vector<std::int64_t> graphOf(Bytes waveform) {
    constexpr std::size_t firstSample = 10;
    constexpr std::size_t samples = 25;
    std::vector<std::int64_t> graph;
    graph.reserve(waveform.size() / frameLength * samples);
    for (; waveform.size() >= frameLength; waveform = waveform.subspan(frameLength)) {
        for (std::size_t at = firstSample; at < firstSample + 2 * samples; at += 2) {
            graph.push_back((waveform[at + 1] << 8 | waveform[at]) - 0x4000);
        }
    }
    return graph;
}

class ECGTD4257Session final : public Session<ECGInfo> {
public:
    ECGTD4257Session(bool autoResult, Platform& platform) : Session(profile, autoResult, platform) {}

private:
    /// How far the exchange with the recorder has come. Only `initial`, `payload_askCaseCounts` and
    /// `payload_askCaseChanel` are ever reached; the rest stands for the recorder's full command set.
    enum class ECGRequestState {
        initial,
        payload_setDevice,
        payload_confirm,
        payload_set_date_time,
        payload_askCaseCounts,
        payload_handCheck,
        payload_askCaseChanel,
        payload_askGraph,
        payload_delete,
        end,
    };

    void scanBegins() override { ecgState = ECGRequestState::initial; }
    void disconnectRequested() override { ecgState = ECGRequestState::initial; }

    std::span<const CBUUID> wantedCharacteristics() const override { return wanted; }

    void characteristicFound(const PeripheralRef& from, const CharacteristicRef& found) override {
        if (found->uuid == Recorder::characteristicCBUUIDwrite) {
            peripheralWrite = from;
            characteristicWrite = found;
            ecgState = ECGRequestState::payload_askCaseCounts;
            reportLoading();
            send(payload_askCaseCounts);
            // Again: the application may have begun anew while it was told of the loading.
            ecgState = ECGRequestState::payload_askCaseCounts;
        }
        if (found->uuid == Recorder::characteristicCBUUIDread) {
            peripheralRead = from;
            characteristicRead = found;
            subscribe(from, found);
        }
    }

    // The recorder's frames are taken from whichever characteristic they come, and errors are not looked at.
    After valueArrived(const ValueUpdate& update) override {
        const Bytes frame = update.bytes();
        const std::uint8_t header = headerOf(frame);
        if (header == waveformHeader) isComing = true;
        if (header == blockEndHeader) {
            currentHeader = header;
            isComing = false;
            send(payload_confirm);
        }
        if (header == statusHeader) send(payload_confirm);
        if (header == caseHeader) caseArrived(frame);
        if (isComing && !collect(frame)) return After::done;
        if (header == blockEndHeader && infoData.size() == frameLength) {
            blockEnded();
        } else if (endsTransfer(frame)) {
            transferEnded(update.uuid());
        }
        return After::done;
    }

    void caseArrived(Bytes frame) {
        infoData.assign(frame.begin(), frame.end());
        const bool first = ecgState == ECGRequestState::payload_askCaseCounts;
        const bool asking = first || ecgState == ECGRequestState::payload_askCaseChanel;
        if (first) {
            send(payload_confirm);
            send(payload_askCaseChanel);
            ecgState = ECGRequestState::payload_askCaseChanel;
        }
        if (asking) {
            send(payload_confirm);
            send(payload_askGraph);
        }
    }

    bool collect(Bytes frame) {
        if (!require(frame.size() <= receiveLimit - receiveData.size(),
                     "more than 64 MiB of waveform text")) {
            return false;
        }
        receiveData.insert(receiveData.end(), frame.begin(), frame.end());
        return true;
    }

    void blockEnded() {
        currentHeader = 0;
        if (!require(!receiveData.empty(), "a closing block before any waveform")) return;
        if (receiveData.front() == blockEndHeader) receiveData.clear();
        send(payload_confirm);
    }

    // What was collected stays: a second transfer on the same link goes on where the first one ended.
    void transferEnded(const std::string& uuid) {
        isComing = false;
        if (!require(infoData.size() >= pulseAt + 2,
                     "end of transfer without 16 bytes of case information") ||
            !require(receiveData.size() >= frameLength, "end of transfer without one frame of waveform")) {
            return;
        }
        deliver({.graph = graphOf(receiveData), .pulse = pulseOf(infoData), .uuid = uuid});
    }

    void send(const Frame& frame) {
        if (!peripheralWrite) return log("write peripheral not found");
        if (!characteristicWrite) return log("write characteristic not found");
        if (!characteristicRead) return log("read characteristic not found");
        subscribe(peripheralWrite, characteristicRead);
        write(peripheralWrite, characteristicWrite, frame);
    }

    // Half of the 64 MiB that the limit is stated in: it counts the text, of two digits a byte.
    static constexpr std::size_t receiveLimit = std::size_t{32} << 20;

    PeripheralRef& peripheralRead = peripheral;  // the one whose link the common steps cancel
    PeripheralRef peripheralWrite;
    CharacteristicRef characteristicRead;
    CharacteristicRef characteristicWrite;
    std::vector<std::uint8_t> receiveData;            // bytes of all waveform frames collected
    std::vector<std::uint8_t> infoData;               // bytes of the last case information
    [[maybe_unused]] std::uint8_t currentHeader = 0;  // of the last end of a block; nothing looks at it
    bool isComing = false;
    [[maybe_unused]] bool checking = false;  // nothing uses it
    ECGRequestState ecgState = ECGRequestState::initial;
};

}  // namespace

ECGTD4257Device::ECGTD4257Device(bool autoResult, Platform& platform)
    : Device(std::make_shared<ECGTD4257Session>(autoResult, platform)) {}

}  // namespace corvane
