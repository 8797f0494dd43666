// A radio in memory: everything works on a machine without Bluetooth, and a test sees hours pass in an
// instant.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "corvane/platform/peripheral_device.h"
#include "corvane/platform/platform.h"
#include "corvane/platform/simulated/radio_fault.h"
#include "corvane/platform/simulated/simulated_queue.h"

namespace corvane {
namespace simulated {
class Air;
}

struct SimulatedRadioOptions {
    /// Decides how long everything takes on the air, and where faults strike. The same seed gives the same
    /// run on every machine, as far as the time is virtual.
    std::uint64_t seed = 1;
    bool realTime = false;
    CBManagerState state = CBManagerState::poweredOn;  ///< Of the adapter, until `setState`.
    std::vector<RadioFault> faults{};
};

/// A platform whose air is filled by hand with devices.
///
/// It behaves as a system's Bluetooth service does: each step takes some milliseconds on the air, centrals
/// share one adapter, and two that connect to one device share the link to it, each with its own
/// subscriptions. When the adapter goes off every link ends, and its disconnect comes after the state event.
///
///     SimulatedRadio radio;
///     radio.add(std::make_shared<MyDevice>());
///     TemperatureAOJ20ADevice thermometer(true, radio);
///     thermometer.startScan();
///     radio.runFor(std::chrono::seconds(10));
///
/// Drivers, centrals and timers must be let go before the radio is. Everything happens on the thread that
/// runs it.
class SimulatedRadio final : public Platform {
public:
    using Duration = SimulatedQueue::Duration;

    explicit SimulatedRadio(SimulatedRadioOptions options = {});
    ~SimulatedRadio() override;

    std::shared_ptr<CBCentralManager>
    makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) override;
    SimulatedQueue& mainQueue() override { return queue_; }

    // The air.

    /// Brings the device into reach, for the first time or again. It keeps its identifier for the life of the
    /// radio. A device whose name is empty advertises none.
    void add(std::shared_ptr<PeripheralDevice> device);
    /// Takes it out of reach. Its link is lost.
    void remove(const PeripheralDevice& device);
    /// The link is lost, the device stays in reach.
    void loseLink(const PeripheralDevice& device);
    /// The device's name has changed, which a radio notices at its next advert only.
    void nameChanged(const PeripheralDevice& device);
    /// Empty for a device that was never added.
    std::string identifier(const PeripheralDevice& device) const;

    /// Takes effect now; the centrals hear of it from the queue.
    void setState(CBManagerState state);
    CBManagerState state() const;

    // Time. What these do is described at `SimulatedQueue`.

    Duration now() const { return queue_.now(); }
    bool step() { return queue_.step(); }
    void runFor(Duration time) { queue_.runFor(time); }
    bool runUntil(const std::function<bool()>& done, Duration limit) { return queue_.runUntil(done, limit); }
    bool runUntilIdle(Duration limit = std::chrono::minutes(10)) { return queue_.runUntilIdle(limit); }

    // What goes on, for tests.

    std::size_t centrals() const;
    /// Centrals that scan.
    std::size_t scans() const;
    /// Links and attempts that centrals hold.
    std::size_t links() const;
    /// What was asked of centrals and peripherals so far.
    std::size_t operations() const;
    std::size_t pendingTasks() const { return queue_.pending(); }

private:
    SimulatedQueue queue_;
    std::unique_ptr<simulated::Air> air_;
};

}  // namespace corvane
