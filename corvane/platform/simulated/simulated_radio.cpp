#include "corvane/platform/simulated/simulated_radio.h"

#include "corvane/platform/simulated/simulated_air.h"
#include "corvane/platform/simulated/simulated_central.h"
#include "corvane/platform/simulated/simulated_station.h"

namespace corvane {

SimulatedRadio::SimulatedRadio(SimulatedRadioOptions options)
    : queue_(options.realTime), air_(std::make_unique<simulated::Air>(queue_, options)) {}

SimulatedRadio::~SimulatedRadio() = default;

std::shared_ptr<CBCentralManager>
SimulatedRadio::makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) {
    auto central = std::make_shared<simulated::Central>(*air_, std::move(delegate));
    central->adapterChanged();
    return central;
}

void SimulatedRadio::add(std::shared_ptr<PeripheralDevice> device) { air_->station(device).comeIntoReach(); }

void SimulatedRadio::remove(const PeripheralDevice& device) {
    if (auto* station = air_->find(device)) station->goOutOfReach();
}

void SimulatedRadio::loseLink(const PeripheralDevice& device) {
    if (auto* station = air_->find(device)) station->loseLink("the link is lost");
}

void SimulatedRadio::nameChanged(const PeripheralDevice& device) {
    if (auto* station = air_->find(device)) station->nameChanged();
}

std::string SimulatedRadio::identifier(const PeripheralDevice& device) const {
    const auto* station = air_->find(device);
    return station ? station->identifier : std::string();
}

void SimulatedRadio::setState(CBManagerState state) { air_->setState(state); }

CBManagerState SimulatedRadio::state() const { return air_->state(); }

std::size_t SimulatedRadio::centrals() const { return air_->centrals.size(); }

std::size_t SimulatedRadio::scans() const { return air_->scanning.size(); }

std::size_t SimulatedRadio::operations() const { return air_->operations; }

std::size_t SimulatedRadio::links() const {
    std::size_t links = 0;
    for (const auto& [number, central] : air_->centrals) links += central->links();
    return links;
}

}  // namespace corvane
