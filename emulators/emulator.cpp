#include "emulators/emulator.h"

#include <algorithm>

#include "corvane/framework/hexadecimal_text.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using Kind = EmulatorFault::Kind;

// Within what every model does on one link, so that a loss left to the seed always comes.
constexpr int lastStepOfChoice = 6;

unsigned chosenStep(const EmulatorFault& fault, Random& random) {
    return fault.step != 0 ? fault.step : static_cast<unsigned>(random.between(1, lastStepOfChoice));
}

}  // namespace

Emulator::Emulator(const EmulatorOptions& options)
    : fault_(options.fault), onEvent_(options.onEvent), random_(options.seed), faultRandom_(~options.seed),
      lossStep_(chosenStep(fault_, faultRandom_)), lateness_(faultRandom_.between(2s, 10s)) {}

void Emulator::connected(PeripheralHost& host) {
    host_ = &host;
    seenSubscriptions_.clear();
    measuring_ = false;
    if (step("linked")) linked();
}

void Emulator::disconnected() {
    host_ = nullptr;
    if (onEvent_) onEvent_("link ended");
}

void Emulator::subscribed(const CBUUID& characteristic, bool enabled) {
    if (!enabled || !step("subscribed", &characteristic)) return;
    if (std::find(seenSubscriptions_.begin(), seenSubscriptions_.end(), characteristic) !=
        seenSubscriptions_.end())
        return;
    seenSubscriptions_.push_back(characteristic);
    subscribedTo(characteristic);
}

void Emulator::written(const CBUUID& characteristic, Bytes value, CBCharacteristicWriteType /*type*/) {
    if (step("written", &characteristic, value)) received(characteristic, value);
}

void Emulator::after(std::chrono::milliseconds delay, std::function<void()> task) {
    if (!host_) return;
    host_->after(delay, [this, task = std::move(task)] {
        if (host_) task();
    });
}

void Emulator::keepMeasuring(std::chrono::milliseconds earliest, std::chrono::milliseconds latest) {
    after(random_.between(earliest, latest), [this] {
        measure();
        if (!measuring_) measureAgain();
        measuring_ = true;
    });
}

void Emulator::measureAgain() {
    after(random_.between(8s, 15s), [this] {
        measure();
        measureAgain();
    });
}

void Emulator::send(const CBUUID& characteristic, Bytes value) {
    const std::vector<std::uint8_t> sent = distorted(value);
    if (fault_.kind == Kind::silent || !step("sent", &characteristic, sent)) return;
    if (fault_.kind == Kind::late) {
        after(lateness_, [this, characteristic, sent] { deliver(characteristic, sent); });
        return;
    }
    deliver(characteristic, sent);
    if (fault_.kind == Kind::duplicate) deliver(characteristic, sent);
}

void Emulator::deliver(const CBUUID& characteristic, Bytes value) {
    if (host_) host_->notify(characteristic, value);
}

// Half of the values stay as they are: what follows a broken one is as telling as the broken one.
std::vector<std::uint8_t> Emulator::distorted(Bytes value) {
    std::vector<std::uint8_t> bytes(value.begin(), value.end());
    const bool distorts = fault_.kind == Kind::shortValue || fault_.kind == Kind::corrupt;
    if (!distorts || bytes.empty() || faultRandom_.chance(50)) return bytes;

    const int last = static_cast<int>(bytes.size()) - 1;
    if (fault_.kind == Kind::shortValue) {
        bytes.resize(static_cast<std::size_t>(faultRandom_.between(0, last)));
        return bytes;
    }
    for (int count = faultRandom_.between(1, 3); count > 0; --count)
        bytes[static_cast<std::size_t>(faultRandom_.between(0, last))] = faultRandom_.byte();
    return bytes;
}

bool Emulator::step(std::string_view what, const CBUUID* characteristic, Bytes value) {
    if (!host_) return false;
    const bool lost = fault_.kind == Kind::linkLost && ++steps_ == lossStep_;
    if (onEvent_) {
        std::string line(lost ? "link lost instead of: " : "");
        line += what;
        if (characteristic) line += ' ' + characteristic->uuidString();
        if (!value.empty()) line += ' ' + hexadecimalText(value);
        onEvent_(line);
    }
    if (!lost) return true;
    // Dropped: until the host says that the link has ended, nothing that it still tells counts.
    host_->disconnect();
    host_ = nullptr;
    return false;
}

}  // namespace corvane
