#include "corvane/platform/bluez/link.h"

#include <algorithm>

#include "corvane/platform/bluez/bluez_names.h"
#include "corvane/platform/bluez/retry_delay.h"

namespace corvane::bluez {
namespace {

// BlueZ gives up after about 41 seconds. An attempt without any answer ends later.
constexpr auto connectTimeout = std::chrono::seconds(60);
constexpr auto disconnectTimeout = std::chrono::seconds(10);
// A device that was just heard answers sooner. Others may scan again then; the attempt goes on meanwhile.
constexpr auto longestPause = std::chrono::seconds(4);
// Between the answer that a link has ended and the signal that says so.
constexpr auto closingGrace = std::chrono::seconds(3);

}  // namespace

Link::Link(const Surroundings& surroundings, std::string device)
    : around_(surroundings), device_(std::move(device)) {}

const DeviceNode* Link::node() const { return around_.service.tree().device(device_); }

void Link::enter(Phase phase) {
    phase_ = phase;
    if (phase != Phase::waitingForAir && phase != Phase::connecting) pause_.reset();
    timer_.reset();
    call_.reset();
    around_.changed(*this);
}

void Link::want(std::shared_ptr<LinkListener> listener) {
    listeners_.push_back(std::move(listener));
    if (phase_ == Phase::up) return listeners_.back()->linkStands(session_);
    if (phase_ == Phase::over) begin();
}

void Link::leave(const LinkListener& listener) {
    const auto found = std::find_if(listeners_.begin(), listeners_.end(),
                                    [&](const auto& entry) { return entry.get() == &listener; });
    if (found == listeners_.end()) return;
    const auto left = *found;
    listeners_.erase(found);
    if (phase_ == Phase::up && !listeners_.empty()) {
        session_->unsubscribe(*left);
        return left->linkEnded(nullptr);
    }
    if (!listeners_.empty() || phase_ == Phase::closing) return;
    if (phase_ == Phase::up) {
        session_->forget(*left);
        leaving_.push_back(left);
    }
    mayStand() ? close() : enter(Phase::over);
}

// An attempt may have come to its end after it had been given up.
bool Link::mayStand() const {
    if (phase_ == Phase::up || phase_ == Phase::connecting) return true;
    return failures_ > 0 && node() && node()->connected;
}

void Link::begin() {
    if (!node()) return enter(Phase::waitingForDevice);
    // A link that is there already needs no air.
    if (node()->connected) return connect();
    // The air may be quiet at once.
    enter(Phase::waitingForAir);
    pause_ = around_.discovery.pause();
}

void Link::airIsQuiet() {
    if (phase_ == Phase::waitingForAir) connect();
}

void Link::connect() {
    enter(Phase::connecting);
    wasConnected_ = false;
    call_ = around_.service.call(
        around_.service.newCall(device_, deviceInterface, "Connect"),
        [this](const Reply& reply) { answered(reply); }, connectTimeout);
    timer_ = around_.loop.after(longestPause, [this] { pause_.reset(); });
}

void Link::answered(const Reply& reply) {
    if (!reply.failed() || reply.is("org.bluez.Error.AlreadyConnected")) return stands();
    around_.diagnose("Connect", reply);
    attemptFailed();
}

void Link::attemptFailed() {
    enter(Phase::waitingToRetry);
    timer_ = around_.loop.after(retryDelay(++failures_), [this] { begin(); });
}

void Link::stands() {
    enter(Phase::up);
    failures_ = 0;
    session_ =
        std::make_shared<GattSession>(around_.service, around_.loop, around_.notifyPath, around_.diagnose);
    for (const auto& listener : listeners_) listener->linkStands(session_);
}

void Link::close() {
    wasConnected_ = phase_ == Phase::up || node()->connected;
    disconnectAnswered_ = false;
    enter(Phase::closing);
    call_ = around_.service.call(
        around_.service.newCall(device_, deviceInterface, "Disconnect"),
        [this](const Reply& reply) {
            if (reply.failed()) around_.diagnose("Disconnect", reply);
            disconnectAnswered_ = true;
            timer_ = around_.loop.after(closingGrace, [this] { closed(); });
            closeIfDown();
        },
        disconnectTimeout);
}

void Link::closeIfDown() {
    const bool connected = node() && node()->connected;
    if (!connected && (wasConnected_ || disconnectAnswered_)) closed();
}

void Link::closed() {
    if (const auto session = std::exchange(session_, nullptr)) session->end();
    for (const auto& listener : std::exchange(leaving_, {})) listener->linkEnded(nullptr);
    if (listeners_.empty()) return enter(Phase::over);
    failures_ = 0;
    begin();
}

void Link::lost() {
    const Listeners lost = std::exchange(listeners_, {});
    const auto session = std::exchange(session_, nullptr);
    enter(Phase::over);
    // Hands over what came before the end, and whoever receives it may act.
    session->end();
    const std::string& refusal = session->lastRefusal();
    const CBError error{refusal.empty() ? "The link to the device was lost." : refusal};
    for (const auto& listener : lost) listener->linkEnded(&error);
}

void Link::deviceAppeared(const DeviceNode& device) {
    if (phase_ == Phase::waitingForDevice) return begin();
    deviceChanged(device, {.connection = true, .services = true});
}

void Link::deviceChanged(const DeviceNode& device, const ObjectTree::DeviceChange& change) {
    switch (phase_) {
    case Phase::connecting:
        // Either may come before the reply.
        if (device.servicesResolved) return stands();
        if (change.connection && wasConnected_ && !device.connected) return attemptFailed();
        wasConnected_ = wasConnected_ || device.connected;
        return;
    case Phase::up:
        if (change.connection && !device.connected) return lost();
        if (!change.services || !device.servicesResolved) return;
        for (const auto& listener : listeners_) listener->servicesResolved();
        return;
    case Phase::closing:
        wasConnected_ = wasConnected_ || device.connected;
        return closeIfDown();
    default:
        return;
    }
}

void Link::deviceVanished() {
    if (phase_ == Phase::up) return lost();
    if (phase_ == Phase::closing) return closed();
    enter(Phase::waitingForDevice);
}

void Link::radioLost() {
    if (phase_ == Phase::up) return lost();
    const Listeners waiting = std::exchange(listeners_, {});
    phase_ == Phase::closing ? closed() : enter(Phase::over);
    for (const auto& listener : waiting) listener->attemptEnded();
}

}  // namespace corvane::bluez
