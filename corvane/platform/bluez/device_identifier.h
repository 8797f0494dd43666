// The identifier under which the application knows a device.
#pragma once

#include <string_view>

#include "corvane/platform/cb_uuid.h"

namespace corvane::bluez {

/// A name-based UUID (version 5) of the device's address, as "AA:BB:CC:DD:EE:FF", and its address type,
/// "public" or "random". The same on every computer and after every restart. A device that uses private
/// addresses changes its address every few minutes, and its identifier with it.
/// Both texts together are at most 38 characters long.
CBUUID deviceIdentifier(std::string_view address, std::string_view addressType);

}  // namespace corvane::bluez
