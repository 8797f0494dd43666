#include "platforms.h"

#include "corvane/platform/simulated/simulated_radio.h"
#include "emulators/emulator.h"
#include "failure.h"

namespace corvane::tool {
namespace {

class SimulatedHost final : public HostPlatform {
public:
    explicit SimulatedHost(const PlatformOptions& options)
        : emulation_{.seed = options.seed.value_or(1), .fault = options.faults.device, .onEvent = {}},
          radio_({.seed = emulation_.seed, .realTime = options.realTime, .faults = options.faults.radio}) {}

    Platform& platform() override { return radio_; }
    std::chrono::nanoseconds now() const override { return radio_.now(); }

    void place(const Model& model) override { radio_.add(makeEmulator(model, emulation_)); }

    bool runUntil(const std::function<bool()>& done, std::chrono::nanoseconds limit) override {
        return radio_.runUntil(done, limit);
    }

private:
    const EmulatorOptions emulation_;
    SimulatedRadio radio_;
};

struct Entry {
    std::string_view name;
    bool real;
    /// Null when there is no adapter.
    std::unique_ptr<HostPlatform> (*open)(const PlatformOptions&);
};

constexpr Entry entries[] = {
    {"simulated", false,
     [](const PlatformOptions& options) -> std::unique_ptr<HostPlatform> {
         return std::make_unique<SimulatedHost>(options);
     }},
};

void checkUsage(const Entry& entry, const PlatformOptions& options) {
    const Faults& faults = options.faults;
    const bool emulates =
        options.seed || options.realTime || !faults.radio.empty() || faults.device != EmulatorFault{};
    if (entry.real && emulates)
        throw Failure(ExitStatus::wrongUsage, "--seed, --real-time and --fault are for --platform simulated");
    if (!entry.real && !options.adapter.empty())
        throw Failure(ExitStatus::wrongUsage, "--adapter is for a real radio");
}

}  // namespace

std::unique_ptr<HostPlatform> openPlatform(const PlatformOptions& options) {
    bool known = options.name == "auto";
    for (const Entry& entry : entries) {
        const bool chosen = options.name == entry.name;
        known = known || chosen;
        if (!chosen && !(options.name == "auto" && entry.real)) continue;
        auto platform = entry.open(options);
        if (!platform) continue;
        checkUsage(entry, options);
        return platform;
    }
    if (!known)
        throw Failure(ExitStatus::wrongUsage,
                      "no platform \"" + options.name + "\"; there are " + platformNames());
    throw Failure(ExitStatus::noRadio,
                  "there is no Bluetooth adapter; --platform simulated reads emulated devices instead");
}

std::string platformNames() {
    std::string names = "auto";
    for (const Entry& entry : entries) names += ' ' + std::string(entry.name);
    return names;
}

}  // namespace corvane::tool
