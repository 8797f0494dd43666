// What BlueZ and the Bluetooth standard call and limit, where several files need it.
#pragma once

#include <cstddef>

namespace corvane::bluez {

inline constexpr const char* adapterInterface = "org.bluez.Adapter1";
inline constexpr const char* deviceInterface = "org.bluez.Device1";
inline constexpr const char* serviceInterface = "org.bluez.GattService1";
inline constexpr const char* characteristicInterface = "org.bluez.GattCharacteristic1";

inline constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";

inline constexpr const char* errorNotReady = "org.bluez.Error.NotReady";
inline constexpr const char* errorInProgress = "org.bluez.Error.InProgress";

/// Bytes that the value of a GATT attribute has at most, by the Bluetooth standard.
inline constexpr std::size_t longestValue = 512;

}  // namespace corvane::bluez
