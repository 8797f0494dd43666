#include "measure_command.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "console.h"
#include "failure.h"
#include "interruption.h"
#include "measure_report.h"
#include "measurement.h"
#include "session_file.h"
#include "sessions/recorder.h"

namespace corvane::tool {
namespace {

using namespace std::chrono_literals;
using Measurements = std::vector<std::unique_ptr<Measurement>>;

constexpr auto asLongAsItTakes = std::chrono::nanoseconds::max();
constexpr std::chrono::nanoseconds patienceAtTheEnd = 5s;

/// What one driver sees of the platform: its lines and violations are told as this model's.
class DriverPlatform final : public Platform {
public:
    DriverPlatform(const Model& model, Platform& platform, bool verbose, Console& console)
        : platform_(platform) {
        const std::string prefix = std::string(model.id) + ": ";
        logSink = [prefix, verbose, &console](std::string_view line) {
            if (verbose) console.message(prefix + std::string(line));
        };
        onPreconditionFailed = [prefix, &console](std::string_view /*driver*/, std::string_view what) {
            console.warning(prefix + std::string(what) + "; this was dropped");
        };
    }

    std::shared_ptr<CBCentralManager>
    makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) override {
        return platform_.makeCentralManager(std::move(delegate));
    }
    MainQueue& mainQueue() override { return platform_.mainQueue(); }

private:
    Platform& platform_;
};

void checkUsage(const MeasureOptions& options) {
    const auto require = [](bool holds, const char* what) {
        if (!holds) throw Failure(ExitStatus::wrongUsage, what);
    };
    require(!options.models.empty(), "name a model, or use --all");
    require(!options.records() || options.models.size() == 1, "--record and --trace are for a single model");
    require(!options.records() || options.record != options.trace, "--record and --trace need a file each");
}

class MeasureCommand {
public:
    explicit MeasureCommand(const MeasureOptions& options)
        : options_(options), host_(openPlatform(platformOptions())), script_(options.record),
          trace_(options.trace), report_(form(options), options.models.size(), console_) {
        for (const Model* model : options.models) add(*model);
    }

    ExitStatus run() {
        for (const auto& measurement : measurements_) measurement->begin();
        host_->runUntil([this] { return mustEnd() || count(&Measurement::ended) == measurements_.size(); },
                        asLongAsItTakes);
        for (const auto& measurement : measurements_)
            measurement->end(ExitStatus::interrupted, "interrupted");
        host_->runUntil([this] { return count(&Measurement::linked) == 0; }, patienceAtTheEnd);
        for (const auto& measurement : measurements_) measurement->close();
        script_.close();
        trace_.close();
        report_.finish(measurements_);
        return status();
    }

private:
    PlatformOptions platformOptions() {
        PlatformOptions platform = options_.platform;
        if (options_.verbose)
            platform.diagnostics = [this](std::string_view line) { console_.message(line); };
        return platform;
    }

    static MeasureReport::Form form(const MeasureOptions& options) {
        if (options.json) return MeasureReport::Form::json;
        return options.models.size() > 1 ? MeasureReport::Form::table : MeasureReport::Form::lines;
    }

    void add(const Model& model) {
        host_->place(model);
        platforms_.push_back(
            std::make_unique<DriverPlatform>(model, host_->platform(), options_.verbose, console_));
        sessions::DeviceSetup setup{.model = &model, .arguments = options_.arguments};
        setup.arguments.repeatResult = false;  // A reading is what a measurement ends with.
        measurements_.push_back(std::make_unique<Measurement>(
            MeasurementPlan{.model = &model,
                            .makeDevice =
                                [this, setup, &platform = *platforms_.back()](sessions::HostListener to) {
                                    return makeDevice(setup, platform, std::move(to));
                                },
                            .renewsDevice = !options_.records(),
                            .count = options_.count,
                            .timeout = options_.timeout,
                            .helpWithRadio = host_->helpWithRadio()},
            host_->platform(), report_));
    }

    std::unique_ptr<sessions::HostDevice> makeDevice(const sessions::DeviceSetup& setup, Platform& platform,
                                                     sessions::HostListener listener) {
        if (!options_.records()) return makeHostDevice(setup, platform, std::move(listener));
        return makeRecordedDevice(
            setup, platform, std::move(listener),
            {.clock = [this] { return host_->now(); }, .script = script_.stream(), .trace = trace_.stream()});
    }

    bool mustEnd() const { return interruption_.requested() || report_.failed(); }

    std::size_t count(bool (Measurement::*is)() const) const {
        const auto found = std::count_if(measurements_.begin(), measurements_.end(),
                                         [is](const auto& measurement) { return (*measurement.*is)(); });
        return static_cast<std::size_t>(found);
    }

    /// The worst of all.
    ExitStatus status() const {
        constexpr ExitStatus worstFirst[] = {ExitStatus::interrupted, ExitStatus::noRadio,
                                             ExitStatus::deviceError, ExitStatus::timedOut};
        for (const ExitStatus status : worstFirst) {
            for (const auto& measurement : measurements_) {
                if (measurement->status() == status) return status;
            }
        }
        return ExitStatus::done;
    }

    const MeasureOptions& options_;
    Console console_;
    std::unique_ptr<HostPlatform> host_;
    const Interruption interruption_{[this] { host_->wake(); }};
    SessionFile script_;
    SessionFile trace_;
    MeasureReport report_;
    std::vector<std::unique_ptr<DriverPlatform>> platforms_;
    Measurements measurements_;
};

}  // namespace

ExitStatus measure(const MeasureOptions& options) {
    checkUsage(options);
    return MeasureCommand(options).run();
}

}  // namespace corvane::tool
