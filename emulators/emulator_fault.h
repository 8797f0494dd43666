// What can go wrong with an emulated device, on request.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace corvane {

struct EmulatorFault {
    enum class Kind {
        none,
        shortValue,         ///< "short": values are cut, some to nothing
        corrupt,            ///< some bytes of a value are others than they should be
        duplicate,          ///< each value is sent twice
        late,               ///< values come seconds late, still in order
        silent,             ///< nothing is sent
        linkLost,           ///< the link breaks once, at a step of the device's life
        failedMeasurement,  ///< the first measurement fails; models without such a report behave as always
    };

    Kind kind = Kind::none;

    /// For `linkLost`: the step that does not happen any more. Connections, subscriptions, writes and values
    /// sent count, from 1, over all links of the device. 0 leaves the choice to the seed.
    unsigned step = 0;

    friend bool operator==(const EmulatorFault&, const EmulatorFault&) = default;
};

/// One of each kind, `none` first.
std::span<const EmulatorFault> emulatorFaults();

/// The name on command lines: "none", "short", "corrupt", "duplicate", "late", "silent", "link-lost",
/// "failed-measurement"; a chosen step follows as in "link-lost@3".
std::string emulatorFaultText(const EmulatorFault& fault);

/// Reads what `emulatorFaultText` writes.
std::optional<EmulatorFault> parseEmulatorFault(std::string_view text);

}  // namespace corvane
