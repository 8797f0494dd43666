// What a simulated radio can do wrong on demand.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace corvane {

struct RadioFault {
    enum class Kind {
        linkLost,      ///< The link of every device is lost, once, at a step.
        late,          ///< Some answers and values come late: overtaken by others, or after their link's end.
        duplicate,     ///< Some events come twice.
        adapterCycle,  ///< The adapter goes off at a step, and on again a second later.
        truncated,     ///< Some values lose their end, or come empty.
        corrupt,       ///< Some values have a wrong bit.
        earlyValue,  ///< What a device says to a subscription is queued before the subscribing call returns.
        asleep,      ///< Every device falls silent at a step, once, and is woken ten seconds later.
    };

    Kind kind;
    /// For faults that happen at a step: after how many events of the device's link (of the whole radio for
    /// `adapterCycle`) it happens, from 1. 0 leaves the choice to the radio's seed.
    unsigned step = 0;

    friend bool operator==(const RadioFault&, const RadioFault&) = default;
};

/// Every fault, its step left to the seed.
std::span<const RadioFault> radioFaults();

/// A stable name, such as "link-lost".
std::string_view radioFaultName(RadioFault::Kind kind);

/// Reads a name, followed by "@" and a step for a fault that happens at one: "late", "link-lost@4". Nothing
/// when the text is neither.
std::optional<RadioFault> parseRadioFault(std::string_view text);

/// The text that `parseRadioFault` reads.
std::string toText(const RadioFault& fault);

}  // namespace corvane
