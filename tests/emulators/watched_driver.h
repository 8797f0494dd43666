// A driver on a simulated radio, and everything that it told its application.
#pragma once

#include <chrono>
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

    /// Of a driver that can, takes one reading a measurement.
    explicit WatchedDriver(SimulatedRadio& radio, DriverArguments with = {.repeatResult = false})
        : driver(makeDriver<Driver>(with, radio)), radio_(radio) {
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

    bool runUntilRecords(std::size_t count) {
        return radio_.runUntil([&] { return records.size() >= count; }, patience);
    }

    std::unique_ptr<Driver> driver;
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
        transcript += std::to_string(radio_.now().count());
        transcript += ' ';
        transcript += what;
        transcript += '\n';
    }

    SimulatedRadio& radio_;
};

/// A radio with one emulated device of the driver's model, and the driver.
template <class Driver>
struct Bench {
    explicit Bench(const EmulatorOptions& options = {}, DriverArguments with = {.repeatResult = false})
        : radio({.seed = options.seed}), device(makeEmulator(Driver::model, options)) {
        radio.logSink = [](std::string_view) {};
        radio.onPreconditionFailed = [this](std::string_view, std::string_view) { ++droppedValues; };
        radio.add(device);
        watched = std::make_unique<WatchedDriver<Driver>>(radio, with);
    }

    SimulatedRadio radio;
    std::shared_ptr<Emulator> device;
    unsigned droppedValues = 0;
    std::unique_ptr<WatchedDriver<Driver>> watched;
};

}  // namespace corvane
