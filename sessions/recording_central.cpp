#include "sessions/recording_central.h"

#include "corvane/framework/hexadecimal_text.h"

namespace corvane::sessions {
namespace {

void addError(Json& line, const CBError* error) {
    if (error) line["error"] = error->localizedDescription;
}

/// UUIDs in the order of the list; null where there is none.
template <class Ref>
Json uuidList(const std::optional<std::vector<Ref>>& list) {
    if (!list) return nullptr;
    Json uuids = Json::array();
    for (const Ref& element : *list) uuids.push_back(element->uuid.uuidString());
    return uuids;
}

RecordingPeripheral& recorded(const PeripheralRef& peripheral) {
    return static_cast<RecordingPeripheral&>(*peripheral);
}

}  // namespace

// What is found is shown to the driver under its place in the list, with the real handle behind it.

struct RecordingPeripheral::Characteristic : IndexedCharacteristic {
    CharacteristicRef inner;
};

struct RecordingPeripheral::Service : IndexedService {
    ServiceRef inner;
};

void RecordingPeripheral::setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) {
    delegate_ = std::move(delegate);
    if (delegate_.expired()) return inner_->setDelegate({});
    inner_->setDelegate(weak_from_this());
}

void RecordingPeripheral::discoverServices(std::span<const CBUUID> wanted) {
    platform_->trace().discoverServices(label_, wanted);
    inner_->discoverServices(wanted);
}

void RecordingPeripheral::discoverCharacteristics(std::span<const CBUUID> wanted, const CBService& service) {
    platform_->trace().discoverCharacteristics(label_, service, wanted);
    inner_->discoverCharacteristics(wanted, *static_cast<const Service&>(service).inner);
}

void RecordingPeripheral::setNotifyValue(bool enabled, const CBCharacteristic& characteristic) {
    platform_->trace().setNotify(label_, characteristic, enabled);
    inner_->setNotifyValue(enabled, *static_cast<const Characteristic&>(characteristic).inner);
}

void RecordingPeripheral::writeValue(Bytes value, const CBCharacteristic& characteristic,
                                     CBCharacteristicWriteType type) {
    platform_->trace().write(label_, characteristic, value, type);
    inner_->writeValue(value, *static_cast<const Characteristic&>(characteristic).inner, type);
}

void RecordingPeripheral::didDiscoverServices(const PeripheralRef& /*peripheral*/, const CBError* error) {
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    const auto found = inner_->services();
    Json line = eventLine("services");
    line["services"] = uuidList(found);
    addError(line, error);
    platform_->step(line, [&] {
        services_.reset();
        if (found) services_.emplace();
        for (const ServiceRef& inner : found.value_or(std::vector<ServiceRef>{})) {
            auto service = std::make_shared<Service>();
            service->uuid = inner->uuid;
            service->index = services_->size();
            service->inner = inner;
            services_->push_back(std::move(service));
        }
        delegate->didDiscoverServices(shared_from_this(), error);
    });
}

/// An event that comes late or twice may carry a service that is not in the list any more.
std::optional<std::size_t> RecordingPeripheral::placeOf(const ServiceRef& service) const {
    const auto real = inner_->services().value_or(std::vector<ServiceRef>{});
    const auto known = services_.value_or(std::vector<ServiceRef>{});
    for (std::size_t i = 0; i < std::min(real.size(), known.size()); ++i) {
        if (real[i] == service) return i;
    }
    for (std::size_t i = 0; i < known.size(); ++i) {
        if (known[i]->uuid == service->uuid) return i;
    }
    return std::nullopt;
}

void RecordingPeripheral::didDiscoverCharacteristicsFor(const PeripheralRef& /*peripheral*/,
                                                        const ServiceRef& found, const CBError* error) {
    const auto delegate = delegate_.lock();
    const auto place = placeOf(found);
    if (!delegate || !place) return;
    Json line = eventLine("characteristics");
    line["service"] = *place;
    line["characteristics"] = uuidList(found->characteristics);
    addError(line, error);
    platform_->step(line, [&] {
        auto service = std::make_shared<Service>();
        service->uuid = (*services_)[*place]->uuid;
        service->index = *place;
        service->inner = found;
        if (found->characteristics) service->characteristics.emplace();
        for (const CharacteristicRef& inner :
             found->characteristics.value_or(std::vector<CharacteristicRef>{})) {
            auto characteristic = std::make_shared<Characteristic>();
            characteristic->uuid = inner->uuid;
            characteristic->service = *place;
            characteristic->index = service->characteristics->size();
            characteristic->inner = inner;
            service->characteristics->push_back(std::move(characteristic));
        }
        (*services_)[*place] = service;
        delegate->didDiscoverCharacteristicsFor(shared_from_this(), service, error);
    });
    deliverEarlyValues();
}

