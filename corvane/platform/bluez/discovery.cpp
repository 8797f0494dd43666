#include "corvane/platform/bluez/discovery.h"

#include "corvane/platform/bluez/bluez_names.h"
#include "corvane/platform/bluez/retry_delay.h"

namespace corvane::bluez {
namespace {

// So often "in progress", and a discovery of ours must be on whose start was never answered, or none is.
constexpr unsigned mostInProgress = 8;

bool isInProgress(const Reply& reply) { return reply.is(errorInProgress); }

bool isRefusal(const Reply& reply) {
    return reply.is(SD_BUS_ERROR_ACCESS_DENIED) || reply.is("org.bluez.Error.NotAuthorized");
}

}  // namespace

void Discovery::want(bool wanted) {
    wanted_ = wanted;
    reconcile();
}

Discovery::Pause Discovery::pause() {
    Pause pause = pause_.lock();
    if (!pause) {
        // A pause that is being released counts no more while it is.
        pause = Pause(this, [this](void*) { reconcile(); });
        pause_ = pause;
    }
    reconcile();
    return pause;
}

void Discovery::useAdapter(std::string path) {
    adapter_ = std::move(path);
    filterIsSet_ = false;
    mayBeOn_ = false;
    filterCall_.reset();
    call_.reset();
    retry_.reset();
    failures_ = 0;
    state_ = State::off;
    reconcile();
}

void Discovery::reconcile() {
    if (adapter_.empty()) return;
    const bool desired = wanted_ && !isPaused();
    if (state_ == State::on && !desired && !retry_) return stop();
    if (state_ == State::off && !desired && mayBeOn_) return stop();
    if (state_ != State::off) return;
    if (!desired) {
        retry_.reset();
        failures_ = 0;
        if (isPaused()) observer_.airIsQuiet();
    } else if (!retry_) {
        start();
    }
}

void Discovery::setFilter() {
    filterIsSet_ = true;
    Message message = service_.newCall(adapter_, adapterInterface, "SetDiscoveryFilter");
    // Any filter makes BlueZ report each change of the signal strength, and devices that do not call
    // themselves discoverable. Repeated advertising data is of no use here.
    message.append("a{sv}", 2, "Transport", "s", "le", "DuplicateData", "b", 0);
    filterCall_ = service_.call(message, [this](const Reply& reply) {
        filterIsSet_ = !reply.failed();
        if (reply.failed()) observer_.diagnose("SetDiscoveryFilter", reply);
    });
}

void Discovery::start() {
    state_ = State::starting;
    if (!filterIsSet_) setFilter();
    call_ = service_.call(service_.newCall(adapter_, adapterInterface, "StartDiscovery"),
                          [this](const Reply& reply) { started(reply); });
}

void Discovery::started(const Reply& reply) {
    if (!reply.failed() || (isInProgress(reply) && failures_ >= mostInProgress)) return begun();
    observer_.diagnose("StartDiscovery", reply);
    if (reply.is(SD_BUS_ERROR_NO_REPLY)) return startUnanswered();
    state_ = State::off;
    mayBeOn_ = isInProgress(reply);
    if (isRefusal(reply)) return observer_.discoveryRefused();
    retryLater();
    reconcile();
}

// The property says whether anybody's discovery is on. It is asked only where our own call has no answer.
void Discovery::startUnanswered() {
    call_ = service_.readFlag(adapter_, adapterInterface, "Discovering", [this](std::optional<bool> on) {
        if (on.value_or(false)) return begun();
        call_.reset();
        state_ = State::off;
        retryLater();
        reconcile();
    });
}

void Discovery::begun() {
    call_.reset();
    failures_ = 0;
    state_ = State::on;
    reconcile();
}

void Discovery::retryLater() {
    retry_ = loop_.after(retryDelay(++failures_), [this] {
        retry_.reset();
        reconcile();
    });
}

void Discovery::stop() {
    state_ = State::stopping;
    mayBeOn_ = false;
    retry_.reset();
    call_ = service_.call(
        service_.newCall(adapter_, adapterInterface, "StopDiscovery"),
        [this](const Reply& reply) { stopped(reply); }, std::chrono::seconds(5));
}

void Discovery::stopped(const Reply& reply) {
    if (reply.failed()) observer_.diagnose("StopDiscovery", reply);
    if (reply.is(SD_BUS_ERROR_NO_REPLY)) return stopUnanswered();
    // With any other answer it is off.
    if (!isInProgress(reply) || failures_ >= mostInProgress) return ended();
    call_.reset();
    state_ = State::on;
    retryLater();
}

void Discovery::stopUnanswered() {
    call_ = service_.readFlag(adapter_, adapterInterface, "Discovering", [this](std::optional<bool> on) {
        if (!on.value_or(true) || failures_ >= mostInProgress) return ended();
        call_.reset();
        state_ = State::on;
        retryLater();
    });
}

void Discovery::ended() {
    call_.reset();
    failures_ = 0;
    state_ = State::off;
    observer_.discoveryEnded();
    reconcile();
}

}  // namespace corvane::bluez
