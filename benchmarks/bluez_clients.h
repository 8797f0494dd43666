// Two clients of BlueZ that do the same: one written on sd-bus alone, one on this library.
#pragma once

#include <cstddef>
#include <string>

namespace corvane::benchmarks {

/// What a client is to do: find the device with this name, link to it, subscribe to its one characteristic,
/// and end after so many values; or, with no values, scan until it finds the device.
struct Task {
    std::string busAddress;
    std::string deviceName;
    std::string characteristic;  ///< UUID, in lower case.
    std::size_t values = 0;
    bool bySocket = false;
};

struct Result {
    double firstValue = 0.0;  ///< Seconds from the start to the first value.
    double processor = 0.0;   ///< Seconds of this process, from the first value or advertiser to the last.
    bool done = false;
};

Result runBareClient(const Task& task);
Result runLibraryClient(const Task& task);

/// Seconds of processor time that this process has used.
double processorTime();
double now();

}  // namespace corvane::benchmarks