/// The one with that handle; otherwise, after an event that came late or twice, one with that UUID.
CharacteristicRef RecordingPeripheral::wrapperOf(const CharacteristicRef& characteristic) const {
    CharacteristicRef sameUuid;
    for (const ServiceRef& service : services_.value_or(std::vector<ServiceRef>{})) {
        for (const CharacteristicRef& known :
             service->characteristics.value_or(std::vector<CharacteristicRef>{})) {
            if (static_cast<const Characteristic&>(*known).inner == characteristic) return known;
            if (!sameUuid && known->uuid == characteristic->uuid) sameUuid = known;
        }
    }
    return sameUuid;
}

void RecordingPeripheral::didUpdateValueFor(const PeripheralRef& /*peripheral*/,
                                            const CharacteristicRef& characteristic,
                                            std::optional<Bytes> value, const CBError* error) {
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    const CharacteristicRef from = wrapperOf(characteristic);
    if (!from) {
        EarlyValue& early = earlyValues_.emplace_back(EarlyValue{characteristic, {}, {}});
        if (value) early.value.emplace(value->begin(), value->end());
        if (error) early.error = *error;
        return;
    }
    Json line = eventLine("value");
    line["service"] = static_cast<const IndexedCharacteristic&>(*from).service;
    line["characteristic"] = static_cast<const IndexedCharacteristic&>(*from).index;
    line["value"] = value ? Json(hexadecimalText(*value)) : Json();
    addError(line, error);
    platform_->step(line, [&] { delegate->didUpdateValueFor(shared_from_this(), from, value, error); });
}

void RecordingPeripheral::deliverEarlyValues() {
    const auto self = shared_from_this();
    for (const EarlyValue& early : std::exchange(earlyValues_, {})) {
        const auto value = early.value ? std::optional<Bytes>(*early.value) : std::nullopt;
        didUpdateValueFor(inner_, early.characteristic, value, early.error ? &*early.error : nullptr);
    }
}

std::shared_ptr<CBCentralManager> RecordingCentral::make(std::shared_ptr<RecordingPlatform> platform,
                                                         Platform& inner,
                                                         std::weak_ptr<CBCentralManagerDelegate> delegate) {
    const auto central = std::make_shared<RecordingCentral>(std::move(platform), std::move(delegate));
    central->inner_ = inner.makeCentralManager(central);
    return central;
}

void RecordingCentral::scanForPeripherals() {
    platform_->trace().scan();
    inner_->scanForPeripherals();
}

void RecordingCentral::stopScan() {
    platform_->trace().stopScan();
    inner_->stopScan();
}

void RecordingCentral::connect(const PeripheralRef& peripheral) {
    platform_->trace().connect(recorded(peripheral).label());
    inner_->connect(recorded(peripheral).inner());
}

void RecordingCentral::cancelPeripheralConnection(const PeripheralRef& peripheral) {
    platform_->trace().cancelConnection(recorded(peripheral).label());
    inner_->cancelPeripheralConnection(recorded(peripheral).inner());
}

std::shared_ptr<RecordingPeripheral> RecordingCentral::wrapperOf(const PeripheralRef& peripheral) {
    auto& wrapper = peripherals_[peripheral.get()];
    if (!wrapper) {
        const std::string label = "p" + std::to_string(peripherals_.size());
        wrapper = std::make_shared<RecordingPeripheral>(platform_, peripheral, label);
    }
    return wrapper;
}

void RecordingCentral::didUpdateState() {
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    const CBManagerState state = inner_->state();
    platform_->step({{"event", "state"}, {"state", nameOf(state)}}, [&] {
        state_ = state;
        delegate->didUpdateState();
    });
}

void RecordingCentral::didDiscover(const PeripheralRef& peripheral) {
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    const auto wrapper = wrapperOf(peripheral);
    const auto name = peripheral->name();
    const Json line{{"event", "discovered"},
                    {"peripheral", wrapper->label()},
                    {"identifier", wrapper->identifier()},
                    {"name", name ? Json(*name) : Json()}};
    platform_->step(line, [&] {
        wrapper->rename(name);
        delegate->didDiscover(wrapper);
    });
}

void RecordingCentral::didConnect(const PeripheralRef& peripheral) {
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    const auto wrapper = wrapperOf(peripheral);
    wrapper->linkChanged();
    platform_->step({{"event", "connected"}, {"peripheral", wrapper->label()}},
                    [&] { delegate->didConnect(wrapper); });
}

void RecordingCentral::didDisconnectPeripheral(const PeripheralRef& peripheral, const CBError* error) {
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    const auto wrapper = wrapperOf(peripheral);
    wrapper->linkChanged();
    Json line{{"event", "disconnected"}, {"peripheral", wrapper->label()}};
    addError(line, error);
    platform_->step(line, [&] { delegate->didDisconnectPeripheral(wrapper, error); });
}

}  // namespace corvane::sessions
