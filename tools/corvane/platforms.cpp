#include "platforms.h"

#include "corvane/platform/simulated/simulated_radio.h"
#include "emulators/emulator.h"
#include "failure.h"

#ifdef CORVANE_TOOL_HAS_BLUEZ
#include "corvane/platform/bluez/bluez_platform.h"
#include "doctor_command.h"
#endif

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

#ifdef CORVANE_TOOL_HAS_BLUEZ
BlueZNotifyPath notifyPath(std::string_view name) {
    if (name == "socket") return BlueZNotifyPath::socket;
    if (name == "signals") return BlueZNotifyPath::busSignals;
    return BlueZNotifyPath::automatic;
}

class BlueZHost final : public HostPlatform {
public:
    explicit BlueZHost(const PlatformOptions& options)
        : platform_(
              {.adapter = options.adapter, .busAddress = {}, .notifyPath = notifyPath(options.notifyPath)}) {}

    Platform& platform() override { return platform_; }
    std::chrono::nanoseconds now() const override {
        return std::chrono::steady_clock::now().time_since_epoch();
    }

    bool runUntil(const std::function<bool()>& done, std::chrono::nanoseconds limit) override {
        return platform_.runUntil(done, limit);
    }

    void wake() noexcept override { platform_.wake(); }

    const char* helpWithRadio() const override { return doctorsHint; }

    bool hasAdapter() {
        constexpr std::chrono::seconds patience{5};
        const auto state = std::make_shared<FirstState>();
        state->central = platform_.makeCentralManager(state);
        platform_.runUntil([&] { return state->known; }, patience);
        return state->known && state->central->state() != CBManagerState::unsupported;
    }

private:
    struct FirstState final : CBCentralManagerDelegate {
        void didUpdateState() override { known = true; }
        void didDiscover(const PeripheralRef& /*peripheral*/) override {}
        void didConnect(const PeripheralRef& /*peripheral*/) override {}
        void didDisconnectPeripheral(const PeripheralRef& /*peripheral*/, const CBError* /*error*/) override {
        }

        bool known = false;
        std::shared_ptr<CBCentralManager> central;
    };

    BlueZPlatform platform_;
};

std::unique_ptr<HostPlatform> openBlueZ(const PlatformOptions& options) {
    auto host = std::make_unique<BlueZHost>(options);
    host->platform().diagnostics = options.diagnostics;
    if (!host->hasAdapter()) return nullptr;
    return host;
}
#else
constexpr const char* doctorsHint = "";
#endif

struct Entry {
    std::string_view name;
    bool real;
    /// Null when there is no adapter.
    std::unique_ptr<HostPlatform> (*open)(const PlatformOptions&);
};

constexpr Entry entries[] = {
#ifdef CORVANE_TOOL_HAS_BLUEZ
    {"bluez", true, openBlueZ},
#endif
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
    const bool choosesRadio = !options.adapter.empty() || options.notifyPath != PlatformOptions().notifyPath;
    if (!entry.real && choosesRadio)
        throw Failure(ExitStatus::wrongUsage, "--adapter and --notify-path are for a real radio");
}

}  // namespace

std::unique_ptr<HostPlatform> openPlatform(const PlatformOptions& options) {
    bool known = options.name == "auto";
    for (const Entry& entry : entries) {
        const bool chosen = options.name == entry.name;
        known = known || chosen;
        if (!chosen && !(options.name == "auto" && entry.real)) continue;
        checkUsage(entry, options);
        if (auto platform = entry.open(options)) return platform;
    }
    if (!known)
        throw Failure(ExitStatus::wrongUsage,
                      "no platform \"" + options.name + "\"; there are " + platformNames());
    const std::string adapter = options.adapter.empty() ? "" : ' ' + options.adapter;
    throw Failure(ExitStatus::noRadio, "there is no Bluetooth adapter" + adapter + doctorsHint +
                                           "; --platform simulated reads emulated devices instead");
}

std::string platformNames() {
    std::string names = "auto";
    for (const Entry& entry : entries) names += ' ' + std::string(entry.name);
    return names;
}

std::vector<std::string> notifyPathNames() { return {"auto", "socket", "signals"}; }

}  // namespace corvane::tool
