// A driver, and everything that it told its application.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "corvane/devices/catalogue.h"
#include "corvane/platform/simulated/simulated_radio.h"
#include "emulators/emulator.h"

namespace corvane {

inline constexpr auto patience = std::chrono::seconds(90);

template <class Info>
std::string describe(const Info& info) {
    std::ostringstream text;
    visitFields(info, [&](std::string_view field, const auto& value) {
        using Value = std::decay_t<decltype(value)>;
        text << field << '=';
        if constexpr (std::is_enum_v<Value>) {
            text << caseName(value) << ' ';
        } else if constexpr (requires { text << value; }) {
            text << value << ' ';
        } else {
            for (const auto& element : value) text << element << ',';
        }
    });
    return text.str();
}

template <class Driver>
class WatchedDriver {
public:
    using Info = typename Driver::InfoType;

    /// Of a driver that can, takes one reading a measurement. Takes the platform's console lines. With a
    /// clock, tells when everything was.
    explicit WatchedDriver(Platform& platform, DriverArguments with = {.repeatResult = false},
                           std::function<std::chrono::nanoseconds()> clock = nullptr)
        : clock_(std::move(clock)), driver(makeDriver<Driver>(with, platform)) {
        platform.logSink = [this](std::string_view line) { tell(line); };
        driver->stateCentralManager = [this](CBManagerState state) {
            tell("state " + std::to_string(static_cast<int>(state)));
        };
        driver->stateConnection = [this](StateDeviceConnection state) {
            const bool connected = state == StateDeviceConnection::connect;
            ++(connected ? connects : disconnects);
            tell(connected ? "connect" : "disconnect");
        };
        driver->stateLoading = [this](const StateDeviceLoading<Info>& state) {
            state.match([this](const Info& info) { tell(describe(records.emplace_back(info))); },
                        [this](const std::string& text) { tell("error " + errors.emplace_back(text)); },
                        [this] { loading(); });
        };
        driver->startScan();
    }

    std::vector<Info> records;
    std::vector<std::string> errors;
    unsigned connects = 0;
    unsigned disconnects = 0;
    std::string transcript;

private:
    void loading() {
        tell("loading");
        if constexpr (requires { driver->start(); }) driver->start();
    }
    void tell(std::string_view what) {
        if (clock_) transcript += std::to_string(clock_().count()) + ' ';
        transcript += what;
        transcript += '\n';
    }

    const std::function<std::chrono::nanoseconds()> clock_;

public:
    const std::unique_ptr<Driver> driver;  // tells until its end
};

/// A radio with one emulated device of the driver's model, and the driver.
template <class Driver>
struct Bench {
    explicit Bench(const EmulatorOptions& options = {}, DriverArguments with = {.repeatResult = false})
        : radio({.seed = options.seed}), device(makeEmulator(Driver::model, options)) {
        radio.onPreconditionFailed = [this](std::string_view, std::string_view) { ++droppedValues; };
        radio.add(device);
        watch(with);
    }
    void watch(DriverArguments with = {.repeatResult = false}) {
        watched = std::make_unique<WatchedDriver<Driver>>(radio, with, [this] { return radio.now(); });
    }
    bool runUntilRecords(std::size_t count) {
        return radio.runUntil([&] { return watched->records.size() >= count; }, patience);
    }

    SimulatedRadio radio;
    std::shared_ptr<Emulator> device;
    unsigned droppedValues = 0;
    std::unique_ptr<WatchedDriver<Driver>> watched;
};

}  // namespace corvane
