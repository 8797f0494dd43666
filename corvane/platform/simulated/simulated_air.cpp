#include "corvane/platform/simulated/simulated_air.h"

#include "corvane/platform/simulated/simulated_central.h"
#include "corvane/platform/simulated/simulated_station.h"

namespace corvane::simulated {
namespace {

/// The same for the same place in the same seed's air, and unlike any other.
std::string identifierOf(std::uint64_t seed, std::uint64_t number) {
    SeededRandom random(seed ^ number << 32);
    std::array<std::uint8_t, 16> bytes{};
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random.below(256));
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // Marked as a random UUID.
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);
    return CBUUID::fromBytes(bytes).uuidString();
}

}  // namespace

Air::Air(SimulatedQueue& queue, const SimulatedRadioOptions& options)
    : queue(queue), faults(options.faults, options.seed), state_(options.state), seed_(options.seed),
      random_(options.seed) {}

Air::~Air() = default;

void Air::setState(CBManagerState state) {
    if (state == state_) return;
    state_ = state;
    for (const auto& [number, central] : centrals) central->adapterChanged();
    if (isOn()) return;
    for (const auto& station : stations_) station->loseLink("the adapter is off");
}

Station& Air::station(const std::shared_ptr<PeripheralDevice>& device) {
    Station*& station = stationOf_[device.get()];
    if (!station) {
        const std::uint64_t number = stations_.size();
        stations_.push_back(std::make_unique<Station>(*this, device, number, identifierOf(seed_, number)));
        station = stations_.back().get();
    }
    return *station;
}

Station* Air::find(const PeripheralDevice& device) const {
    const auto found = stationOf_.find(&device);
    return found == stationOf_.end() ? nullptr : found->second;
}

void Air::advertise(Station& station) {
    silence(station);
    station.advert = ++adverts_;
    advertisers.emplace(station.advert, &station);
    for (const auto& [number, central] : scanning) central->look();
}

void Air::silence(Station& station) { advertisers.erase(std::exchange(station.advert, 0)); }

Duration Air::airTime() { return std::chrono::microseconds(1000 + random_.below(20000)); }

void Air::eventDelivered(Station* station) {
    if (++eventsDelivered_ == faults.stepOf(RadioFault::Kind::adapterCycle)) cycleAdapter();
    if (station) station->eventDelivered();
}

void Air::cycleAdapter() {
    if (!isOn()) return;
    setState(CBManagerState::poweredOff);
    queue.at(queue.now() + std::chrono::seconds(1), [this] { setState(CBManagerState::poweredOn); });
}

}  // namespace corvane::simulated
