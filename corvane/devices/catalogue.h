// The one list of models. A new model is one driver, one emulator, their tests, and two lines here: its
// header and its class.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <type_traits>

#include "corvane/devices/temperature/temperature_aoj20a_device.h"

/// Applies `X` to the class of every driver.
#define CORVANE_DRIVERS(X) X(TemperatureAOJ20ADevice)

namespace corvane {

/// What constructors of drivers take, for programs that choose a model at run time. A model ignores what its
/// constructor does not take.
struct DriverArguments {
    bool autoResult = true;
};

template <class Driver>
std::unique_ptr<Driver> makeDriver(const DriverArguments& arguments, Platform& platform) {
    return std::make_unique<Driver>(arguments.autoResult, platform);
}

/// Every model, in the order of the list.
std::span<const Model* const> models();

/// By model id or by class name; null when there is none.
const Model* findModel(std::string_view idOrDriver);

/// A driver of the model, without what depends on its record: to see that a device is there, to connect, to
/// disconnect. Null when the model is not of this catalogue.
std::shared_ptr<DeviceBase> makeDevice(const Model& model, const DriverArguments& arguments,
                                       Platform& platform);

/// Calls `visit.template operator()<Driver>()` for every driver class, in the order of the list.
template <class Visitor>
void forEachDriver(Visitor&& visit) {
#define CORVANE_VISIT(Driver) visit.template operator()<Driver>();
    CORVANE_DRIVERS(CORVANE_VISIT)
#undef CORVANE_VISIT
}

}  // namespace corvane
