#include "sessions/recording_platform.h"

#include <algorithm>
#include <ostream>

#include "sessions/recording_central.h"

namespace corvane::sessions {
namespace {

/// The longest that a script may advance at once.
constexpr std::chrono::nanoseconds longestAdvance = std::chrono::seconds(1'000'000);

Json advanceLine(std::chrono::nanoseconds time) {
    return {{"advance", std::chrono::duration<double>(time).count()}};
}

}  // namespace

class RecordingPlatform::RecordingTimer final : public Timer {
public:
    RecordingTimer(RecordingPlatform& platform, std::shared_ptr<Schedule> schedule,
                   std::unique_ptr<Timer> inner)
        : platform_(platform), schedule_(std::move(schedule)), inner_(std::move(inner)) {}
    ~RecordingTimer() override {
        schedule_->isLive = false;
        platform_.trace_.invalidateTimer();
    }

private:
    RecordingPlatform& platform_;
    const std::shared_ptr<Schedule> schedule_;
    const std::unique_ptr<Timer> inner_;
};

RecordingPlatform::RecordingPlatform(Platform& inner, const Recording& recording)
    : inner_(inner), recording_(recording), trace_(recording.trace), start_(recording.clock()) {}

void RecordingPlatform::write(const Json& line) {
    if (recording_.script) *recording_.script << jsonText(line) << '\n';
}

void RecordingPlatform::perform(const Json& line, const std::function<void()>& body) {
    callbacks_ = 0;
    body();
    for (const Json& held : std::exchange(held_, {})) write(held);
    write(line);
    if (recording_.script) recording_.script->flush();
    if (recording_.trace) recording_.trace->flush();
}

// Time in the script never reaches what the timer waits for before the timer has really fired, and stands
// still while tasks wait: they would run.
void RecordingPlatform::settle() {
    if (!tasks_.empty()) return;
    Duration time = recording_.clock() - start_;
    if (const auto timer = timer_.lock()) time = std::min(time, timer->due - Duration(1));
    moveTo(time);
}

void RecordingPlatform::moveTo(Duration time) {
    while (now_ < time) {
        const Duration by = std::min(time - now_, longestAdvance);
        write(advanceLine(by));
        now_ += by;
    }
}

void RecordingPlatform::called(const HostReport& report, const HostListener& listener) {
    trace_.callback(report);
    running_.push_back(++callbacks_);
    if (listener) listener(report);
    running_.pop_back();
}

void RecordingPlatform::log(std::string_view line) {
    trace_.console(line);
    inner_.log(line);
}

void RecordingPlatform::preconditionFailed(std::string_view driver, std::string_view what) {
    trace_.fatal(what);
    if (inner_.onPreconditionFailed) inner_.preconditionFailed(driver, what);
}

void RecordingPlatform::post(std::function<void()> task) {
    tasks_.push_back(std::move(task));
    inner_.mainQueue().post([weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->taskIsDue();
    });
}

void RecordingPlatform::taskIsDue() {
    if (tasks_.empty()) return;  // a tick has taken it along
    const std::function<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    perform({{"run", 1}}, task);
}

void RecordingPlatform::runTasks() {
    while (!tasks_.empty()) {
        const std::function<void()> task = std::move(tasks_.front());
        tasks_.pop_front();
        task();
    }
}

std::unique_ptr<Timer> RecordingPlatform::scheduleTimer(Duration interval, std::function<void()> tick) {
    trace_.startTimer(interval);
    const auto schedule = std::make_shared<Schedule>(Schedule{now_ + interval, interval, std::move(tick)});
    timer_ = schedule;
    auto inner = inner_.mainQueue().scheduleTimer(interval, [weak = weak_from_this(), schedule] {
        if (const auto self = weak.lock()) self->tickIsDue(schedule);
    });
    return std::make_unique<RecordingTimer>(*this, schedule, std::move(inner));
}

// The script reaches the tick by an advance, which runs the tasks before it and those that it posts. The tick
// may release the timer, and with it whoever calls this.
void RecordingPlatform::tickIsDue(std::shared_ptr<Schedule> schedule) {
    const Duration due = schedule->due;
    perform(advanceLine(due - now_), [&] {
        runTasks();
        now_ = due;
        if (!schedule->isLive) return;
        schedule->due += schedule->interval;
        schedule->tick();
        runTasks();
    });
}

std::shared_ptr<CBCentralManager>
RecordingPlatform::makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) {
    trace_.createCentral();
    return RecordingCentral::make(shared_from_this(), inner_, std::move(delegate));
}

}  // namespace corvane::sessions
