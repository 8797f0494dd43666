#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvane {

/// An electrocardiogram.
struct ECGInfo {
    std::vector<std::int64_t> graph;  ///< Samples in the order received, as the recorder sends them, centred
                                      ///< on 0; no unit is stated.
    std::string pulse;                ///< Pulse rate in decimal digits.
    std::string uuid;                 ///< Identifier of the peripheral, upper-case UUID text.

    friend bool operator==(const ECGInfo&, const ECGInfo&) = default;
};

template <class Visitor>
void visitFields(const ECGInfo& info, Visitor&& visit) {
    visit("graph", info.graph);
    visit("pulse", info.pulse);
    visit("uuid", info.uuid);
}

}  // namespace corvane
