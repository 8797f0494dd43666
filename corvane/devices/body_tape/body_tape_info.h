#pragma once

#include <string>
#include <string_view>

namespace corvane {

enum class BodyTapeUnitType { inch, cm, none };

constexpr std::string_view caseName(BodyTapeUnitType unit) {
    constexpr std::string_view names[] = {"inch", "cm", "none"};
    return names[static_cast<int>(unit)];
}

/// A length that the tape measured.
struct BodyTapeInfo {
    double measure = 0.0;                            ///< In the unit of `unit`.
    BodyTapeUnitType unit = BodyTapeUnitType::none;  ///< `none` is in no record that is reported.
    std::string uuid;                                ///< Identifier of the peripheral, upper-case UUID text.

    friend bool operator==(const BodyTapeInfo&, const BodyTapeInfo&) = default;
};

template <class Visitor>
void visitFields(const BodyTapeInfo& info, Visitor&& visit) {
    visit("measure", info.measure);
    visit("unit", info.unit);
    visit("uuid", info.uuid);
}

}  // namespace corvane
