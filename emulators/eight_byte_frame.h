// The frame of the four models that come from one maker, as the device writes and reads it: 51, a command,
// four bytes of data, A3 when the host asks or A5 when the device tells, and the low byte of the sum of all
// before.
#pragma once

#include <array>
#include <cstdint>
#include <numeric>
#include <optional>

#include "corvane/platform/central.h"

namespace corvane {

using EightByteFrame = std::array<std::uint8_t, 8>;

inline std::uint8_t sumOfFirstSeven(Bytes frame) {
    return static_cast<std::uint8_t>(std::accumulate(frame.begin(), frame.begin() + 7, 0u));
}

/// The command of a well-formed request; nothing otherwise.
inline std::optional<std::uint8_t> requestedCommand(Bytes request) {
    const bool wellFormed = request.size() == 8 && request[0] == 0x51 && request[6] == 0xA3 &&
                            request[7] == sumOfFirstSeven(request);
    return wellFormed ? std::optional(request[1]) : std::nullopt;
}

inline EightByteFrame answerFrame(std::uint8_t command, const std::array<std::uint8_t, 4>& data) {
    EightByteFrame frame{0x51, command, data[0], data[1], data[2], data[3], 0xA5};
    frame[7] = sumOfFirstSeven(frame);
    return frame;
}

/// Low and high byte of a 16-bit quantity; it is within 0 to 65535.
inline std::uint8_t lowByte(int value) { return static_cast<std::uint8_t>(value & 0xFF); }
inline std::uint8_t highByte(int value) { return static_cast<std::uint8_t>(value >> 8 & 0xFF); }

}  // namespace corvane
