// The one thread on which everything of this library runs.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace corvane {

/// A scheduled repeating timer. Letting go of it invalidates it, also from inside its own tick.
class Timer {
public:
    Timer() = default;
    virtual ~Timer() = default;
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;
};

class MainQueue {
public:
    virtual ~MainQueue() = default;

    /// Runs the task as soon as the queue is free: never from inside this call, in the order of posting.
    /// A task that is posted by a task runs after those that were waiting already.
    virtual void post(std::function<void()> task) = 0;

    /// First fires one interval from now, then every interval. The timer must be released before the queue is
    /// gone. `interval` is greater than zero.
    virtual std::unique_ptr<Timer> scheduleTimer(std::chrono::nanoseconds interval,
                                                 std::function<void()> tick) = 0;
};

}  // namespace corvane
