#pragma once

#include <span>
#include <string>
#include <vector>

#include "corvane/platform/simulated/radio_fault.h"
#include "emulators/emulator_fault.h"

namespace corvane::tool {

/// What is to go wrong on the simulated radio and with the devices on it.
struct Faults {
    std::vector<RadioFault> radio;
    EmulatorFault device;
};

/// Reads the names. One that both know is the device's; "radio:" before it makes it the radio's. An unknown
/// name is a Failure whose text lists the names.
Faults parseFaults(std::span<const std::string> names);

/// One of the device's, in the same way.
EmulatorFault parseDeviceFault(const std::string& name);

/// The names, as lists to read.
std::string deviceFaultNames();
std::string faultNames();

}  // namespace corvane::tool
