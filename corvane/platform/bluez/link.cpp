#include "corvane/platform/bluez/link.h"

#include <algorithm>

#include "corvane/platform/bluez/bluez_names.h"
#include "corvane/platform/bluez/retry_delay.h"

namespace corvane::bluez {
namespace {

struct StepLimit {
    const char* name;
    std::chrono::seconds limit;
};

// By LinkStep. BlueZ gives an attempt up after about 41 seconds, and a device has 30 seconds to answer one of
// the requests by which its services are found. Services are exported with the signal that they are resolved,
// or a moment later. A reading may take any time, but to look once whether something is missing costs little.
constexpr StepLimit steps[] = {
    {"connection", std::chrono::seconds(60)},
    {"services", std::chrono::seconds(40)},
    {"wanted service", std::chrono::seconds(5)},
    {"complete list of characteristics", std::chrono::seconds(5)},
    {"subscription", GattSession::callTimeout},
};

const StepLimit& limitOf(LinkStep step) { return steps[static_cast<std::size_t>(step)]; }

// Attributes come in a burst. What comes after this time without one is another burst.
constexpr auto settlingTime = std::chrono::milliseconds(250);
// Devices whose troubles are remembered.
constexpr std::size_t mostTroubled = 256;

// bluetoothd pairs by itself where it can; these are its answers where that failed.
bool demandsPairing(const Reply& reply) {
    return reply.errorText() == "Not paired" || reply.is("org.bluez.Error.NotAuthorized") ||
           reply.errorName().starts_with("org.bluez.Error.Authentication");
}

// The answers to a call that needs a link, or an object, that is not there.
bool mayBeUnlinked(const Reply& reply) {
    return reply.is("org.bluez.Error.Failed") || reply.is("org.bluez.Error.NotConnected") ||
           reply.is(SD_BUS_ERROR_NO_REPLY);
}

bool isUnknownObject(const Reply& reply) {
    return reply.is(SD_BUS_ERROR_UNKNOWN_OBJECT) || reply.is(SD_BUS_ERROR_UNKNOWN_METHOD);
}

constexpr auto disconnectTimeout = std::chrono::seconds(10);
// A device that was just heard answers sooner. Others may scan again then; the attempt goes on meanwhile.
constexpr auto longestPause = std::chrono::seconds(4);
// Between the answer that a link has ended and the signal that says so.
constexpr auto closingGrace = std::chrono::seconds(3);

}  // namespace

Link::Link(const Surroundings& surroundings, std::string device)
    : around_(surroundings), device_(std::move(device)) {}

Link::~Link() {
    if (session_) session_->abandon();
}

const DeviceNode* Link::node() const { return around_.service.tree().device(device_); }

std::string Link::label() const {
    const DeviceNode* known = node();
    if (!known) return device_;
    return known->name ? *known->name + " (" + known->address + ')' : known->address;
}

void Link::enter(Phase phase) {
    phase_ = phase;
    if (phase != Phase::waitingForAir && phase != Phase::connecting) pause_.reset();
    timer_.reset();
    settling_.reset();
    call_.reset();
    doubt_.reset();
    around_.changed(*this);
}

void Link::want(std::shared_ptr<LinkListener> listener) {
    listeners_.push_back(std::move(listener));
    if (phase_ == Phase::up) return listeners_.back()->linkStands(session_);
    if (phase_ == Phase::over) beginAfterTroubles();
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

void Link::beginAfterTroubles() {
    const auto troubles = around_.troubles.find(device_);
    if (troubles == around_.troubles.end()) return begin();
    enter(Phase::waitingToRetry);
    timer_ = around_.loop.after(retryDelay(troubles->second), [this] { begin(); });
}

void Link::begin() {
    if (!node()) return enter(Phase::waitingForDevice);
    if (!node()->connected) return waitForAir();
    // A link that is there already needs no air; but its end may have been left out.
    enter(Phase::waitingToRetry);
    call_ = read([this] {
        if (phase_ != Phase::waitingToRetry) return;
        if (!node()) return enter(Phase::waitingForDevice);
        node()->connected ? connect() : waitForAir();
    });
}

void Link::waitForAir() {
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
        [this](const Reply& reply) { answered(reply); }, limitOf(LinkStep::connection).limit);
    timer_ = around_.loop.after(longestPause, [this] { pause_.reset(); });
}

void Link::answered(const Reply& reply) {
    if (!reply.failed() || reply.is("org.bluez.Error.AlreadyConnected")) return stands();
    callFailed("Connect", reply);
    if (isUnknownObject(reply)) return around_.service.tree().deviceIsGone(device_);
    if (reply.is(SD_BUS_ERROR_NO_REPLY)) return connectUnanswered();
    attemptFailed();
}

void Link::connectUnanswered() {
    call_ = read([this] {
        if (phase_ != Phase::connecting) return;
        if (node() && node()->connected) return stands();
        // BlueZ may still be trying, and would answer each further attempt that one is in progress.
        around_.service.send(around_.service.newCall(device_, deviceInterface, "Disconnect"));
        attemptFailed();
    });
}

void Link::attemptFailed() {
    enter(Phase::waitingToRetry);
    timer_ = around_.loop.after(retryDelay(++failures_), [this] { begin(); });
}

void Link::stands() {
    enter(Phase::up);
    failures_ = 0;
    step_ = LinkStep::services;
    const bool contradicted = node() && !node()->connected;
    around_.service.tree().deviceIsConnected(device_);
    Owner& owner = *this;
    session_ = std::make_shared<GattSession>(around_.service, around_.loop, around_.notifyPath, owner);
    for (const auto& listener : listeners_) listener->linkStands(session_);
    if (contradicted) doubt();
    if (!servicesAreResolved()) expect(LinkStep::services);
}

void Link::expect(LinkStep step) {
    step_ = step;
    timer_ = around_.loop.after(limitOf(step).limit, [this] { overdue(); });
}

void Link::overdue() {
    timer_.reset();
    const StepLimit& step = limitOf(step_);
    // The list of characteristics is looked at once a link, also where nothing is wrong.
    if (step_ != LinkStep::characteristics)
        around_.diagnose(label() + ": no " + step.name + " within " + std::to_string(step.limit.count()) +
                         " s; looking again");
    switch (step_) {
    case LinkStep::services:
        doubt_ = read([this] {
            doubt_.reset();
            if (phase_ == Phase::up && !servicesAreResolved())
                giveUp(LinkStep::services, "The services of the device were not found in time.");
        });
        return;
    case LinkStep::wantedService:
        return lookAgain([this] { tellServices(true); });
    default:
        return lookAgain([this] {
            if (isOutdated()) giveUp(LinkStep::characteristics, "One of them was not signalled.");
        });
    }
}

void Link::lookAgain(std::function<void()> then) {
    around_.service.refresh([weak = weak_from_this(), session = session_, then = std::move(then)] {
        const auto self = weak.lock();
        if (self && self->phase_ == Phase::up && self->session_ == session) then();
    });
}

void Link::tellServices(bool last) {
    if (phase_ != Phase::up || !servicesAreResolved()) return;
    bool complete = true;
    for (const auto& listener : listeners_) complete = listener->servicesResolved(last) && complete;
    if (complete) {
        if (step_ == LinkStep::wantedService) timer_.reset();
    } else if (last) {
        giveUp(LinkStep::wantedService, "The device does not have the service that is needed.");
    } else if (!timer_ || step_ != LinkStep::wantedService) {
        expect(LinkStep::wantedService);
    }
}

void Link::characteristicsTold() {
    if (phase_ == Phase::up) expect(LinkStep::characteristics);
}

void Link::attributesAdded() {
    // Before the services are resolved they are expected to come.
    if (phase_ == Phase::up && servicesAreResolved() && timer_)
        settling_ = around_.loop.after(settlingTime, [this] { attributesSettled(); });
}

void Link::attributesSettled() {
    settling_.reset();
    if (step_ == LinkStep::wantedService) return tellServices(false);
    if (isOutdated()) giveUp(LinkStep::characteristics, "One of them came late.");
}

bool Link::isOutdated() const {
    return std::any_of(listeners_.begin(), listeners_.end(),
                       [](const auto& listener) { return listener->isOutdated(); });
}

void Link::valuesFlow() { around_.troubles.erase(device_); }

void Link::subscriptionFailed(std::string_view reason) {
    if (phase_ == Phase::up) giveUp(LinkStep::subscription, std::string(reason));
}

// Those who have heard of the link hear of its end, and begin again: on a link that was made again behind
// their back they would not do what they do once a link.
void Link::giveUp(LinkStep step, const std::string& reason) {
    around_.diagnose(label() + ": no " + limitOf(step).name + " (" + reason + "); the link is ended");
    if (around_.troubles.size() >= mostTroubled) around_.troubles.clear();
    ++around_.troubles[device_];
    for (const auto& listener : listeners_) session_->forget(*listener);
    leaving_ = std::exchange(listeners_, {});
    givenUp_ = CBError{reason};
    close();
}

void Link::callFailed(const char* call, const Reply& reply) {
    std::string line = label() + ": " + call + ": ";
    line += reply.errorText();
    if (demandsPairing(reply)) line += " (the device demands pairing: pair with it once, by bluetoothctl)";
    around_.diagnose(line);
    if (phase_ == Phase::up && mayBeUnlinked(reply)) doubt();
}

void Link::doubt() {
    if (!doubt_) doubt_ = read([this] { doubt_.reset(); });
}

Call Link::read(std::function<void()> then) {
    Message message = around_.service.newCall(device_, propertiesInterface, "GetAll");
    message.append("s", deviceInterface);
    return around_.service.call(message, [this, then = std::move(then)](const Reply& reply) {
        const auto self = shared_from_this();
        ObjectTree& tree = around_.service.tree();
        if (isUnknownObject(reply)) tree.deviceIsGone(device_);
        if (!reply.failed()) tree.deviceRead(device_, reply.message());
        then();
    });
}

void Link::close() {
    wasConnected_ = phase_ == Phase::up || node()->connected;
    disconnectAnswered_ = false;
    enter(Phase::closing);
    call_ = around_.service.call(
        around_.service.newCall(device_, deviceInterface, "Disconnect"),
        [this](const Reply& reply) {
            if (reply.failed()) callFailed("Disconnect", reply);
            disconnectAnswered_ = true;
            timer_ = around_.loop.after(closingGrace, [this] { closed(); });
            if (node() && node()->connected) doubt();
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
    const auto reason = std::exchange(givenUp_, std::nullopt);
    for (const auto& listener : std::exchange(leaving_, {})) listener->linkEnded(reason ? &*reason : nullptr);
    if (listeners_.empty()) return enter(Phase::over);
    failures_ = 0;
    beginAfterTroubles();
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
    follow(device, change);
    if (change.doubtful && (phase_ == Phase::connecting || phase_ == Phase::up)) doubt();
}

void Link::follow(const DeviceNode& device, const ObjectTree::DeviceChange& change) {
    switch (phase_) {
    case Phase::connecting:
        // It may come before the reply.
        if (device.servicesResolved) return stands();
        if (change.connection && wasConnected_ && !device.connected) return attemptFailed();
        wasConnected_ = wasConnected_ || device.connected;
        return;
    case Phase::up:
        if (change.connection && !device.connected) return lost();
        if (!change.services || !device.servicesResolved) return;
        if (step_ == LinkStep::services) timer_.reset();
        tellServices(false);
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
