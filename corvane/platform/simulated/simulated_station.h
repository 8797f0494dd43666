// A device in the air of a simulated radio.
#pragma once

#include "corvane/platform/simulated/simulated_air.h"

namespace corvane::simulated {

class Link;
class Peripheral;

class Station {
public:
    Station(Air& air, std::shared_ptr<PeripheralDevice> device, std::uint64_t number, std::string identifier);
    ~Station();

    std::optional<std::string> advertisedName() const;
    void comeIntoReach();
    void goOutOfReach();
    void nameChanged();
    void loseLink(std::string_view why);
    bool isAsleep() const { return asleep_; }

    // For peripherals.

    /// Links the peripheral once the device can be reached.
    void seek(Peripheral& peripheral);
    /// Ends the peripheral's part in the link or its attempt, at once and without an event.
    void leave(Peripheral& peripheral);
    /// Queues what the device is to hear; requests keep their order. Nothing happens if the peripheral has
    /// no part in the link any more by then.
    void request(Peripheral& from, std::function<void(Station&, Peripheral&)> action);
    void subscribe(Peripheral& peripheral, const CBUUID& characteristic, bool enabled);
    void write(const CBUUID& characteristic, Bytes value, CBCharacteristicWriteType type);

    /// An event of the link has been delivered. Faults strike here.
    void eventDelivered();
    Duration lateness() { return air_.faults.lateness(); }

    const std::shared_ptr<PeripheralDevice> device;
    const std::uint64_t number;  ///< In the order of the first `add`.
    const std::string identifier;
    std::uint64_t advert = 0;  ///< Key in `Air::advertisers`; 0 when it is not there.

private:
    bool isReachable() const { return inReach_ && !asleep_ && !ending_; }
    void join(Peripheral& peripheral);
    void endLink();
    void becomeReachable();
    void fallAsleep();
    bool offers(const CBUUID& characteristic, unsigned properties) const;

    Air& air_;
    bool inReach_ = false;
    bool asleep_ = false;
    bool ending_ = false;  ///< The device has yet to hear that its link has ended.
    unsigned eventsDelivered_ = 0;
    Duration lastRequest_{0};
    std::shared_ptr<Link> link_;
    std::vector<Peripheral*> seekers_;
};

}  // namespace corvane::simulated
