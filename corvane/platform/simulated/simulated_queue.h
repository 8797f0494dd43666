// A main queue in memory, in virtual time or in real time.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "corvane/platform/main_queue.h"

namespace corvane {

/// Runs what is posted and what falls due in order of due time, and in order of asking where that is the
/// same. In virtual time the clock stands still while an item runs and jumps to the next one; in real time
/// the thread that runs the queue sleeps until then, and an item may run late but never early.
class SimulatedQueue final : public MainQueue {
public:
    using Duration = std::chrono::nanoseconds;

    explicit SimulatedQueue(bool realTime = false);

    void post(std::function<void()> task) override { at(now(), std::move(task)); }
    std::unique_ptr<Timer> scheduleTimer(Duration interval, std::function<void()> tick) override;

    /// Runs the task once, at that time since the queue was made, or as soon as the queue is free if it has
    /// passed.
    void at(Duration due, std::function<void()> task);

    /// Time since the queue was made.
    Duration now() const;

    /// When the earliest item that waits falls due; nothing when none waits.
    std::optional<Duration> nextDue() const;

    /// Items that wait, timers included.
    std::size_t pending() const { return items_.size(); }

    /// Runs the earliest item, waiting until it is due. False when there is none.
    bool step();

    /// Runs what falls due until that much time has passed. Not from inside an item.
    void runFor(Duration time);

    /// The same, but ends as soon as `done` returns true, and returns whether it did. `done` is asked before
    /// the first and after each item, and in real time at least every 50 ms, so that a flag set by a signal
    /// handler is seen.
    bool runUntil(const std::function<bool()>& done, Duration limit);

    /// Runs until nothing waits but repeating timers, and returns true; false when `limit` has passed before.
    bool runUntilIdle(Duration limit);

private:
    /// Due time, and the order of asking.
    using Key = std::pair<Duration, std::uint64_t>;
    using Items = std::map<Key, std::function<void()>>;
    class RepeatingTimer;

    bool run(const std::function<bool()>& done, Duration limit, Duration longestSleep);
    void waitUntil(Duration time);
    Items::iterator insert(Duration due, std::function<void()> task);

    const bool realTime_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    Duration virtualNow_{0};
    std::uint64_t asked_ = 0;
    std::size_t timers_ = 0;
    Items items_;
};

}  // namespace corvane
