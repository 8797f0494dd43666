#pragma once

#include <cstddef>

namespace corvane::bluez {

/// Bytes that the value of a GATT attribute has at most, by the Bluetooth standard.
inline constexpr std::size_t longestValue = 512;

}  // namespace corvane::bluez
