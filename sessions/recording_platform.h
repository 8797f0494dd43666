// The platform that a recorded driver is given: it passes everything on to a real one and writes it down.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "corvane/platform/platform.h"
#include "sessions/json.h"
#include "sessions/recorder.h"
#include "sessions/trace.h"

namespace corvane::sessions {

/// What happens to a driver happens in steps: a host call, an event, a task, a tick. Each is one line of the
/// script, written when the step is over, since what the host did inside its callbacks stands before it.
class RecordingPlatform final : public Platform,
                                private MainQueue,
                                public std::enable_shared_from_this<RecordingPlatform> {
public:
    using Duration = std::chrono::nanoseconds;

    RecordingPlatform(Platform& inner, const Recording& recording);

    Trace& trace() { return trace_; }

    void write(const Json& line);

    /// An event, or a call between events: time passes before it. `body` is what the line says.
    template <class Body>
    void step(const Json& line, Body&& body) {
        settle();
        perform(line, body);
    }

    /// What the host does, be it inside a callback.
    template <class Body>
    void hostAction(const Json& line, Body&& body) {
        if (running_.empty()) return step(line, body);
        Json held{{"during", running_.back()}};
        held.update(line);
        held_.push_back(std::move(held));
        body();
    }

    /// The driver has called a callback; `listener` is the host's.
    void called(const HostReport& report, const HostListener& listener);

    std::shared_ptr<CBCentralManager>
    makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) override;
    MainQueue& mainQueue() override { return *this; }
    void log(std::string_view line) override;
    void preconditionFailed(std::string_view driver, std::string_view what) override;

private:
    class RecordingTimer;
    /// The driver's timer as the script has it.
    struct Schedule {
        Duration due;
        Duration interval;
        std::function<void()> tick;
        bool isLive = true;
    };

    void post(std::function<void()> task) override;
    std::unique_ptr<Timer> scheduleTimer(Duration interval, std::function<void()> tick) override;

    void perform(const Json& line, const std::function<void()>& body);
    void settle();
    void moveTo(Duration time);
    void taskIsDue();
    void tickIsDue(std::shared_ptr<Schedule> schedule);
    void runTasks();

    Platform& inner_;
    const Recording recording_;
    Trace trace_;
    const Duration start_;

    Duration now_{0};  ///< Where the script's time stands.
    std::deque<std::function<void()>> tasks_;
    std::weak_ptr<Schedule> timer_;  ///< A driver has one at most.

    // Of the step that is running.
    std::size_t callbacks_ = 0;
    std::vector<std::size_t> running_;  ///< Numbers of the callbacks that have not returned, innermost last.
    std::vector<Json> held_;
};

}  // namespace corvane::sessions
