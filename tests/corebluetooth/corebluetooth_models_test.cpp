// Every driver with its emulated device: on this back end an application hears what it hears on the simulated
// radio.
#include "corvane/corvane.h"
#include "corvane/platform/corebluetooth/corebluetooth_platform.h"
#include "emulators/emulator.h"
#include "standin_test.h"
#include "tests/emulators/watched_driver.h"

namespace corvane {
namespace {

using namespace standin;

/// What was told up to the first record, in which the device has another identifier on each platform.
template <class Driver>
std::string story(const WatchedDriver<Driver>& watched, const std::string& identifier) {
    if (watched.records.empty()) return "no record";
    EXPECT_EQ(watched.records[0].uuid, identifier);
    std::string transcript = watched.transcript;
    return transcript.replace(transcript.find(identifier), identifier.size(), "its own");
}

template <class Driver>
std::string storyOnSimulatedRadio(const EmulatorOptions& options) {
    SimulatedRadio radio;
    const std::shared_ptr<Emulator> device = makeEmulator(Driver::model, options);
    radio.add(device);
    const WatchedDriver<Driver> watched(radio);
    radio.runUntil([&] { return !watched.records.empty(); }, patience);
    return story(watched, radio.identifier(*device));
}

template <class Driver>
std::string storyOnCoreBluetooth(const EmulatorOptions& options) {
    const FreshAir air;
    const auto platform = makeCoreBluetoothPlatform();
    const std::shared_ptr<Emulator> device = makeEmulator(Driver::model, options);
    radio::add(device);
    const WatchedDriver<Driver> watched(*platform);
    const auto limit = mainLoop::now() + patience;
    while (watched.records.empty() && mainLoop::stepUntil(limit)) {
    }
    return story(watched, radio::identifier(*device));
}

TEST(CoreBluetoothModels, TellWhatTheyTellOnTheSimulatedRadio) {
    forEachDriver([]<class Driver>() {
        for (std::uint64_t seed = 1; seed <= 5; ++seed) {
            SCOPED_TRACE(std::string(Driver::model.id) + " seed " + std::to_string(seed));
            const std::string story = storyOnCoreBluetooth<Driver>({.seed = seed});
            EXPECT_NE(story, "no record");
            EXPECT_EQ(story, storyOnSimulatedRadio<Driver>({.seed = seed}));
        }
    });
}

}  // namespace
}  // namespace corvane
