#include "tests/bluez/air.h"

#include <cstdio>
#include <cstdlib>

#include "corvane/platform/bluez/central.h"
#include "corvane/platform/bluez/property_reader.h"

namespace corvane::bluez {
namespace {

BlueZOptions onPrivateBus(BlueZOptions options) {
    if (options.busAddress.empty()) options.busAddress = privateBus().address();
    return options;
}

}  // namespace

PrivateBus& privateBus() {
    static PrivateBus bus;
    // Without it nothing here can pass, and nothing must hang.
    if (bus.address().empty()) {
        std::fprintf(stderr, "no private bus: %s\n", bus.failure().c_str());
        std::exit(EXIT_FAILURE);
    }
    return bus;
}

LoopPlatform::LoopPlatform(BlueZOptions options, EventLoop& loop)
    : loop_(loop),
      radio_(std::make_shared<Radio>(onPrivateBus(std::move(options)), loop, [this](std::string_view line) {
          if (diagnostics) diagnostics(line);
      })) {}

std::shared_ptr<CBCentralManager>
LoopPlatform::makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) {
    return Central::make(radio_, std::move(delegate));
}

Air::Air(BlueZOptions options) : service(privateBus().address(), loop), platform(std::move(options), loop) {
    // However slow the machine, no timer is due while something is still on its way.
    loop.stopClock();
    int error = 0;
    witness_ = Bus::open(privateBus().address(), error);
    loop.attach(witness_);
}

Air::~Air() { loop.discardTasks(); }

bool Air::runUntil(const std::function<bool()>& done, std::chrono::nanoseconds limit) {
    const auto end = loop.now() + limit;
    while (!done()) {
        if (!isQuiet()) continue;
        const auto next = loop.nextTimer();
        const bool inTime = next && *next <= end;
        const auto passing = (inTime ? *next : end) - loop.now();
        if (passing > passing.zero()) loop.skip(passing);
        if (!inTime) return done();
    }
    return true;
}

void Air::runFor(std::chrono::nanoseconds time) {
    runUntil([] { return false; }, time);
}

// Handles what there is; true when there was nothing.
bool Air::isQuiet() {
    const auto before = loop.handled();
    loop.step(std::chrono::nanoseconds::zero());
    if (loop.handled() != before) return false;
    // What the daemon had received from either side when it answers, it has passed on. The second answer is
    // for what was received together with the first question.
    for (std::uint64_t asked = 1; asked <= 2; ++asked) {
        ask("org.freedesktop.DBus", "GetId", [](const Reply&) {});
        if (loop.handled() != before + asked) return false;
    }
    return true;
}

void Air::ask(const char* interface, const char* member, const std::function<void(const Reply&)>& answered) {
    bool done = false;
    const Message question =
        witness_->newCall("org.freedesktop.DBus", "/org/freedesktop/DBus", interface, member);
    const Slot call = witness_->call(question, [&](const Reply& reply) {
        answered(reply);
        done = true;
    });
    while (!done) loop.step();
}

void Air::passOn() {
    for (int asked = 0; asked < 2; ++asked)
        sd_bus_call_method(witness_->handle(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus", "GetId", nullptr, nullptr, "");
}

std::size_t Air::matchRules() {
    std::size_t count = 0;
    ask("org.freedesktop.DBus.Debug.Stats", "GetAllMatchRules", [&](const Reply& reply) {
        readEntries(reply.message(), 's', "as", [&](std::string_view connection) {
            return readTexts(reply.message(), [&](std::string_view) {
                if (connection == platform.radio().busName()) ++count;
            });
        });
    });
    return count;
}

}  // namespace corvane::bluez
