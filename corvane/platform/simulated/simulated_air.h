// The adapter of a simulated radio, and what its centrals and devices share. Internal to this folder, as are
// the headers that it is used with.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "corvane/platform/simulated/fault_plan.h"
#include "corvane/platform/simulated/simulated_radio.h"

namespace corvane::simulated {

using Duration = SimulatedQueue::Duration;

class Central;
class Station;

class Air {
public:
    Air(SimulatedQueue& queue, const SimulatedRadioOptions& options);
    ~Air();

    bool isOn() const { return state_ == CBManagerState::poweredOn; }
    CBManagerState state() const { return state_; }
    void setState(CBManagerState state);

    /// The device's station, made when it is first asked for.
    Station& station(const std::shared_ptr<PeripheralDevice>& device);
    /// Null for a device that has none.
    Station* find(const PeripheralDevice& device) const;

    /// Puts the station behind those that advertise already, so that it is heard again.
    void advertise(Station& station);
    void silence(Station& station);

    /// How long the next thing takes.
    Duration airTime();
    /// An event has been delivered, of a device's link if `station` is not null. Faults strike here.
    void eventDelivered(Station* station);

    SimulatedQueue& queue;
    FaultPlan faults;
    std::uint64_t centralsMade = 0;
    std::size_t operations = 0;                     ///< Asked of centrals and peripherals.
    std::map<std::uint64_t, Central*> centrals;     ///< In the order of making.
    std::map<std::uint64_t, Central*> scanning;     ///< Those that scan, under the same keys.
    std::map<std::uint64_t, Station*> advertisers;  ///< In the order of `advertise`.

private:
    void cycleAdapter();

    CBManagerState state_;
    const std::uint64_t seed_;
    SeededRandom random_;
    std::uint64_t adverts_ = 0;
    unsigned eventsDelivered_ = 0;
    std::vector<std::unique_ptr<Station>> stations_;  ///< In the order of their first `add`.
    std::map<const PeripheralDevice*, Station*> stationOf_;
};

}  // namespace corvane::simulated
