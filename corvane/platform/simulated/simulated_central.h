// What a driver holds of a simulated radio. Its events come in the order in which they happened.
#pragma once

#include <algorithm>

#include "corvane/platform/simulated/simulated_air.h"

namespace corvane::simulated {

class Peripheral;

class Central final : public CBCentralManager, public std::enable_shared_from_this<Central> {
public:
    Central(Air& air, std::weak_ptr<CBCentralManagerDelegate> delegate);
    ~Central() override;

    CBManagerState state() const override { return state_; }
    void scanForPeripherals() override;
    void stopScan() override;
    void connect(const PeripheralRef& peripheral) override;
    void cancelPeripheralConnection(const PeripheralRef& peripheral) override;

    /// The adapter has changed. What a scan or an attempt was, is over if it is not on.
    void adapterChanged();
    /// There may be a station that the scan has not reported.
    void look();

    /// Links and attempts.
    std::size_t links() const;

    /// Queues an event, of the link to `station` if that is not null. Dropped when the central goes first.
    template <class Event>
    void later(Event event, Station* station = nullptr, Duration lateness = {}) {
        lastEvent_ = std::max(lastEvent_, air_.queue.now() + air_.airTime());
        air_.queue.at(lastEvent_ + lateness, [weak = weak_from_this(), event = std::move(event), station] {
            const auto self = weak.lock();
            if (!self) return;
            event();
            self->air_.eventDelivered(station);
        });
    }

    /// Calls a delegate, which is the end of every event; a fault lets the same come once more.
    template <class Call>
    void report(Call call) {
        if (air_.faults.repeats()) later(call);
        call();
    }

    /// Reports to this central's own delegate.
    template <class Call>
    void tell(Call call) {
        report([this, call = std::move(call)] {
            if (const auto delegate = delegate_.lock()) call(*delegate);
        });
    }

private:
    /// The adapter is on, and this central has heard of it.
    bool mayOperate() const { return air_.isOn() && state_ == CBManagerState::poweredOn; }
    bool isScanning() const { return air_.scanning.contains(number_); }
    void hearAdvert();
    const std::shared_ptr<Peripheral>& peripheralOf(Station& station);

    Air& air_;
    const std::uint64_t number_;
    const std::weak_ptr<CBCentralManagerDelegate> delegate_;
    CBManagerState state_ = CBManagerState::unknown;
    std::uint64_t scan_ = 0;       ///< Counts the scans.
    std::uint64_t heardUpTo_ = 0;  ///< Key of the last of `Air::advertisers` that this scan has heard.
    bool looking_ = false;         ///< `hearAdvert` is in the queue.
    Duration lastEvent_{0};
    std::map<std::uint64_t, std::shared_ptr<Peripheral>> peripherals_;  ///< By the station's number.
};

}  // namespace corvane::simulated
