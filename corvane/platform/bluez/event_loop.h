// The main queue of a process that waits on descriptors: posted tasks, timers, and sources of events.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "corvane/platform/main_queue.h"

namespace corvane::bluez {

using Clock = std::chrono::steady_clock;

/// Closes the descriptor it holds.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }

private:
    int number_;
};

/// Something that has a descriptor to wait on.
class EventSource {
public:
    virtual ~EventSource() = default;

    virtual int descriptor() const = 0;
    /// The epoll events to wait for; asked before each wait.
    virtual std::uint32_t events() const = 0;
    /// When to dispatch although nothing happens on the descriptor; asked before each wait.
    virtual std::optional<Clock::time_point> deadline() const { return std::nullopt; }
    /// Handles one thing; false when there was nothing to handle.
    virtual bool dispatch() noexcept = 0;
};

/// Runs on one thread. Nothing polls: with no task, no timer and no traffic the thread sleeps.
///
/// Where the process has no descriptor left for it, the loop goes on with tasks and timers, and asks for its
/// descriptor again each second; until then its sources are dispatched by their deadlines only.
class EventLoop final : public MainQueue {
public:
    EventLoop();

    /// Told once when there is no descriptor. May be absent.
    std::function<void(std::string_view line)> diagnostics;

    void post(std::function<void()> task) override;
    std::unique_ptr<Timer> scheduleTimer(std::chrono::nanoseconds interval,
                                         std::function<void()> tick) override;
    /// Fires once.
    [[nodiscard]] std::unique_ptr<Timer> after(std::chrono::nanoseconds delay, std::function<void()> task);

    /// Before what they refer to goes.
    void discardTasks() { tasks_.clear(); }

    void attach(std::shared_ptr<EventSource> source);
    /// The source is not dispatched any more; harmless when it is not attached.
    void detach(const EventSource& source);

    /// Ends the present wait, or the next one. Any thread and any signal handler may call it.
    void wake() noexcept;

    /// Becomes readable when there is something to do before `timeout` is over. -1 while there is none, which
    /// poll(2) passes over; the timeout is then a second at most.
    int descriptor() const { return epoll_.get(); }
    /// How long to wait at most; none means for ever. To be asked right before each wait.
    std::optional<std::chrono::nanoseconds> timeout();
    /// Waits until something is due, at most for `limit`, and handles it. Does nothing from inside itself.
    void step(std::optional<std::chrono::nanoseconds> limit = std::nullopt) noexcept;

    /// Steps until `done` returns true or that much real time has passed; returns what `done` returned last.
    bool runUntil(const std::function<bool()>& done, std::chrono::nanoseconds limit);

    /// Counts tasks, ticks, and what sources have handled.
    std::uint64_t handled() const { return handled_; }

    /// The time of the timers.
    Clock::time_point now() const { return stoppedAt_.value_or(Clock::now()) + skipped_; }
    /// Lets time pass for the timers without waiting for it; for tests.
    void skip(std::chrono::nanoseconds time) { skipped_ += time; }
    /// From now on nothing but `skip` lets it pass; for tests.
    void stopClock() { stoppedAt_ = Clock::now(); }
    std::optional<Clock::time_point> nextTimer() const;

private:
    class ScheduledTimer;
    struct Scheduled {
        std::chrono::nanoseconds interval;  // Zero: once.
        std::function<void()> action;
        ScheduledTimer* handle = nullptr;
    };
    using Due = std::pair<Clock::time_point, std::uint64_t>;

    struct Attached {
        std::shared_ptr<EventSource> source;
        std::optional<std::uint32_t> waitedFor;  // None: not by epoll, until that takes it.
    };

    bool open();
    bool control(int operation, std::uint64_t id, int descriptor, std::uint32_t events);
    void waitFor(std::uint64_t id, Attached& attached);
    void tellOfNoDescriptor();
    std::unique_ptr<Timer> schedule(std::chrono::nanoseconds delay, Scheduled scheduled);
    void runTasks();
    void runTimers();
    void dispatchSources(std::optional<std::chrono::nanoseconds> longest);
    void dispatchReady(std::uint64_t id);
    void dispatchOverdue();
    void dispatch(std::shared_ptr<EventSource> source);

    Descriptor epoll_;
    Descriptor wakeUp_;
    std::atomic<int> wakeUpNumber_{-1};  // For other threads.
    static_assert(std::atomic<int>::is_always_lock_free);
    bool toldOfNoDescriptor_ = false;
    std::deque<std::function<void()>> tasks_;
    std::map<Due, std::shared_ptr<Scheduled>> timers_;
    std::uint64_t timersMade_ = 0;
    std::map<std::uint64_t, Attached> sources_;
    std::uint64_t sourcesMade_ = 0;
    std::chrono::nanoseconds skipped_{0};
    std::optional<Clock::time_point> stoppedAt_;
    std::uint64_t handled_ = 0;
    bool running_ = false;
};

}  // namespace corvane::bluez
