#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

enum class BodyCompositionADFB885TDeviceGender { female = 0, male = 1 };

constexpr std::string_view caseName(BodyCompositionADFB885TDeviceGender gender) {
    return gender == BodyCompositionADFB885TDeviceGender::female ? "female" : "male";
}

/// The gender with this raw value, if there is one.
constexpr std::optional<BodyCompositionADFB885TDeviceGender>
bodyCompositionADFB885TDeviceGender(std::int64_t rawValue) {
    if (rawValue != 0 && rawValue != 1) return std::nullopt;
    return static_cast<BodyCompositionADFB885TDeviceGender>(rawValue);
}

/// A body-composition analysis. The scale's values are as it sends them, in tenths; it states no units.
struct BodyCompositionInfo {
    double weight = 0.0;
    double fat = 0.0;  ///< Whole; the tenth that the scale sends is dropped.
    double bone = 0.0;
    double water = 0.0;
    double muscle = 0.0;
    double bmi = 0.0;
    double height = 0.0;   ///< From the profile given to the driver, not from the scale.
    std::int64_t age = 0;  ///< From the profile.
    BodyCompositionADFB885TDeviceGender gender{};  ///< From the profile.
    std::string uuid;                              ///< Identifier of the peripheral, upper-case UUID text.

    friend bool operator==(const BodyCompositionInfo&, const BodyCompositionInfo&) = default;
};

template <class Visitor>
void visitFields(const BodyCompositionInfo& info, Visitor&& visit) {
    visit("weight", info.weight);
    visit("fat", info.fat);
    visit("bone", info.bone);
    visit("water", info.water);
    visit("muscle", info.muscle);
    visit("bmi", info.bmi);
    visit("height", info.height);
    visit("age", info.age);
    visit("gender", info.gender);
    visit("uuid", info.uuid);
}

}  // namespace corvane
