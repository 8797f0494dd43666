// What was recorded on the simulated radio replays to the trace that the live run gave, whatever goes wrong
// on the air or in the device.
#include <gtest/gtest.h>

#include <sstream>

#include "corvane/platform/simulated/simulated_radio.h"
#include "emulators/emulator.h"
#include "sessions/json.h"
#include "sessions/recorder.h"
#include "sessions/replayer.h"

namespace corvane::sessions {
namespace {

using namespace std::chrono_literals;

struct LiveRun {
    std::string script;
    std::string trace;
    int results = 0;
};

/// Does what a busy application does: asks, and takes hold of the driver inside its callbacks.
class Host {
public:
    explicit Host(std::uint64_t seed) : seed_(seed) {}

    void called(HostDevice& device, const HostReport& report) {
        const std::uint64_t choice = ++calls_ * 2654435761U + seed_ * 40503U;
        if (report.state == "success") ++results;
        if (report.state == "connect") device.call("start");
        switch (choice % 23) {
        case 0:
            device.call("getResult");
            break;
        case 1:
            device.call("startResult");
            break;
        case 2:
            device.call("requestPayload");
            break;
        case 3:
            device.setCallback(HostCallback::stateLoading, calls_ % 2 == 0);
            break;
        case 4:
            device.setCallback(HostCallback::stateConnection, calls_ % 2 == 1);
            break;
        case 5:
            if (calls_ > 6) device.call("disconnect");
            break;
        case 6:
            if (calls_ > 8) device.call("startScan");
            break;
        case 7:
            if (calls_ > 12) device.destroy();
            break;
        default:
            break;
        }
    }

    int results = 0;

private:
    const std::uint64_t seed_;
    std::uint64_t calls_ = 0;
};

/// One recorded session, ended by destruction after a few results or half a minute.
LiveRun record(const Model& model, const SimulatedRadioOptions& options, const EmulatorFault& fault) {
    SimulatedRadio radio(options);
    radio.logSink = [](std::string_view) {};
    const std::shared_ptr<PeripheralDevice> emulator =
        makeEmulator(model, {.seed = options.seed, .fault = fault, .onEvent = {}});
    radio.add(emulator);

    std::ostringstream script;
    std::ostringstream trace;
    Host host(options.seed);
    std::unique_ptr<HostDevice> device;
    const Recording recording{[&] { return radio.now(); }, &script, &trace};
    device = makeRecordedDevice(
        {.model = &model}, radio, [&](const HostReport& report) { host.called(*device, report); }, recording);
    device->call("startScan");
    radio.runFor(2s);
    device->call("getResult");
    radio.runUntil([&] { return host.results > 0; }, 12s);
    device->call("startScan");
    radio.runUntil([&] { return host.results > 1; }, 12s);
    device->call("getResult");
    radio.runFor(1s);
    device.reset();
    radio.runFor(3s);
    return {script.str(), trace.str(), host.results};
}

void expectSameReplay(const LiveRun& run, const std::string& what) {
    std::istringstream script(run.script);
    std::ostringstream trace;
    std::ostringstream messages;
    EXPECT_EQ(replay(script, trace, messages), ReplayStatus::done) << what << ": " << messages.str();
    EXPECT_EQ(trace.str(), run.trace) << what << "\n" << run.script;
}

constexpr std::uint64_t seeds = 10;

class RecordReplay : public testing::TestWithParam<const Model*> {};

TEST_P(RecordReplay, givesTheSameTraceForEveryFaultAndSeed) {
    const Model& model = *GetParam();
    int results = 0;
    const auto check = [&](const SimulatedRadioOptions& options, const EmulatorFault& fault,
                           const std::string& name) {
        const LiveRun run = record(model, options, fault);
        expectSameReplay(run, name + ", seed " + std::to_string(options.seed));
        results += run.results;
    };
    for (std::uint64_t seed = 1; seed <= seeds && !HasFailure(); ++seed) {
        for (const EmulatorFault& fault : emulatorFaults())
            check({.seed = seed}, fault, emulatorFaultText(fault));
        for (const RadioFault& fault : radioFaults())
            check({.seed = seed, .faults = {fault}}, {}, toText(fault));
    }
    EXPECT_GT(results, static_cast<int>(seeds)) << "most of what is compared should be more than a search";
}

std::string caseName(const testing::TestParamInfo<const Model*>& model) {
    return std::string(model.param->driver);
}

INSTANTIATE_TEST_SUITE_P(Models, RecordReplay, testing::ValuesIn(models().begin(), models().end()), caseName);

}  // namespace
}  // namespace corvane::sessions
