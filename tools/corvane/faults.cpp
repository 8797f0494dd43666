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

Failure unknown(std::string_view name, const std::string& known) {
    return {ExitStatus::wrongUsage, "no fault \"" + std::string(name) + "\"; there are " + known};
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
        if (!known) throw unknown(name, faultNames());
    }
    return faults;
}

EmulatorFault parseDeviceFault(const std::string& name) {
    if (const auto fault = parseEmulatorFault(name)) return *fault;
    throw unknown(name, deviceFaultNames());
}

std::string deviceFaultNames() {
    std::string text;
    for (const EmulatorFault& fault : emulatorFaults())
        text += (text.empty() ? "" : " ") + emulatorFaultText(fault);
    return text + " (link-lost@3: at the third step)";
}

std::string faultNames() {
    std::string text = "the device's: " + deviceFaultNames() + "; the radio's:";
    for (const RadioFault& fault : radioFaults()) {
        const std::string name = toText(fault);
        text += ' ';
        if (parseEmulatorFault(name)) text += radioPrefix;
        text += name;
    }
    return text;
}

}  // namespace corvane::tool
