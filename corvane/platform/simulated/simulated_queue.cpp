#include "corvane/platform/simulated/simulated_queue.h"

#include <algorithm>
#include <thread>
#include <utility>

namespace corvane {
namespace {

using Duration = SimulatedQueue::Duration;

/// Far enough away, and near enough to be added to.
constexpr Duration forever = Duration::max() / 4;

Duration later(Duration time, Duration by) { return std::min(time, forever) + std::min(by, forever); }

}  // namespace

/// Has exactly one item in the queue, which goes with it.
class SimulatedQueue::RepeatingTimer final : public Timer {
public:
    RepeatingTimer(SimulatedQueue& queue, Duration interval, std::function<void()> tick)
        : queue_(queue), interval_(interval),
          tick_(std::make_shared<const std::function<void()>>(std::move(tick))) {
        ++queue_.timers_;
        arm(later(queue_.now(), interval_));
    }
    ~RepeatingTimer() override {
        --queue_.timers_;
        queue_.items_.erase(item_);
    }

private:
    void arm(Duration due) {
        due_ = due;
        item_ = queue_.insert(due, [this] { fire(); });
    }

    void fire() {
        // Ticks that were missed in real time are one tick.
        const Duration late = (queue_.now() - due_) % interval_;
        arm(later(queue_.now() - late, interval_));
        const auto running = tick_;  // The tick may release the timer.
        (*running)();
    }

    SimulatedQueue& queue_;
    const Duration interval_;
    const std::shared_ptr<const std::function<void()>> tick_;
    Duration due_{};
    Items::iterator item_;
};

SimulatedQueue::SimulatedQueue(bool realTime) : realTime_(realTime) {}

std::unique_ptr<Timer> SimulatedQueue::scheduleTimer(Duration interval, std::function<void()> tick) {
    return std::make_unique<RepeatingTimer>(*this, std::max(interval, Duration(1)), std::move(tick));
}

void SimulatedQueue::at(Duration due, std::function<void()> task) {
    insert(std::max(due, now()), std::move(task));
}

SimulatedQueue::Items::iterator SimulatedQueue::insert(Duration due, std::function<void()> task) {
    return items_.emplace(Key(due, asked_++), std::move(task)).first;
}

Duration SimulatedQueue::now() const {
    return realTime_ ? Duration(std::chrono::steady_clock::now() - start_) : virtualNow_;
}

std::optional<Duration> SimulatedQueue::nextDue() const {
    if (items_.empty()) return std::nullopt;
    return items_.begin()->first.first;
}

bool SimulatedQueue::step() {
    if (items_.empty()) return false;
    waitUntil(*nextDue());
    const auto item = items_.extract(items_.begin());
    item.mapped()();
    return true;
}

void SimulatedQueue::runFor(Duration time) {
    run([] { return false; }, time, forever);
}

bool SimulatedQueue::runUntil(const std::function<bool()>& done, Duration limit) {
    return run(done, limit, std::chrono::milliseconds(50));
}

bool SimulatedQueue::runUntilIdle(Duration limit) {
    return run([this] { return items_.size() == timers_; }, limit, forever);
}

bool SimulatedQueue::run(const std::function<bool()>& done, Duration limit, Duration longestSleep) {
    const Duration end = later(now(), limit);
    while (!done()) {
        const Duration next = std::min(nextDue().value_or(end), end);
        if (realTime_ && next - now() > longestSleep) {
            waitUntil(now() + longestSleep);
        } else if (nextDue() && *nextDue() <= end) {
            step();
        } else {
            waitUntil(end);
            return done();
        }
    }
    return true;
}

void SimulatedQueue::waitUntil(Duration time) {
    if (realTime_) {
        std::this_thread::sleep_until(start_ + time);
    } else {
        virtualNow_ = std::max(virtualNow_, time);
    }
}

}  // namespace corvane
