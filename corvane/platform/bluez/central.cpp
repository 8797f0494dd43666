#include "corvane/platform/bluez/central.h"

#include <algorithm>
#include <cstring>

namespace corvane::bluez {
namespace {

// The path is the handle; the session tells on which link it was found.
struct DiscoveredCharacteristic : CBCharacteristic {
    std::string path;
    std::weak_ptr<GattSession> session;
};

struct DiscoveredService : CBService {
    std::string path;
    std::weak_ptr<GattSession> session;
    std::size_t characteristicsThere = 0;  // When its characteristics were told, the unwanted ones too.
};

// So many are remembered without asking whether they are still there.
constexpr std::size_t fewAcquaintances = 1024;

bool isWanted(const std::vector<CBUUID>& wanted, const CBUUID& uuid) {
    return wanted.empty() || std::find(wanted.begin(), wanted.end(), uuid) != wanted.end();
}

}  // namespace

std::size_t Central::IdentifierHash::operator()(const CBUUID& identifier) const {
    std::size_t hash = 0;
    std::memcpy(&hash, identifier.bytes().data(), sizeof hash);
    return hash;
}

std::shared_ptr<Central> Central::make(const std::shared_ptr<Radio>& radio,
                                       std::weak_ptr<CBCentralManagerDelegate> delegate) {
    std::shared_ptr<Central> central(new Central(radio, std::move(delegate)));
    radio->add(*central);
    return central;
}

Central::Central(const std::shared_ptr<Radio>& radio, std::weak_ptr<CBCentralManagerDelegate> delegate)
    : radio_(radio), delegate_(std::move(delegate)), mostAcquaintances_(fewAcquaintances) {}

Central::~Central() {
    const auto radio = radio_.lock();
    if (!radio) return;
    radio->remove(*this);
    for (const auto& [identifier, acquaintance] : acquaintances_) {
        if (const auto peripheral = acquaintance.peripheral.lock()) peripheral->cancel(*radio);
    }
}

template <class Event>
void Central::deliver(Event event) {
    const auto radio = radio_.lock();
    if (!radio) return;
    radio->loop().post([weak = weak_from_this(), event = std::move(event)] {
        const auto central = weak.lock();
        const auto delegate = central ? central->delegate_.lock() : nullptr;
        if (delegate) event(*central, *delegate);
    });
}

void Central::radioIs(CBManagerState state) {
    if (state != CBManagerState::poweredOn) scanning_ = false;
    deliver([state](Central& central, CBCentralManagerDelegate& delegate) {
        if (std::exchange(central.state_, state) != state) delegate.didUpdateState();
    });
}

void Central::scanForPeripherals() {
    const auto radio = radio_.lock();
    if (!radio || radio->state() != CBManagerState::poweredOn) return;
    std::erase_if(acquaintances_, [](const auto& entry) { return entry.second.peripheral.expired(); });
    scanning_ = true;
    ++scan_;
    radio->scanStarted(*this);
}

void Central::stopScan() {
    if (!std::exchange(scanning_, false)) return;
    if (const auto radio = radio_.lock()) radio->scanStopped();
}

void Central::heard(const DeviceNode& device) {
    forgetStrangers();
    Acquaintance& acquaintance = acquaintances_[device.identifier];
    if (acquaintance.toldInScan == scan_ && acquaintance.toldName == device.name) return;
    acquaintance.toldInScan = scan_;
    acquaintance.toldName = device.name;
    deliver([scan = scan_, peripheral = acquaint(acquaintance, device)](Central& central,
                                                                        CBCentralManagerDelegate& delegate) {
        if (central.scanning_ && central.scan_ == scan) delegate.didDiscover(peripheral);
    });
}

// Neighbours that change their addresses are new ones each time. One that is forgotten may be told of again.
void Central::forgetStrangers() {
    if (acquaintances_.size() < mostAcquaintances_) return;
    std::erase_if(acquaintances_, [](const auto& entry) { return entry.second.peripheral.expired(); });
    mostAcquaintances_ = std::max(fewAcquaintances, 2 * acquaintances_.size());
}

// One object for one device, for as long as anybody can tell the difference.
std::shared_ptr<Peripheral> Central::acquaint(Acquaintance& acquaintance, const DeviceNode& device) {
    acquaintance.kept = acquaintance.peripheral.lock();
    if (acquaintance.kept) {
        acquaintance.kept->follow(device);
    } else {
        acquaintance.kept = std::make_shared<Peripheral>(radio_, weak_from_this(), device);
        acquaintance.peripheral = acquaintance.kept;
    }
    return acquaintance.kept;
}

void Central::vanished(const DeviceNode& device) {
    const auto found = acquaintances_.find(device.identifier);
    // That it was told of in this scan is kept.
    if (found != acquaintances_.end()) found->second.kept.reset();
}

Peripheral* Central::own(const PeripheralRef& peripheral) {
    const auto own = std::dynamic_pointer_cast<Peripheral>(peripheral);
    return own && own->belongsTo(*this) ? own.get() : nullptr;
}

void Central::connect(const PeripheralRef& peripheral) {
    const auto radio = radio_.lock();
    if (!radio || radio->state() != CBManagerState::poweredOn) return;
    if (Peripheral* wanted = own(peripheral)) wanted->connect(*radio);
}

void Central::cancelPeripheralConnection(const PeripheralRef& peripheral) {
    const auto radio = radio_.lock();
    if (!radio) return;
    if (Peripheral* left = own(peripheral)) left->cancel(*radio);
}

Peripheral::Peripheral(std::weak_ptr<Radio> radio, std::weak_ptr<Central> central, const DeviceNode& device)
    : radio_(std::move(radio)), central_(std::move(central)), identifier_(device.identifier),
      identifierText_(device.identifier.uuidString()), device_(device.path), name_(device.name) {}

std::optional<std::string> Peripheral::name() const {
    const auto radio = radio_.lock();
    const DeviceNode* node = radio ? radio->tree().device(device_) : nullptr;
    // Of a device that BlueZ has forgotten, the last name is as good as any.
    if (node && node->identifier == identifier_) name_ = node->name;
    return name_;
}

bool Peripheral::belongsTo(const Central& central) const { return central_.lock().get() == &central; }

void Peripheral::connect(Radio& radio) {
    if (std::exchange(wantsLink_, true)) return;
    // It may have been found on an adapter that is gone.
    device_ = radio.pathInUse(device_);
    radio.linkTo(device_).want(shared_from_this());
}

void Peripheral::cancel(Radio& radio) {
    if (!std::exchange(wantsLink_, false)) return;
    forgetLink();
    ++attempt_;
    if (Link* link = radio.findLink(device_)) link->leave(*this);
}

void Peripheral::forgetLink() {
    session_.reset();
    services_.reset();
    servicesAsked_.clear();
}

void Peripheral::linkStands(const std::shared_ptr<GattSession>& session) {
    forgetLink();
    session_ = session;
    const auto central = central_.lock();
    if (!central) return;
    // The end of the former link comes before the next one.
    if (const auto radio = radio_.lock()) radio->tellLossesNow();
    central->deliver([self = shared_from_this(), attempt = attempt_](Central&, auto& delegate) {
        // Cancelled by now, it is an attempt that ended without an event.
        if (self->attempt_ != attempt) return;
        self->told_ = true;
        delegate.didConnect(self);
    });
}

void Peripheral::linkEnded(const CBError* error) {
    // Without a session this one was cancelled already, and another may be wanted.
    if (error && session_) {
        wantsLink_ = false;
        forgetLink();
    }
    const auto radio = radio_.lock();
    if (!radio) return;
    auto tell = [self = shared_from_this(), reason = error ? std::optional(*error) : std::nullopt] {
        const auto central = self->central_.lock();
        if (!central) return;
        central->deliver([self, reason](Central&, auto& delegate) {
            if (std::exchange(self->told_, false))
                delegate.didDisconnectPeripheral(self, reason ? &*reason : nullptr);
        });
    };
    error ? radio->tellLoss(std::move(tell)) : tell();
}

void Peripheral::attemptEnded() { wantsLink_ = false; }

// Queues what is to be told about this link; with the link it is void.
template <class Event>
void Peripheral::deliver(Event event) {
    const auto central = central_.lock();
    if (!central) return;
    central->deliver([self = shared_from_this(), session = session_,
                      event = std::move(event)](Central&, CBCentralManagerDelegate&) {
        if (self->session_ == session) event(*self);
    });
}

Link* Peripheral::link() const {
    const auto radio = radio_.lock();
    Link* link = radio && session_ ? radio->findLink(device_) : nullptr;
    return link && link->session() == session_.get() ? link : nullptr;
}

void Peripheral::discoverServices(std::span<const CBUUID> wanted) {
    Link* const asked = link();
    if (!asked) return;
    servicesAsked_.emplace_back(wanted.begin(), wanted.end());
    asked->servicesAsked();
}

bool Peripheral::servicesResolved(bool last) {
    bool complete = true;
    for (auto& wanted : std::exchange(servicesAsked_, {})) {
        const bool offered = offers(wanted);
        complete = complete && offered;
        if (offered || last) {
            deliver([wanted = std::move(wanted)](Peripheral& self) { self.tellServices(wanted); });
        } else {
            servicesAsked_.push_back(std::move(wanted));
        }
    }
    return complete;
}

// BlueZ exports a service before its characteristics.
bool Peripheral::offers(const std::vector<CBUUID>& wanted) const {
    const auto radio = radio_.lock();
    if (!radio) return false;
    const auto services = radio->tree().services(device_);
    return std::any_of(services.begin(), services.end(), [&](const GattNode& service) {
        return isWanted(wanted, service.uuid) && !radio->tree().characteristics(service.path).empty();
    });
}

bool Peripheral::isOutdated() const {
    const auto radio = radio_.lock();
    if (!radio || !services_) return false;
    return std::any_of(services_->begin(), services_->end(), [&](const ServiceRef& service) {
        const auto& told = static_cast<const DiscoveredService&>(*service);
        return told.characteristics &&
               radio->tree().characteristics(told.path).size() > told.characteristicsThere;
    });
}

void Peripheral::tellServices(const std::vector<CBUUID>& wanted) {
    const auto radio = radio_.lock();
    if (!radio) return;
    const auto known =
        std::exchange(services_, std::vector<ServiceRef>()).value_or(std::vector<ServiceRef>());
    for (const GattNode& node : radio->tree().services(device_)) {
        if (!isWanted(wanted, node.uuid)) continue;
        DiscoveredService service;
        service.uuid = node.uuid;
        service.path = node.path;
        service.session = session_;
        // What is known of a service stays known, for the values that come meanwhile.
        for (const ServiceRef& old : known) {
            const auto& before = static_cast<const DiscoveredService&>(*old);
            if (before.path != node.path) continue;
            service.characteristics = before.characteristics;
            service.characteristicsThere = before.characteristicsThere;
        }
        services_->push_back(std::make_shared<const DiscoveredService>(std::move(service)));
    }
    if (const auto delegate = delegate_.lock()) delegate->didDiscoverServices(shared_from_this(), nullptr);
}

void Peripheral::discoverCharacteristics(std::span<const CBUUID> wanted, const CBService& service) {
    const auto& discovered = static_cast<const DiscoveredService&>(service);
    if (!isCurrent(discovered.session)) return;
    deliver([list = std::vector(wanted.begin(), wanted.end()), path = discovered.path](Peripheral& self) {
        self.tellCharacteristics(list, path);
    });
}

void Peripheral::tellCharacteristics(const std::vector<CBUUID>& wanted, const std::string& path) {
    const auto radio = radio_.lock();
    if (!radio || !services_) return;
    for (ServiceRef& listed : *services_) {
        const auto& before = static_cast<const DiscoveredService&>(*listed);
        if (before.path != path) continue;
        DiscoveredService service = before;
        service.characteristics.emplace();
        const auto nodes = radio->tree().characteristics(path);
        service.characteristicsThere = nodes.size();
        for (const GattNode& node : nodes) {
            if (!isWanted(wanted, node.uuid)) continue;
            DiscoveredCharacteristic characteristic;
            characteristic.uuid = node.uuid;
            characteristic.path = node.path;
            characteristic.session = session_;
            service.characteristics->push_back(
                std::make_shared<const DiscoveredCharacteristic>(std::move(characteristic)));
        }
        const ServiceRef told = listed = std::make_shared<const DiscoveredService>(std::move(service));
        if (Link* standing = link()) standing->characteristicsTold();
        if (const auto delegate = delegate_.lock())
            delegate->didDiscoverCharacteristicsFor(shared_from_this(), told, nullptr);
        return;
    }
}

void Peripheral::setNotifyValue(bool enabled, const CBCharacteristic& characteristic) {
    const auto& discovered = static_cast<const DiscoveredCharacteristic&>(characteristic);
    if (!isCurrent(discovered.session)) return;
    if (enabled) {
        session_->subscribe(discovered.path, shared_from_this());
    } else {
        session_->unsubscribe(discovered.path, *this);
    }
}

void Peripheral::writeValue(Bytes value, const CBCharacteristic& characteristic,
                            CBCharacteristicWriteType type) {
    const auto& discovered = static_cast<const DiscoveredCharacteristic&>(characteristic);
    if (!isCurrent(discovered.session)) return;
    session_->write(discovered.path, value, type);
}

void Peripheral::valueArrived(std::string_view path, Bytes value) {
    const CharacteristicRef characteristic = session_ ? findCharacteristic(path) : nullptr;
    const auto central = central_.lock();
    const auto delegate = delegate_.lock();
    if (characteristic && central && delegate)
        delegate->didUpdateValueFor(shared_from_this(), characteristic, value, nullptr);
}

CharacteristicRef Peripheral::findCharacteristic(std::string_view path) const {
    if (!services_) return nullptr;
    for (const ServiceRef& service : *services_) {
        if (!service->characteristics) continue;
        for (const CharacteristicRef& characteristic : *service->characteristics) {
            if (static_cast<const DiscoveredCharacteristic&>(*characteristic).path == path)
                return characteristic;
        }
    }
    return nullptr;
}

}  // namespace corvane::bluez
