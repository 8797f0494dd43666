#include "corvane/platform/simulated/simulated_peripheral.h"

#include "corvane/platform/simulated/simulated_station.h"

namespace corvane::simulated {
namespace {

struct Service final : CBService {
    std::size_t place = 0;  ///< In the device's list.
};

std::size_t placeOf(const CBService& service) { return static_cast<const Service&>(service).place; }

bool isWanted(const std::vector<CBUUID>& wanted, const CBUUID& uuid) {
    return wanted.empty() || std::find(wanted.begin(), wanted.end(), uuid) != wanted.end();
}

}  // namespace

Peripheral::Peripheral(std::weak_ptr<Central> central, Station& station)
    : central_(std::move(central)), station_(station), identifier_(station.identifier) {}

void Peripheral::setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) {
    delegate_ = std::move(delegate);
}

template <class Event>
void Peripheral::later(Event event, Duration lateness) {
    if (const auto central = central_.lock()) central->later(std::move(event), &station_, lateness);
}

template <class Call>
void Peripheral::tell(Call call) {
    if (const auto central = central_.lock()) {
        central->report([self = shared_from_this(), call = std::move(call)] {
            if (const auto delegate = self->delegate_.lock()) call(*delegate);
        });
    }
}

bool Peripheral::seenAnew(std::uint64_t scan) {
    std::optional<std::string> name = station_.advertisedName();
    if (seenInScan_ == scan && name == name_) return false;
    seenInScan_ = scan;
    name_ = std::move(name);
    return true;
}

// The link.

void Peripheral::connect() {
    again_ = state_ == State::leaving;
    if (state_ != State::idle) return;
    state_ = State::sought;
    station_.seek(*this);
}

void Peripheral::cancel() {
    again_ = false;
    if (state_ == State::sought) giveUp();
    if (state_ != State::linked) return;
    state_ = State::leaving;
    station_.request(*this, [](Station& station, Peripheral& self) {
        station.leave(self);
        self.linkEnded({});
    });
}

void Peripheral::giveUp() {
    again_ = false;
    if (state_ != State::sought) return;
    state_ = State::idle;
    station_.leave(*this);
}

void Peripheral::release() {
    state_ = State::idle;
    station_.leave(*this);
}

void Peripheral::linkStands() {
    state_ = State::linked;
    later([self = shared_from_this(), link = ++link_] { self->hearConnected(link); });
}

void Peripheral::linkEnded(std::string_view why) {
    later([self = shared_from_this(), link = link_, why = std::string(why)] {
        self->hearDisconnected(link, why);
    });
}

void Peripheral::hearConnected(std::uint64_t link) {
    if (link != link_ || state_ != State::linked) return;
    told_ = true;
    services_.reset();
    if (const auto central = central_.lock()) {
        central->tell(
            [self = shared_from_this()](CBCentralManagerDelegate& delegate) { delegate.didConnect(self); });
    }
}

void Peripheral::hearDisconnected(std::uint64_t link, const std::string& why) {
    if (link != link_) return;
    const bool asked = state_ == State::leaving;
    const bool known = told_;
    state_ = State::idle;
    told_ = false;
    if (again_) connect();
    const auto central = central_.lock();
    if (!known || !central) return;
    central->tell([self = shared_from_this(), asked, error = CBError{why}](auto& delegate) {
        delegate.didDisconnectPeripheral(self, asked ? nullptr : &error);
    });
}

// Discovery. What is asked for is looked up when the request has reached the device.

void Peripheral::discoverServices(std::span<const CBUUID> wanted) {
    station_.request(
        *this, [wanted = std::vector(wanted.begin(), wanted.end())](Station& station, Peripheral& self) {
            std::vector<ServiceRef> found;
            std::size_t place = 0;
            for (const GattService& offered : station.device->services()) {
                const auto service = std::make_shared<Service>();
                service->uuid = offered.uuid;
                service->place = place++;
                if (isWanted(wanted, offered.uuid)) found.push_back(service);
            }
            self.later([peripheral = self.shared_from_this(), link = self.link_,
                        found = std::move(found)] { peripheral->hearServices(link, found); },
                       station.lateness());
        });
}

