// How long to wait before something that BlueZ refused is tried again.
#pragma once

#include <algorithm>
#include <chrono>

namespace corvane::bluez {

/// Doubles from 100 ms at the first failure up to `longest`.
inline std::chrono::milliseconds retryDelay(unsigned failures,
                                            std::chrono::milliseconds longest = std::chrono::seconds(5)) {
    const auto delay = std::chrono::milliseconds(100) * (1 << std::min(failures > 0 ? failures - 1 : 0, 10U));
    return std::min(delay, longest);
}

}  // namespace corvane::bluez
