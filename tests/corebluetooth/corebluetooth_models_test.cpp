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

/// What the application hears of a driver, up to the first record.
template <class Driver>
class Story {
public:
    using Info = typename Driver::InfoType;

    explicit Story(Platform& platform) : driver_(makeDriver<Driver>({.repeatResult = false}, platform)) {
        platform.logSink = [this](std::string_view line) { lines.emplace_back(line); };
        driver_->stateCentralManager = [this](CBManagerState state) {
            lines.push_back("state " + std::to_string(static_cast<int>(state)));
        };
        driver_->stateConnection = [this](StateDeviceConnection state) {
            lines.push_back(state == StateDeviceConnection::connect ? "connect" : "disconnect");
        };
        driver_->stateLoading = [this](const StateDeviceLoading<Info>& state) {
            state.match([this](const Info& info) { record(info); },
                        [this](const std::string& text) { lines.push_back("error " + text); },
                        [this] { loading(); });
        };
        driver_->startScan();
    }

    std::vector<std::string> lines;
    std::string identifier;
    bool isOver = false;

private:
    void loading() {
        lines.push_back("loading");
        if constexpr (requires { driver_->start(); }) driver_->start();
    }
    void record(Info info) {
        if (std::exchange(isOver, true)) return;
        identifier = std::exchange(info.uuid, "");
        lines.push_back(describe(info));
        driver_->stateLoading = nullptr;
    }

    const std::unique_ptr<Driver> driver_;
};

template <class Driver>
std::vector<std::string> storyOnSimulatedRadio(const EmulatorOptions& options) {
    SimulatedRadio radio;
    radio.add(makeEmulator(Driver::model, options));
    Story<Driver> story(radio);
    radio.runUntil([&] { return story.isOver; }, patience);
    return story.lines;
}

template <class Driver>
std::vector<std::string> storyOnCoreBluetooth(const EmulatorOptions& options) {
    const FreshAir air;
    const auto platform = makeCoreBluetoothPlatform();
    const std::shared_ptr<Emulator> device = makeEmulator(Driver::model, options);
    radio::add(device);
    Story<Driver> story(*platform);
    for (int second = 0; second < patience.count() && !story.isOver; ++second) {
        mainLoop::runFor(std::chrono::seconds(1));
    }
    EXPECT_EQ(story.identifier, radio::identifier(*device));
    return story.lines;
}

TEST(CoreBluetoothModels, TellWhatTheyTellOnTheSimulatedRadio) {
    forEachDriver([]<class Driver>() {
        for (std::uint64_t seed = 1; seed <= 5; ++seed) {
            SCOPED_TRACE(std::string(Driver::model.id) + " seed " + std::to_string(seed));
            const auto story = storyOnCoreBluetooth<Driver>({.seed = seed});
            EXPECT_GE(story.size(), 5u);
            EXPECT_EQ(story, storyOnSimulatedRadio<Driver>({.seed = seed}));
        }
    });
}

TEST(CoreBluetoothModels, AnApplicationNeedNotNameThePlatform) {
    const FreshAir air;
    radio::add(makeEmulator(TemperatureAOJ20ADevice::model, {}));
    TemperatureAOJ20ADevice thermometer(true);
    thermometer.startScan();
    mainLoop::runFor(patience);
    EXPECT_TRUE(thermometer.getResult());
}

}  // namespace
}  // namespace corvane