void Peripheral::hearServices(std::uint64_t link, std::vector<ServiceRef> found) {
    if (link != link_) return;
    // What is known of a service stays known, for the values that come meanwhile.
    for (ServiceRef& service : found) {
        for (const ServiceRef& old : services_.value_or(std::vector<ServiceRef>{})) {
            if (placeOf(*old) != placeOf(*service)) continue;
            const auto known = std::make_shared<Service>(static_cast<const Service&>(*service));
            known->characteristics = old->characteristics;
            service = known;
        }
    }
    services_ = std::move(found);
    tell([self = shared_from_this()](CBPeripheralDelegate& delegate) {
        delegate.didDiscoverServices(self, nullptr);
    });
}

void Peripheral::discoverCharacteristics(std::span<const CBUUID> wanted, const CBService& service) {
    station_.request(*this, [wanted = std::vector(wanted.begin(), wanted.end()),
                             place = placeOf(service)](Station& station, Peripheral& self) {
        const std::vector<GattService> offered = station.device->services();
        if (place >= offered.size()) return;
        std::vector<CharacteristicRef> found;
        for (const GattCharacteristic& characteristic : offered[place].characteristics) {
            if (!isWanted(wanted, characteristic.uuid)) continue;
            found.push_back(std::make_shared<CBCharacteristic>(CBCharacteristic{characteristic.uuid}));
        }
        self.later([peripheral = self.shared_from_this(), link = self.link_, place,
                    found = std::move(found)] { peripheral->hearCharacteristics(link, place, found); },
                   station.lateness());
    });
}

void Peripheral::hearCharacteristics(std::uint64_t link, std::size_t place,
                                     std::vector<CharacteristicRef> found) {
    if (link != link_ || !services_) return;
    for (ServiceRef& service : *services_) {
        if (placeOf(*service) != place) continue;
        const auto discovered = std::make_shared<Service>(static_cast<const Service&>(*service));
        discovered->characteristics = std::move(found);
        service = discovered;
        tell([self = shared_from_this(), discovered](CBPeripheralDelegate& delegate) {
            delegate.didDiscoverCharacteristicsFor(self, discovered, nullptr);
        });
        return;
    }
}

// Values.

void Peripheral::setNotifyValue(bool enabled, const CBCharacteristic& characteristic) {
    station_.request(*this, [enabled, uuid = characteristic.uuid](Station& station, Peripheral& self) {
        station.subscribe(self, uuid, enabled);
    });
}

void Peripheral::writeValue(Bytes value, const CBCharacteristic& characteristic,
                            CBCharacteristicWriteType type) {
    station_.request(*this, [value = std::vector(value.begin(), value.end()), uuid = characteristic.uuid,
                             type](Station& station, Peripheral&) { station.write(uuid, value, type); });
}

void Peripheral::valueCame(const CBUUID& characteristic, SharedValue value) {
    later([self = shared_from_this(), characteristic,
           value = std::move(value)] { self->hearValue(characteristic, value); },
          station_.lateness());
}

void Peripheral::hearValue(const CBUUID& uuid, const SharedValue& value) {
    const CharacteristicRef characteristic = find(uuid);
    if (!characteristic) return;
    tell([self = shared_from_this(), characteristic, value](CBPeripheralDelegate& delegate) {
        delegate.didUpdateValueFor(self, characteristic, Bytes(*value), nullptr);
    });
}

CharacteristicRef Peripheral::find(const CBUUID& uuid) const {
    if (!services_) return nullptr;
    for (const ServiceRef& service : *services_) {
        if (!service->characteristics) continue;
        for (const CharacteristicRef& characteristic : *service->characteristics) {
            if (characteristic->uuid == uuid) return characteristic;
        }
    }
    return nullptr;
}

}  // namespace corvane::simulated
