#include "faults.h"

#include <optional>
#include <string_view>

#include "failure.h"

namespace corvane::tool {
namespace {

constexpr std::string_view radioPrefix = "radio:";

bool addRadioFault(Faults& faults, std::string_view name) {
    const std::optional<RadioFault> fault = parseRadioFault(name);
    if (fault) faults.radio.push_back(*fault);
    return fault.has_value();
}

bool addDeviceFault(Faults& faults, std::string_view name) {
    const std::optional<EmulatorFault> fault = parseEmulatorFault(name);
    if (!fault) return false;
    if (faults.device != EmulatorFault{})
        throw Failure(ExitStatus::wrongUsage, "a device can have one fault at a time");
    faults.device = *fault;
    return true;
}

}  // namespace

Faults parseFaults(std::span<const std::string> names) {
    Faults faults;
    for (const std::string_view name : names) {
        const bool known = name.starts_with(radioPrefix)
                               ? addRadioFault(faults, name.substr(radioPrefix.size()))
                               : addDeviceFault(faults, name) || addRadioFault(faults, name);
        if (!known)
            throw Failure(ExitStatus::wrongUsage,
                          "no fault \"" + std::string(name) + "\"; there are " + faultNames());
    }
    return faults;
}

std::string deviceFaultNames() {
    std::string text;
    for (const EmulatorFault& fault : emulatorFaults())
        text += (text.empty() ? "" : " ") + emulatorFaultText(fault);
    return text;
}

std::string faultNames() {
    std::string text = "of the device: " + deviceFaultNames() + "; of the radio:";
    for (const RadioFault& fault : radioFaults()) {
        const std::string name = toText(fault);
        text += ' ';
        if (parseEmulatorFault(name)) text += radioPrefix;
        text += name;
    }
    return text;
}

}  // namespace corvane::tool
