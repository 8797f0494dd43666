#include "corvane/platform/bluez/event_loop.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <vector>

namespace corvane::bluez {
namespace {

// A task that posts itself again must not keep the radio's events waiting for ever.
constexpr int roundsOfTasks = 16;
// Nor must one busy source keep the others waiting.
constexpr int turnsOfASource = 64;
constexpr int eventsAtATime = 16;

// As epoll takes it; rounded up, since waking early would only mean to wait again.
int wholeMilliseconds(std::optional<std::chrono::nanoseconds> time) {
    if (!time) return -1;
    const auto whole = std::chrono::ceil<std::chrono::milliseconds>(*time).count();
    return static_cast<int>(std::clamp<std::int64_t>(whole, 0, INT_MAX));
}

}  // namespace

Descriptor::~Descriptor() {
    if (number_ >= 0) ::close(number_);
}

class EventLoop::ScheduledTimer final : public Timer {
public:
    ScheduledTimer(EventLoop& loop, Due due, std::shared_ptr<Scheduled> scheduled)
        : loop_(loop), due_(due), scheduled_(std::move(scheduled)) {
        scheduled_->handle = this;
        loop_.timers_.emplace(due_, scheduled_);
    }
    ~ScheduledTimer() override {
        scheduled_->handle = nullptr;
        loop_.timers_.erase(due_);
    }

    void moveTo(Clock::time_point time) {
        loop_.timers_.erase(due_);
        due_.first = time;
        loop_.timers_.emplace(due_, scheduled_);
    }

private:
    EventLoop& loop_;
    Due due_;
    std::shared_ptr<Scheduled> scheduled_;
};

EventLoop::EventLoop() : epoll_(::epoll_create1(EPOLL_CLOEXEC)) {}

void EventLoop::post(std::function<void()> task) { tasks_.push_back(std::move(task)); }

std::unique_ptr<Timer> EventLoop::schedule(std::chrono::nanoseconds delay, Scheduled scheduled) {
    const Due due{now() + delay, ++timersMade_};
    return std::make_unique<ScheduledTimer>(*this, due, std::make_shared<Scheduled>(std::move(scheduled)));
}

std::unique_ptr<Timer> EventLoop::scheduleTimer(std::chrono::nanoseconds interval,
                                                std::function<void()> tick) {
    return schedule(interval, {.interval = interval, .action = std::move(tick)});
}

std::unique_ptr<Timer> EventLoop::after(std::chrono::nanoseconds delay, std::function<void()> task) {
    return schedule(delay, {.interval = {}, .action = std::move(task)});
}

void EventLoop::attach(std::shared_ptr<EventSource> source) {
    const std::uint64_t id = ++sourcesMade_;
    epoll_event event{.events = source->events(), .data = {.u64 = id}};
    ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, source->descriptor(), &event);
    sources_.emplace(id, Attached{std::move(source), event.events});
}

void EventLoop::detach(const EventSource& source) {
    const auto found = std::find_if(sources_.begin(), sources_.end(),
                                    [&](const auto& entry) { return entry.second.source.get() == &source; });
    if (found == sources_.end()) return;
    ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, source.descriptor(), nullptr);
    sources_.erase(found);
}

std::optional<Clock::time_point> EventLoop::nextTimer() const {
    return timers_.empty() ? std::nullopt : std::optional(timers_.begin()->first.first);
}

std::optional<std::chrono::nanoseconds> EventLoop::timeout() {
    if (!tasks_.empty()) return std::chrono::nanoseconds::zero();
    std::optional<Clock::time_point> next = nextTimer();
    if (next) *next += Clock::now() - now();
    for (auto& [id, attached] : sources_) {
        const std::uint32_t events = attached.source->events();
        if (events != attached.waitedFor) {
            epoll_event event{.events = events, .data = {.u64 = id}};
            ::epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, attached.source->descriptor(), &event);
            attached.waitedFor = events;
        }
        const auto due = attached.source->deadline();
        if (due && (!next || *due < *next)) next = due;
    }
    if (!next) return std::nullopt;
    return std::max(std::chrono::nanoseconds::zero(),
                    std::chrono::duration_cast<std::chrono::nanoseconds>(*next - Clock::now()));
}

void EventLoop::step(std::optional<std::chrono::nanoseconds> limit) noexcept {
    if (running_) return;
    running_ = true;
    // Whoever waits for what a task has done is asked before the next wait.
    const bool busy = !tasks_.empty();
    runTasks();
    auto longest = busy ? std::chrono::nanoseconds::zero() : timeout();
    if (limit && (!longest || *limit < *longest)) longest = limit;
    dispatchSources(longest);
    runTimers();
    running_ = false;
}

bool EventLoop::runUntil(const std::function<bool()>& done, std::chrono::nanoseconds limit) {
    const auto begin = Clock::now();
    while (!done()) {
        const auto left = limit - (Clock::now() - begin);
        if (left <= left.zero()) return false;
        step(left);
    }
    return true;
}

void EventLoop::runTasks() {
    for (int round = 0; round < roundsOfTasks && !tasks_.empty(); ++round) {
        for (auto waiting = tasks_.size(); waiting > 0; --waiting, ++handled_) {
            const auto task = std::move(tasks_.front());
            tasks_.pop_front();
            task();
        }
    }
}

void EventLoop::runTimers() {
    if (timers_.empty()) return;
    const auto until = now();
    for (; !timers_.empty() && timers_.begin()->first.first <= until; ++handled_) {
        const auto [due, running] = *timers_.begin();
        if (running->interval > std::chrono::nanoseconds::zero()) {
            // Ticks that could not be made in time are left out.
            const auto missed = (until - due.first) / running->interval;
            running->handle->moveTo(due.first + running->interval * (missed + 1));
        } else {
            timers_.erase(timers_.begin());
        }
        running->action();
        runTasks();
    }
}

void EventLoop::dispatchSources(std::optional<std::chrono::nanoseconds> longest) {
    std::array<epoll_event, eventsAtATime> ready;
    const int count = ::epoll_wait(epoll_.get(), ready.data(), eventsAtATime, wholeMilliseconds(longest));
    // What one source's events do may detach another.
    for (int i = 0; i < count; ++i) {
        // A copy: the structure is packed, and its members are not aligned.
        const std::uint64_t id = ready[static_cast<std::size_t>(i)].data.u64;
        const auto found = sources_.find(id);
        if (found != sources_.end()) dispatch(found->second.source);
    }
    dispatchOverdue();
}

void EventLoop::dispatchOverdue() {
    std::vector<std::shared_ptr<EventSource>> overdue;
    for (const auto& [id, attached] : sources_) {
        const auto deadline = attached.source->deadline();
        if (deadline && *deadline <= Clock::now()) overdue.push_back(attached.source);
    }
    for (const auto& source : overdue) dispatch(source);
}

void EventLoop::dispatch(std::shared_ptr<EventSource> source) {
    for (int turn = 0; turn < turnsOfASource && source->dispatch(); ++turn, ++handled_) runTasks();
    runTasks();
}

}  // namespace corvane::bluez
