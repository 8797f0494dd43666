#include "tests/sweep/sweep.h"

#include <gtest/gtest.h>

#include <span>

#include "tests/sweep/late_radio.h"
#include "tests/sweep/subject.h"

namespace corvane::sweep {
namespace {

enum class Action {
    nothing,
    destroy,
    disconnect,
    cyclePower,
    replaceCallbacks,
    clearCallbacks,
    callEverything,
    startScan
};

struct NamedAction {
    Action action;
    const char* name;
    bool repeats = false;  ///< It is done at each moment from then on, be it a call that it causes itself.
};
constexpr NamedAction actions[] = {{Action::destroy, "destroy"},
                                   {Action::disconnect, "disconnect"},
                                   {Action::cyclePower, "cycle power"},
                                   {Action::replaceCallbacks, "replace callbacks"},
                                   {Action::clearCallbacks, "clear callbacks"},
                                   {Action::callEverything, "call everything"},
                                   {Action::startScan, "start the scan", true}};

/// When something is done: after so many steps of the queue, or inside the n-th call to the application, from
/// 1. A call is a callback, a console line or a violation.
struct Moment {
    enum class Kind { afterStep, insideCall };
    Kind kind{};
    std::size_t number = 0;
};

/// The numbers of the moments that are tried: all of a usual measurement. A recorder's transfer is blocks
/// of the same frames, of which the first is tried whole, and moments here and there of the others.
std::vector<std::size_t> numbersOfMoments(std::size_t first, std::size_t last) {
    constexpr std::size_t whole = 160, end = 40, stride = 11;
    std::vector<std::size_t> numbers;
    for (std::size_t k = first; k <= last; ++k) {
        if (k < whole || k + end > last || k % stride == 0) numbers.push_back(k);
    }
    return numbers;
}

/// One measurement, with one thing done to its driver on the way.
class Play {
public:
    Play(const Subject& subject, const MakeSweepBackEnd& make, bool lateEvents, Moment moment,
         const NamedAction& action)
        : backEnd_(make()), moment_(moment), action_(action.action), acts_(action.repeats ? 300 : 1) {
        if (lateEvents) late_ = std::make_unique<LateRadio>(backEnd_->platform());
        Platform& platform = late_ ? *late_ : backEnd_->platform();
        platform.logSink = [this](std::string_view) { heard(Heard::other); };
        platform.onPreconditionFailed = [this](std::string_view, std::string_view) { heard(Heard::other); };
        backEnd_->add(subject.makeDevice());
        driver_ = subject.makeDriver(platform);
        driver_->setCallbacks(listener());
    }

    /// Plays until `enough`, which is asked before each step, and then to the driver's end.
    void run(const std::function<bool()>& enough) {
        constexpr std::size_t longest = 5000;
        driver_->startScan();
        reached(Moment::Kind::afterStep, steps);
        while (steps < longest && !enough() && backEnd_->step()) {
            ++steps;
            if (!driver_ && late_) late_->repeatEverything();
            if (steps == powerOnAt_) backEnd_->setState(CBManagerState::poweredOn);
            reached(Moment::Kind::afterStep, steps);
        }
        end();
    }

    std::size_t steps = 0;
    std::size_t calls = 0;
    std::size_t records = 0;
    bool done = false;  ///< The moment came.
    std::string failure;

private:
    std::function<void(Heard)> listener() {
        return [this, generation = ++generation_](Heard what) {
            if (generation != generation_) fail("a callback was called that was replaced or cleared");
            heard(what);
        };
    }

    void heard(Heard what) {
        if (!driver_) return fail("the application was called after the destruction");
        ++calls;
        if (what == Heard::success) ++records;
        reached(Moment::Kind::insideCall, calls);
        if (what == Heard::loading && driver_) driver_->askForMeasurement();
    }

    void reached(Moment::Kind kind, std::size_t number) {
        done |= kind == moment_.kind && number == moment_.number;
        if (!done || acts_ == 0 || !driver_) return;
        if (depth_ == deepest) return fail("the driver calls back without end");
        --acts_;
        ++depth_;
        act();
        --depth_;
    }

