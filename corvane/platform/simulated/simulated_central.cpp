#include "corvane/platform/simulated/simulated_central.h"

#include "corvane/platform/simulated/simulated_peripheral.h"
#include "corvane/platform/simulated/simulated_station.h"

namespace corvane::simulated {

Central::Central(Air& air, std::weak_ptr<CBCentralManagerDelegate> delegate)
    : air_(air), number_(air.centralsMade++), delegate_(std::move(delegate)) {
    air_.centrals.emplace(number_, this);
}

Central::~Central() {
    air_.scanning.erase(number_);
    air_.centrals.erase(number_);
    for (const auto& [number, peripheral] : peripherals_) peripheral->release();
}

void Central::scanForPeripherals() {
    ++air_.operations;
    if (!mayOperate()) return;
    air_.scanning.emplace(number_, this);
    ++scan_;
    heardUpTo_ = 0;
    look();
}

void Central::stopScan() {
    ++air_.operations;
    air_.scanning.erase(number_);
}

void Central::connect(const PeripheralRef& peripheral) {
    ++air_.operations;
    auto& known = static_cast<Peripheral&>(*peripheral);
    if (mayOperate() && known.isOf(*this)) known.connect();
}

void Central::cancelPeripheralConnection(const PeripheralRef& peripheral) {
    ++air_.operations;
    auto& known = static_cast<Peripheral&>(*peripheral);
    if (mayOperate() && known.isOf(*this)) known.cancel();
}

void Central::adapterChanged() {
    if (!air_.isOn()) {
        air_.scanning.erase(number_);
        for (const auto& [number, peripheral] : peripherals_) peripheral->giveUp();
    }
    later([this, state = air_.state()] {
        state_ = state;
        tell([](CBCentralManagerDelegate& delegate) { delegate.didUpdateState(); });
    });
}

void Central::look() {
    if (looking_ || air_.advertisers.upper_bound(heardUpTo_) == air_.advertisers.end()) return;
    looking_ = true;
    later([this] { hearAdvert(); });
}

void Central::hearAdvert() {
    looking_ = false;
    if (!isScanning()) return;
    for (auto next = air_.advertisers.upper_bound(heardUpTo_); next != air_.advertisers.end(); ++next) {
        heardUpTo_ = next->first;
        const auto peripheral = peripheralOf(*next->second);
        if (!peripheral->seenAnew(scan_)) continue;
        look();
        tell([peripheral](CBCentralManagerDelegate& delegate) { delegate.didDiscover(peripheral); });
        return;
    }
}

std::size_t Central::links() const {
    return static_cast<std::size_t>(std::count_if(peripherals_.begin(), peripherals_.end(),
                                                  [](const auto& entry) { return !entry.second->isIdle(); }));
}

const std::shared_ptr<Peripheral>& Central::peripheralOf(Station& station) {
    auto& peripheral = peripherals_[station.number];
    if (!peripheral) peripheral = std::make_shared<Peripheral>(weak_from_this(), station);
    return peripheral;
}

}  // namespace corvane::simulated
