// A central's view of a device of the simulated radio, and its part in the link to it.
#pragma once

#include "corvane/platform/simulated/simulated_central.h"

namespace corvane::simulated {

class Station;

/// One copy for every central that subscribed.
using SharedValue = std::shared_ptr<const std::vector<std::uint8_t>>;

class Peripheral final : public CBPeripheral, public std::enable_shared_from_this<Peripheral> {
public:
    Peripheral(std::weak_ptr<Central> central, Station& station);

    std::optional<std::string> name() const override { return name_; }
    const std::string& identifier() const override { return identifier_; }
    void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override;
    std::optional<std::vector<ServiceRef>> services() const override { return services_; }
    void discoverServices(std::span<const CBUUID> wanted) override;
    void discoverCharacteristics(std::span<const CBUUID> wanted, const CBService& service) override;
    void setNotifyValue(bool enabled, const CBCharacteristic& characteristic) override;
    void writeValue(Bytes value, const CBCharacteristic& characteristic,
                    CBCharacteristicWriteType type) override;

    // For the central.

    bool isOf(const Central& central) const { return central_.lock().get() == &central; }
    /// Takes the name from the advert. False when there is nothing in it that this scan has not reported.
    bool seenAnew(std::uint64_t scan);
    void connect();
    void cancel();
    /// The adapter is off: an attempt ends without an event.
    void giveUp();
    /// The central goes.
    void release();
    bool isIdle() const { return state_ == State::idle; }

    // For the station.

    bool isSought() const { return state_ == State::sought; }
    void linkStands();
    /// `why` is for a central that did not ask for it.
    void linkEnded(std::string_view why);
    void valueCame(const CBUUID& characteristic, SharedValue value);

private:
    /// `linked` and `leaving` last until the central's delegate has heard of the end.
    enum class State { idle, sought, linked, leaving };

    /// Queues an event of the current link. May come late where a fault allows for it.
    template <class Event>
    void later(Event event, Duration lateness = {});
    template <class Call>
    void tell(Call call);

    void hearConnected(std::uint64_t link);
    void hearDisconnected(std::uint64_t link, const std::string& why);
    void hearServices(std::uint64_t link, std::vector<ServiceRef> found);
    void hearCharacteristics(std::uint64_t link, std::size_t place, std::vector<CharacteristicRef> found);
    void hearValue(const CBUUID& characteristic, const SharedValue& value);
    CharacteristicRef find(const CBUUID& characteristic) const;

    const std::weak_ptr<Central> central_;
    Station& station_;
    const std::string identifier_;
    std::weak_ptr<CBPeripheralDelegate> delegate_;
    std::optional<std::string> name_;
    std::uint64_t seenInScan_ = 0;
    State state_ = State::idle;
    bool again_ = false;      ///< Asked to connect while the old link was ending.
    bool told_ = false;       ///< The delegate knows of the link.
    std::uint64_t link_ = 0;  ///< Counts the links, so that an answer finds the one it belongs to.
    std::optional<std::vector<ServiceRef>> services_;
};

}  // namespace corvane::simulated
