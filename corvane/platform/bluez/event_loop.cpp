#include "corvane/platform/bluez/event_loop.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <vector>

namespace corvane::bluez {
namespace {

// A task that posts itself again must not keep the radio's events waiting for ever.
constexpr int roundsOfTasks = 16;
// Nor must one busy source keep the others waiting.
constexpr int turnsOfASource = 64;
constexpr int eventsAtATime = 16;
// How long to wait for a descriptor that was not to be had.
constexpr std::chrono::nanoseconds descriptorDelay = std::chrono::seconds(1);
// Sources have the numbers from 1 on.
constexpr std::uint64_t wakeUpId = 0;

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

EventLoop::EventLoop() { open(); }

// False where the process has no descriptor left; to be tried again.
bool EventLoop::open() {
    if (epoll_) return true;
    Descriptor wakeUp(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    Descriptor epoll(::epoll_create1(EPOLL_CLOEXEC));
    if (!wakeUp || !epoll) return false;
    epoll_ = std::move(epoll);
    wakeUp_ = std::move(wakeUp);
    control(EPOLL_CTL_ADD, wakeUpId, wakeUp_.get(), EPOLLIN);
    wakeUpNumber_ = wakeUp_.get();
    return true;
}

void EventLoop::wake() noexcept {
    const int number = wakeUpNumber_;
    const int before = errno;
    const std::uint64_t one = 1;
    // Without the descriptor no wait is long; a full counter wakes the loop as it is.
    if (number >= 0 && ::write(number, &one, sizeof one) < 0) errno = before;
}

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
    waitFor(id, sources_.emplace(id, Attached{std::move(source), {}}).first->second);
}

bool EventLoop::control(int operation, std::uint64_t id, int descriptor, std::uint32_t events) {
    epoll_event event{.events = events, .data = {.u64 = id}};
    return ::epoll_ctl(epoll_.get(), operation, descriptor, &event) == 0;
}

void EventLoop::waitFor(std::uint64_t id, Attached& attached) {
    const std::uint32_t events = attached.source->events();
    if (!epoll_ || attached.waitedFor == events) return;
    const int operation = attached.waitedFor ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
    if (control(operation, id, attached.source->descriptor(), events)) attached.waitedFor = events;
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
    const bool waitsByEpoll = open();
    for (auto& [id, attached] : sources_) {
        waitFor(id, attached);
        const auto due = attached.source->deadline();
        if (due && (!next || *due < *next)) next = due;
    }
    if (!waitsByEpoll) {
        tellOfNoDescriptor();
        next = std::min(next.value_or(Clock::time_point::max()), Clock::now() + descriptorDelay);
    }
    if (!next) return std::nullopt;
    return std::max(std::chrono::nanoseconds::zero(),
                    std::chrono::duration_cast<std::chrono::nanoseconds>(*next - Clock::now()));
}

void EventLoop::tellOfNoDescriptor() {
    if (std::exchange(toldOfNoDescriptor_, true) || !diagnostics) return;
    diagnostics("no file descriptor is left to wait with; trying again each second");
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
    const int patience = wholeMilliseconds(longest);
    const int count = epoll_ ? ::epoll_wait(epoll_.get(), ready.data(), eventsAtATime, patience)
                             : ::poll(nullptr, 0, patience);
    for (int i = 0; i < count; ++i) {
        // A copy: the structure is packed, and its members are not aligned.
        const std::uint64_t id = ready[static_cast<std::size_t>(i)].data.u64;
        dispatchReady(id);
    }
    dispatchOverdue();
}

void EventLoop::dispatchReady(std::uint64_t id) {
    if (id == wakeUpId) {
        eventfd_t ignored = 0;
        ::eventfd_read(wakeUp_.get(), &ignored);
        return;
    }
    // What one source's events do may detach another.
    const auto found = sources_.find(id);
    if (found != sources_.end()) dispatch(found->second.source);
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