    void act() {
        switch (action_) {
        case Action::nothing:
            return;
        case Action::destroy:
            return destroy();
        case Action::disconnect:
            return driver_->disconnect();
        case Action::cyclePower:
            powerOnAt_ = steps + 4;
            return backEnd_->setState(CBManagerState::poweredOff);
        case Action::replaceCallbacks:
            return driver_->setCallbacks(listener());
        case Action::clearCallbacks:
            ++generation_;
            return driver_->clearCallbacks();
        case Action::callEverything:
            return driver_->callEverything();
        case Action::startScan:
            return driver_->startScan();
        }
    }

    void destroy() {
        driver_.reset();
        operationsAtEnd_ = backEnd_->operations();
    }

    void end() {
        if (driver_) destroy();
        for (int i = 0; i < 2; ++i) {
            if (late_) late_->repeatEverything();
            backEnd_->settle();
        }
        if (backEnd_->operations() != operationsAtEnd_)
            fail("the driver used the radio after its destruction");
        const std::string left = backEnd_->leftovers();
        if (!left.empty()) fail("after the destruction there was still " + left);
    }

    void fail(const std::string& what) {
        if (failure.empty()) failure = what;
    }

    const std::unique_ptr<SweepBackEnd> backEnd_;
    std::unique_ptr<LateRadio> late_;
    const Moment moment_;
    const Action action_;
    static constexpr int deepest = 40;
    int acts_;  ///< That are left.
    int depth_ = 0;
    std::unique_ptr<AnyDriver> driver_;
    int generation_ = 0;
    std::size_t powerOnAt_ = 0;
    std::size_t operationsAtEnd_ = 0;
};

class SweepTest : public testing::Test {
public:
    SweepTest(Subject subject, MakeSweepBackEnd make)
        : subject_(std::move(subject)), make_(std::move(make)) {}

private:
    void TestBody() override {
        std::size_t cases = 0;
        std::size_t required = 0;
        const auto sweep = [&](bool lateEvents, std::span<const NamedAction> actions) {
            const auto [steps, calls] = lengthOfMeasurement(lateEvents);
            const auto afterSteps = numbersOfMoments(0, steps);
            required += (afterSteps.size() - 1) * actions.size();
            for (const NamedAction& action : actions) {
                for (const std::size_t k : afterSteps)
                    cases += play(lateEvents, {Moment::Kind::afterStep, k}, action);
                for (const std::size_t k : numbersOfMoments(1, calls))
                    cases += play(lateEvents, {Moment::Kind::insideCall, k}, action);
            }
        };
        sweep(false, actions);
        sweep(true, std::span(actions).first(1));  // the destruction
        std::printf("%s: %zu cases\n", subject_.name.c_str(), cases);
        EXPECT_GE(cases, required) << "some moments did not come";
    }

    /// Up to the first record and a little beyond: how many steps and calls there are.
    std::pair<std::size_t, std::size_t> lengthOfMeasurement(bool lateEvents) {
        std::size_t beyond = 12;
        Play play(subject_, make_, lateEvents, {}, {Action::nothing, "nothing"});
        play.run([&] { return play.records > 0 && beyond-- == 0; });
        EXPECT_GT(play.records, 0u) << "undisturbed, the driver gives no record";
        EXPECT_EQ(play.failure, "");
        return {play.steps, play.calls};
    }

    /// Whether the moment came.
    bool play(bool lateEvents, Moment moment, const NamedAction& action) {
        std::size_t beyond = 40;
        Play play(subject_, make_, lateEvents, moment, action);
        play.run([&] { return play.done && beyond-- == 0; });
        if (!play.failure.empty()) {
            ADD_FAILURE() << play.failure << ": " << action.name
                          << (moment.kind == Moment::Kind::afterStep ? " after step " : " inside call ")
                          << moment.number << (lateEvents ? ", with late events" : "");
        }
        return play.done;
    }

    const Subject subject_;
    const MakeSweepBackEnd make_;
};

}  // namespace

bool registerSweep(const char* backEnd, const MakeSweepBackEnd& make) {
    const std::string suite = std::string(backEnd) + "Sweep";
    for (const Subject& subject : subjects()) {
        testing::RegisterTest(suite.c_str(), subject.name.c_str(), nullptr, nullptr, __FILE__, __LINE__,
                              [=]() -> testing::Test* { return new SweepTest(subject, make); });
    }
    return true;
}

}  // namespace corvane::sweep
