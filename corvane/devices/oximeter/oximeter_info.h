#pragma once

#include <cstdint>
#include <string>

namespace corvane {

/// A blood-oxygen reading.
struct OximeterInfo {
    std::int64_t oxygen = 0;  ///< Oxygen saturation (SpO2) in percent.
    std::int64_t bpm = 0;     ///< Pulse rate in beats per minute.
    std::string uuid;         ///< Identifier of the peripheral, upper-case UUID text.

    friend bool operator==(const OximeterInfo&, const OximeterInfo&) = default;
};

template <class Visitor>
void visitFields(const OximeterInfo& info, Visitor&& visit) {
    visit("oxygen", info.oxygen);
    visit("bpm", info.bpm);
    visit("uuid", info.uuid);
}

}  // namespace corvane
