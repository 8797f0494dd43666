// A platform whose radio is a script: its events are told to it, the driver's operations become trace lines,
// and time is virtual.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "corvane/platform/platform.h"
#include "sessions/trace.h"

namespace corvane::sessions {

class ScriptedCentral;
class ScriptedTimer;

class ScriptedPlatform final : public Platform, private MainQueue {
public:
    explicit ScriptedPlatform(Trace& trace) : trace_(trace) {}

    /// Whether a failed precondition ends the replay; otherwise it drops the frame.
    bool stopsOnPrecondition = true;

    /// Ends the replay: nothing is traced any more, no task and no timer runs.
    void stop();
    bool stopped() const { return stopped_; }

    /// Whether the driver has ever made a central.
    bool hadCentral() const { return hadCentral_; }

    /// Null when the driver has no central now, or is gone. Hold it while delivering to it.
    std::shared_ptr<CBCentralManagerDelegate> centralDelegate() const;

    void setState(CBManagerState state);

    std::size_t waitingTasks() const { return tasks_.size(); }
    /// `count` tasks have to be waiting.
    void runTasks(std::size_t count);
    void advance(std::chrono::nanoseconds time);

    Trace& trace() { return trace_; }

private:
    friend ScriptedCentral;
    friend ScriptedTimer;

    std::shared_ptr<CBCentralManager>
    makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) override;
    MainQueue& mainQueue() override { return *this; }
    void log(std::string_view line) override { trace_.console(line); }
    void preconditionFailed(std::string_view driver, std::string_view what) override;

    void post(std::function<void()> task) override { tasks_.push_back(std::move(task)); }
    std::unique_ptr<Timer> scheduleTimer(std::chrono::nanoseconds interval,
                                         std::function<void()> tick) override;

    void runOldestTask();
    void runAllTasks();
    void pass(std::chrono::nanoseconds time);
    ScriptedTimer* nextTimer() const;

    Trace& trace_;
    bool stopped_ = false;
    bool hadCentral_ = false;
    CBManagerState state_ = CBManagerState::unknown;
    std::weak_ptr<ScriptedCentral> central_;
    std::deque<std::function<void()>> tasks_;
    std::vector<ScriptedTimer*> timers_;  // in the order of scheduling; each takes itself out
};

/// A peripheral of the script. Its lists change whether or not anybody listens.
class ScriptedPeripheral final : public CBPeripheral,
                                 public std::enable_shared_from_this<ScriptedPeripheral> {
public:
    ScriptedPeripheral(Trace& trace, std::string label, std::string identifier)
        : trace_(trace), label_(std::move(label)), identifier_(std::move(identifier)) {}

    const std::string& label() const { return label_; }
    void rename(std::optional<std::string> name) { name_ = std::move(name); }

    /// How many services, and characteristics of a service, there are to point at; none where there is no
    /// list.
    std::size_t serviceCount() const;
    std::size_t characteristicCount(std::size_t service) const;

    // Events. The indexes have to be within the lists.

    void servicesDiscovered(const std::optional<std::vector<CBUUID>>& services, const CBError* error);
    void characteristicsDiscovered(std::size_t service,
                                   const std::optional<std::vector<CBUUID>>& characteristics,
                                   const CBError* error);
    void valueUpdated(std::size_t service, std::size_t characteristic, std::optional<Bytes> value,
                      const CBError* error);

    std::optional<std::string> name() const override { return name_; }
    const std::string& identifier() const override { return identifier_; }

private:
    void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override {
        delegate_ = std::move(delegate);
    }
    std::optional<std::vector<ServiceRef>> services() const override { return services_; }
    void discoverServices(std::span<const CBUUID> wanted) override;
    void discoverCharacteristics(std::span<const CBUUID> wanted, const CBService& service) override;
    void setNotifyValue(bool enabled, const CBCharacteristic& characteristic) override;
    void writeValue(Bytes value, const CBCharacteristic& characteristic,
                    CBCharacteristicWriteType type) override;

    Trace& trace_;
    const std::string label_;
    const std::string identifier_;
    std::optional<std::string> name_;
    std::optional<std::vector<ServiceRef>> services_;
    std::weak_ptr<CBPeripheralDelegate> delegate_;
};

}  // namespace corvane::sessions
