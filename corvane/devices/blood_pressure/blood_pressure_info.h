#pragma once

#include <cstdint>
#include <string>

namespace corvane {

/// A blood-pressure reading; the values are as the monitor sends them, 0 to 255, with no unit stated.
struct BloodPressureInfo {
    std::int64_t pluse = 0;  ///< Pulse rate. The name is spelled so.
    std::int64_t sys = 0;    ///< Systolic pressure.
    std::int64_t dia = 0;    ///< Diastolic pressure.
    std::string uuid;        ///< Identifier of the peripheral, upper-case UUID text.

    friend bool operator==(const BloodPressureInfo&, const BloodPressureInfo&) = default;
};

template <class Visitor>
void visitFields(const BloodPressureInfo& info, Visitor&& visit) {
    visit("pluse", info.pluse);
    visit("sys", info.sys);
    visit("dia", info.dia);
    visit("uuid", info.uuid);
}

}  // namespace corvane
