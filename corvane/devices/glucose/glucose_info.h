#pragma once

#include <cstdint>
#include <string>

namespace corvane {

/// A blood-glucose reading.
struct GlucoseInfo {
    std::int64_t glucose = 0;  ///< As the meter sends it; no unit is stated.
    std::string uuid;          ///< Identifier of the peripheral, upper-case UUID text.

    friend bool operator==(const GlucoseInfo&, const GlucoseInfo&) = default;
};

template <class Visitor>
void visitFields(const GlucoseInfo& info, Visitor&& visit) {
    visit("glucose", info.glucose);
    visit("uuid", info.uuid);
}

}  // namespace corvane
