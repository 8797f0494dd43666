// Readings, again and again: each time a single message that the service sends is lost, late, or overtaken by
// the next. A driver that is begun again after each disconnection that it is told ends in a reading all the
// same, and leaves nothing behind.
#include <gtest/gtest.h>

#include <span>

#include "corvane/devices/catalogue.h"
#include "emulators/emulator.h"
#include "tests/bluez/air.h"

namespace corvane::bluez {
namespace {

using namespace std::chrono_literals;

// In the time of the loop; a bound for what never ends.
constexpr auto longestReading = 10min;

/// An application that wants one reading.
template <class Driver>
class Application {
public:
    explicit Application(Platform& platform) : platform_(platform) { begin(); }

    bool hasReading() const { return hasReading_; }
    void letGo() { driver_.reset(); }

private:
    void begin() {
        driver_ = makeDriver<Driver>({.repeatResult = false}, platform_);
        driver_->stateConnection = [this](StateDeviceConnection state) {
            if (state == StateDeviceConnection::disconnect && !hasReading_) beginAgain();
        };
        driver_->stateLoading = [this](const auto& state) {
            if (state.success()) hasReading_ = true;
            if (state.isLoading()) ask();
        };
        driver_->startScan();
    }

    // The scale's driver serves one link.
    void beginAgain() {
        if constexpr (takesProfile<Driver>) {
            begin();
        } else {
            driver_->startScan();
        }
    }

    // Of a device that measures only when it is told to.
    void ask() {
        if constexpr (requires(Driver & driver) { driver.start(); })
            platform_.mainQueue().post([this] {
                if (driver_) driver_->start();
            });
    }

    Platform& platform_;
    std::unique_ptr<Driver> driver_;
    bool hasReading_ = false;
};

struct Kind {
    const char* name;
    Mishap::Kind kind;
    std::chrono::milliseconds delay;
};

constexpr Kind kinds[] = {
    {"lost", Mishap::Kind::loss, 0ms},
    {"late by 3 s", Mishap::Kind::delay, 3s},
    {"late by 200 ms", Mishap::Kind::delay, 200ms},
    {"late by 40 s", Mishap::Kind::delay, 40s},
    {"overtaken", Mishap::Kind::swapWithNext, 0ms},
};

struct Walk {
    BlueZOptions options{};
    StandInHabits habits{};
    int readings = 2;  // One after another, each with a driver of its own.
    std::span<const Kind> kinds = bluez::kinds;
};

struct Course {
    std::vector<std::string> sent;  // Names of the messages, in order.
    std::string trouble;            // Empty where all went well.
};

template <class Driver>
Course go(const Walk& walk, const std::optional<Mishap>& mishap) {
    Course course;
    Air air(walk.options);
    air.platform.logSink = [](std::string_view) {};
    air.service.habits = walk.habits;
    air.service.outbox.mishap = mishap;
    air.service.outbox.whenSent = [&](std::uint64_t, const std::string& name) {
        course.sent.push_back(name);
    };
    air.service.add(makeEmulator(Driver::model, {}));
    for (int reading = 1; reading <= walk.readings; ++reading) {
        Application<Driver> application(air.platform);
        if (!air.runUntil([&] { return application.hasReading(); }, longestReading))
            course.trouble += "no reading " + std::to_string(reading) + "; ";
        application.letGo();
        air.runFor(2min);
    }
    if (!walk.habits.anotherClient && air.service.connectsWhileDiscovering > 0)
        course.trouble += "connects while it scans; ";
    if (!air.service.leftovers().empty()) course.trouble += "left behind: " + air.service.leftovers();
    return course;
}

// A value is left alone: BlueZ loses states, not what it passes on in order, and where a device sends its
// reading once, nothing could bring a lost one back.
bool isValue(const std::string& name) { return name.ends_with(" Value"); }

template <class Driver>
std::vector<std::string> failuresOf(const Walk& walk) {
    std::vector<std::string> failures;
    const Course undisturbed = go<Driver>(walk, std::nullopt);
    if (!undisturbed.trouble.empty()) failures.push_back("undisturbed: " + undisturbed.trouble);
    for (std::size_t i = 0; i < undisturbed.sent.size(); ++i) {
        if (isValue(undisturbed.sent[i])) continue;
        for (const Kind& kind : walk.kinds) {
            const Course course =
                go<Driver>(walk, Mishap{.kind = kind.kind, .message = i + 1, .delay = kind.delay});
            const bool same = i < course.sent.size() && course.sent[i] == undisturbed.sent[i];
            if (!same)
                failures.push_back(std::to_string(i + 1) + ": another message than " + undisturbed.sent[i]);
            if (course.trouble.empty()) continue;
            failures.push_back(std::to_string(i + 1) + ' ' + undisturbed.sent[i] + ' ' + kind.name + ": " +
                               course.trouble);
        }
    }
    return failures;
}

struct NamedWalk {
    const char* name;
    Walk walk;
};

void PrintTo(const NamedWalk& walk, std::ostream* out) { *out << walk.name; }

std::string linesOf(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + '\n';
    return text;
}

const NamedWalk thermometerWalks[] = {
    {"BySignals", {{.notifyPath = BlueZNotifyPath::busSignals}, {}}},
    {"BySocket", {{.notifyPath = BlueZNotifyPath::socket}, {.keepsEarlyValuesOnSocket = true}}},
    {"WithSilentLinks", {{}, {.linksSilently = true}}},
    {"WithLateServices", {{}, {.cachesObjects = false, .exportDelay = 300ms}}},
    {"WithOtherHabits", {{}, {.lateNames = true, .anotherClient = true, .resolvesBeforeReply = true}}},
};

class BlueZWalkOfAThermometer : public testing::TestWithParam<NamedWalk> {};

TEST_P(BlueZWalkOfAThermometer, EndsInTwoReadings) {
    EXPECT_EQ(linesOf(failuresOf<TemperatureAOJ20ADevice>(GetParam().walk)), "");
}

INSTANTIATE_TEST_SUITE_P(Each, BlueZWalkOfAThermometer, testing::ValuesIn(thermometerWalks),
                         [](const auto& walk) { return std::string(walk.param.name); });

TEST(BlueZWalk, EndsInAReadingOfEveryModel) {
    forEachDriver([]<class Driver>() {
        EXPECT_EQ(linesOf(failuresOf<Driver>({.readings = 1, .kinds = std::span(kinds).first(2)})), "")
            << Driver::model.id;
    });
}

}  // namespace
}  // namespace corvane::bluez
