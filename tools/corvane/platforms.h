// The platforms that this program can measure on. The one seam: a new back end is an entry here.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/framework/model.h"
#include "corvane/platform/platform.h"
#include "faults.h"

namespace corvane::tool {

struct PlatformOptions {
    std::string name = "auto";
    // For BlueZ:
    std::string adapter;  ///< Empty for the first one.
    std::string notifyPath = "auto";
    /// Told what the system refuses, and what is tried again. May be absent.
    std::function<void(std::string_view line)> diagnostics;
    // For the simulated one:
    std::optional<std::uint64_t> seed;
    bool realTime = false;
    Faults faults;
};

/// A platform with its queue, run by the program.
class HostPlatform {
public:
    virtual ~HostPlatform() = default;

    virtual Platform& platform() = 0;

    /// The platform's time, from whenever on.
    virtual std::chrono::nanoseconds now() const = 0;

    /// What a text about a radio that cannot be used ends with.
    virtual const char* helpWithRadio() const { return ""; }

    /// Brings a device of this model into reach, where devices are emulated.
    virtual void place(const Model& /*model*/) {}

    /// Runs the queue until `done`, or until that much of the platform's time has passed; returns whether it
    /// was done. `done` is asked after whatever happens.
    virtual bool runUntil(const std::function<bool()>& done, std::chrono::nanoseconds limit) = 0;

    /// Has `done` asked again where nothing else would for long. For signal handlers.
    virtual void wake() noexcept {}
};

/// The platform of that name; "auto" is the first real one that has an adapter. Where there is none, or the
/// options are not for it, a Failure says so.
std::unique_ptr<HostPlatform> openPlatform(const PlatformOptions& options);

/// The names that it knows, as a list to read.
std::string platformNames();

/// The ways on which BlueZ can hand over values.
std::vector<std::string> notifyPathNames();

}  // namespace corvane::tool
