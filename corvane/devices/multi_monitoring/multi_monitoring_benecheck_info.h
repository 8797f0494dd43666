#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

/// What the meter measured.
enum class MultiMonitoringBeneCheckType { glucose = 41, uric = 51, cholesterol = 61 };

constexpr std::string_view caseName(MultiMonitoringBeneCheckType type) {
    switch (type) {
    case MultiMonitoringBeneCheckType::uric:
        return "uric";
    case MultiMonitoringBeneCheckType::cholesterol:
        return "cholesterol";
    case MultiMonitoringBeneCheckType::glucose:
        break;
    }
    return "glucose";
}

/// The type with this raw value, if there is one.
constexpr std::optional<MultiMonitoringBeneCheckType> multiMonitoringBeneCheckType(std::int64_t rawValue) {
    if (rawValue != 41 && rawValue != 51 && rawValue != 61) return std::nullopt;
    return static_cast<MultiMonitoringBeneCheckType>(rawValue);
}

/// A glucose, uric acid or cholesterol reading.
struct MultiMonitoringBeneCheckInfo {
    MultiMonitoringBeneCheckType type = MultiMonitoringBeneCheckType::glucose;
    std::int64_t value = 0;  ///< As the meter sends it, cholesterol divided by 10; no unit is stated.
    std::string uuid;        ///< Identifier of the peripheral, upper-case UUID text.

    friend bool operator==(const MultiMonitoringBeneCheckInfo&,
                           const MultiMonitoringBeneCheckInfo&) = default;
};

template <class Visitor>
void visitFields(const MultiMonitoringBeneCheckInfo& info, Visitor&& visit) {
    visit("type", info.type);
    visit("value", info.value);
    visit("uuid", info.uuid);
}

}  // namespace corvane
