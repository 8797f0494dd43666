#pragma once

#include <string>

namespace corvane {

/// A body temperature.
struct TemperatureInfo {
    std::string temperature;  ///< Degrees in the unit the device is set to, always one decimal: "36.5".
    std::string uuid;         ///< Identifier of the peripheral, upper-case UUID text.

    friend bool operator==(const TemperatureInfo&, const TemperatureInfo&) = default;
};

template <class Visitor>
void visitFields(const TemperatureInfo& info, Visitor&& visit) {
    visit("temperature", info.temperature);
    visit("uuid", info.uuid);
}

/// The text of a temperature that is known in tenths of a degree.
inline std::string temperatureText(unsigned tenths) {
    return std::to_string(tenths / 10) + '.' + static_cast<char>('0' + tenths % 10);
}

}  // namespace corvane
