#include "bluez_machine.h"

#include <fstream>
#include <future>

#include "tests/bluez/air.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;

constexpr auto turn = 5ms;

}  // namespace

BlueZMachine::BlueZMachine() : service(bluez::privateBus().address(), loop_) {
    // Devices take their time, and this one is real.
    service.habits.hurry = 50;
}

Ran BlueZMachine::run(const std::string& command) {
    const std::string bus = "export DBUS_SYSTEM_BUS_ADDRESS='" + bluez::privateBus().address() + "'\n";
    auto ran = std::async(std::launch::async, [whole = bus + command] { return sh(whole); });
    while (ran.wait_for(0s) != std::future_status::ready) loop_.step(turn);
    return ran.get();
}

Ran BlueZMachine::run(const std::string& command, const std::function<bool()>& reached) {
    const auto watch = loop_.scheduleTimer(turn, [&, told = false]() mutable {
        if (told || !reached()) return;
        told = true;
        std::ofstream(folderOfTest() / "go") << '\n';
    });
    return run("rm -f go && mkfifo go\n" + command);
}

bool BlueZMachine::waitFor(const std::function<bool()>& done) {
    for (const auto end = bluez::Clock::now() + 60s; !done() && bluez::Clock::now() < end;) loop_.step(turn);
    return done();
}

std::string BlueZMachine::leftovers() {
    waitFor([this] { return service.leftovers().empty(); });
    return service.leftovers();
}

}  // namespace corvane
