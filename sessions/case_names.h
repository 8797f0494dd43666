// The words that scripts and traces use for the library's enumerations.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include "corvane/framework/device_contract.h"

namespace corvane::sessions {

/// The callbacks of a driver.
enum class HostCallback { stateConnection, stateLoading, stateCentralManager };

template <class Enum>
inline constexpr auto caseNames = nullptr;

template <>
inline constexpr std::array<std::string_view, 3> caseNames<HostCallback>{"stateConnection", "stateLoading",
                                                                         "stateCentralManager"};
template <>
inline constexpr auto caseNames<StateDeviceConnection> = connectionNames;

template <>
inline constexpr auto caseNames<CBManagerState> = managerStateNames;

template <>
inline constexpr std::array<std::string_view, 2> caseNames<CBCharacteristicWriteType>{"withResponse",
                                                                                      "withoutResponse"};

template <class Enum>
constexpr std::string_view nameOf(Enum value) {
    return caseNames<Enum>[static_cast<std::size_t>(value)];
}

/// Nothing when no case has that name.
template <class Enum>
constexpr std::optional<Enum> caseNamed(std::string_view name) {
    for (std::size_t i = 0; i < caseNames<Enum>.size(); ++i) {
        if (caseNames<Enum>[i] == name) return static_cast<Enum>(i);
    }
    return std::nullopt;
}

}  // namespace corvane::sessions
