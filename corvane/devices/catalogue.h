// The one list of models. A new model is one driver, one emulator, their tests, and two lines here: its
// header and its class.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <type_traits>

#include "corvane/devices/blood_pressure/blood_pressure_td3140_device.h"
#include "corvane/devices/body_composition/body_composition_adfb885t_device.h"
#include "corvane/devices/body_tape/body_tape_device.h"
#include "corvane/devices/ecg/ecg_td4257_device.h"
#include "corvane/devices/glucose/glucose_td4257_device.h"
#include "corvane/devices/glucose/glucose_tghglc01_device.h"
#include "corvane/devices/multi_monitoring/multi_monitoring_benecheck_device.h"
#include "corvane/devices/oximeter/oximeter_adfb05_device.h"
#include "corvane/devices/oximeter/oximeter_td8255_device.h"
#include "corvane/devices/temperature/temperature_aoj20a_device.h"
#include "corvane/devices/temperature/temperature_td1241_device.h"

// clang-format off
/// Applies `X` to the class of every driver.
#define CORVANE_DRIVERS(X) \
    X(GlucoseTD4257Device) \
    X(GlucoseTGHGLC01Device) \
    X(BloodPressureTD3140Device) \
    X(OximeterADFB05Device) \
    X(OximeterTD8255Device) \
    X(TemperatureAOJ20ADevice) \
    X(TemperatureTD1241Device) \
    X(BodyCompositionADFB885TDevice) \
    X(BodyTapeDevice) \
    X(MultiMonitoringBeneCheckDevice) \
    X(ECGTD4257Device)
// clang-format on

namespace corvane {

/// What constructors of drivers take, for programs that choose a model at run time. A model ignores what its
/// constructor does not take.
struct DriverArguments {
    bool autoResult = true;
    bool repeatResult = true;
    double height = 170.0;
    std::int64_t age = 40;
    BodyCompositionADFB885TDeviceGender gender = BodyCompositionADFB885TDeviceGender::female;
};

template <class Driver>
inline constexpr bool takesRepeatResult = std::is_constructible_v<Driver, bool, bool, Platform&>;

/// Whether the driver is given the user's height, age and gender.
template <class Driver>
inline constexpr bool takesProfile = std::is_constructible_v<Driver, bool, double, std::int64_t,
                                                             BodyCompositionADFB885TDeviceGender, Platform&>;

template <class Driver>
std::unique_ptr<Driver> makeDriver(const DriverArguments& with, Platform& platform) {
    if constexpr (takesProfile<Driver>) {
        return std::make_unique<Driver>(with.autoResult, with.height, with.age, with.gender, platform);
    } else if constexpr (takesRepeatResult<Driver>) {
        return std::make_unique<Driver>(with.autoResult, with.repeatResult, platform);
    } else {
        return std::make_unique<Driver>(with.autoResult, platform);
    }
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
constexpr void forEachDriver(Visitor&& visit) {
#define CORVANE_VISIT(Driver) visit.template operator()<Driver>();
    CORVANE_DRIVERS(CORVANE_VISIT)
#undef CORVANE_VISIT
}

}  // namespace corvane
