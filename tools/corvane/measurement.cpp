#include "measurement.h"

#include <utility>

#include "sessions/json.h"

namespace corvane::tool {
namespace {

using sessions::HostCallback;
using sessions::HostReport;

/// A device that has given a reading and then nothing for that long gives one reading a link.
constexpr std::chrono::seconds longSilence{20};

std::string radioText(std::string_view state) {
    if (state == "poweredOff") return "the radio is off";
    if (state == "unauthorized") return "the radio may not be used";
    if (state == "unsupported") return "there is no radio";
    return "the radio is not ready";
}

}  // namespace

Measurement::Measurement(MeasurementPlan plan, Platform& platform, MeasurementObserver& observer)
    : plan_(std::move(plan)), platform_(platform), observer_(observer) {}

void Measurement::begin() {
    makeDevice();
    setDeadline();
    call("startScan");
}

void Measurement::end(ExitStatus status, std::string text) {
    if (ended_) return;
    ended_ = true;
    status_ = status;
    text_ = std::move(text);
    deadline_.reset();
    silence_.reset();
    setStage("ended");
    after([this] { linked_ ? call("disconnect") : close(); });
}

void Measurement::heard(const HostReport& report) {
    switch (report.callback) {
    case HostCallback::stateCentralManager:
        radioChanged(report.state);
        break;
    case HostCallback::stateConnection:
        connectionChanged(report.state == "connect");
        break;
    case HostCallback::stateLoading:
        if (ended_) break;
        if (report.record) {
            recordTaken(*report.record);
        } else if (report.state == "error") {
            end(ExitStatus::deviceError, std::string(report.text));
        } else {
            setStage("measuring");
            if (device_->has("start")) after([this] { call("start"); });
        }
        break;
    }
}

void Measurement::radioChanged(std::string_view state) {
    // What a new driver says before its first event, and nothing new.
    if (state == "unknown") return;
    const bool wasOn = std::exchange(radio_, state) == "poweredOn";
    const bool isBack = radioOn() && !wasOn && radioWasOn_;
    radioWasOn_ = radioWasOn_ || radioOn();
    if (ended_) return;
    if (radioOn()) {
        setStage("searching");
        if (isBack && plan_.renewsDevice) after([this] { beginAgain(); });
    } else if (radioWasOn_) {
        setStage("waiting for the radio");
    } else if (radio_ != "resetting") {
        endWithoutRadio();
    }
}

void Measurement::endWithoutRadio() { end(ExitStatus::noRadio, radioText(radio_) + plan_.helpWithRadio); }

void Measurement::connectionChanged(bool linked) {
    linked_ = linked;
    silence_.reset();
    if (ended_) {
        if (!linked) after([this] { close(); });
    } else if (linked) {
        setStage("linked");
    } else {
        after([this] { beginAgain(); });
    }
}

void Measurement::recordTaken(const sessions::Json& record) {
    observer_.recordTaken(*this, record);
    if (++taken_ == plan_.count) {
        end(ExitStatus::done, {});
    } else {
        setDeadline();
        awaitNext();
    }
}

// Some models have to be asked for each reading, some send by themselves, and some send one and wait for the
// next link.
void Measurement::awaitNext() {
    for (const std::string_view request : {"startResult", "start"}) {
        if (!device_->has(request)) continue;
        after([this, request] { call(request); });
        return;
    }
    silence_ = platform_.mainQueue().scheduleTimer(longSilence, [this] {
        call("disconnect");
        silence_.reset();
    });
}

void Measurement::makeDevice() {
    device_.reset();
    device_ = plan_.makeDevice([this](const HostReport& report) { heard(report); });
}

void Measurement::beginAgain() {
    if (ended_ || !radioOn()) return;
    if (plan_.renewsDevice) makeDevice();
    call("startScan");
}

void Measurement::call(std::string_view operation) {
    if (device_) device_->call(operation);
}

void Measurement::after(std::function<void()> task) { platform_.mainQueue().post(std::move(task)); }

void Measurement::setDeadline() {
    deadline_ = platform_.mainQueue().scheduleTimer(plan_.timeout, [this] {
        if (radioOn()) {
            end(ExitStatus::timedOut, "timed out while " + std::string(stage_));
        } else {
            endWithoutRadio();
        }
    });
}

void Measurement::setStage(std::string_view stage) {
    stage_ = stage;
    observer_.stageChanged(*this);
}

}  // namespace corvane::tool
