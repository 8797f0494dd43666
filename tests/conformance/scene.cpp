#include "tests/conformance/scene.h"

#include <algorithm>

namespace corvane::conformance {

using Kind = Event::Kind;

std::size_t Client::count(Kind kind) const {
    return static_cast<std::size_t>(
        std::count_if(events.begin(), events.end(), [&](const Event& event) { return event.kind == kind; }));
}

const Event* Client::last(Kind kind) const {
    const auto found =
        std::find_if(events.rbegin(), events.rend(), [&](const Event& event) { return event.kind == kind; });
    return found == events.rend() ? nullptr : &*found;
}

std::vector<Value> Client::values() const {
    std::vector<Value> all;
    for (const Event& event : events) {
        if (event.kind == Kind::value) all.push_back(event.value.value_or(Value{}));
    }
    return all;
}

void Client::proceed(const Event& event) {
    const auto& peripheral = event.peripheral;
    switch (event.kind) {
    case Kind::state:
        return central->scanForPeripherals();
    case Kind::discovered:
        peripheral->setDelegate(weak_from_this());
        central->connect(peripheral);
        return central->stopScan();
    case Kind::connected:
        return peripheral->discoverServices({});
    case Kind::services:
        if (const auto found = peripheral->services(); found && !found->empty()) {
            peripheral->discoverCharacteristics({}, *found->front());
        }
        return;
    case Kind::characteristics:
        if (const auto& found = event.service->characteristics; found && !found->empty()) {
            peripheral->setNotifyValue(true, *found->front());
        }
        return;
    case Kind::value:
        return central->cancelPeripheralConnection(peripheral);
    case Kind::disconnected:
        return;
    }
}

void Client::hear(Event event) {
    heardWhileAsking |= asking;
    nested |= hearing_;
    event.state = central ? central->state() : CBManagerState::unknown;
    const auto handler = onEvent;
    if (!handler) return events.push_back(std::move(event));
    const auto self = weak_from_this();  // The handler may let go of this object.
    hearing_ = true;
    handler(std::move(event));
    if (!self.expired()) hearing_ = false;
}

void Client::didUpdateState() { hear({.kind = Kind::state}); }
void Client::didDiscover(const PeripheralRef& peripheral) {
    hear({.kind = Kind::discovered, .peripheral = peripheral});
}
void Client::didConnect(const PeripheralRef& peripheral) {
    hear({.kind = Kind::connected, .peripheral = peripheral});
}
void Client::didDisconnectPeripheral(const PeripheralRef& peripheral, const CBError* error) {
    hear({.kind = Kind::disconnected, .peripheral = peripheral, .error = error != nullptr});
}
void Client::didDiscoverServices(const PeripheralRef& peripheral, const CBError* error) {
    hear({.kind = Kind::services, .peripheral = peripheral, .error = error != nullptr});
}
void Client::didDiscoverCharacteristicsFor(const PeripheralRef& peripheral, const ServiceRef& service,
                                           const CBError* error) {
    hear({.kind = Kind::characteristics,
          .peripheral = peripheral,
          .service = service,
          .error = error != nullptr});
}
void Client::didUpdateValueFor(const PeripheralRef& peripheral, const CharacteristicRef& characteristic,
                               std::optional<Bytes> value, const CBError* error) {
    hear({.kind = Kind::value,
          .peripheral = peripheral,
          .characteristic = characteristic,
          .value = value ? std::optional(Value(value->begin(), value->end())) : std::nullopt,
          .error = error != nullptr});
}

std::vector<GattService> Sample::services() const {
    return {{service,
             {{notified, gatt::notify},
              {indicated, gatt::indicate},
              {writable, gatt::write | gatt::writeWithoutResponse}}},
            {otherService, {{otherCharacteristic, gatt::notify}}}};
}

template <class Call>
void Sample::note(std::string what, Call call) {
    nested |= busy_;
    busy_ = true;
    told.push_back(std::move(what));
    const auto self = weak_from_this();  // The call may let go of this object.
    call();
    if (!self.expired()) busy_ = false;
}

void Sample::connected(PeripheralHost& newHost) {
    note("connected", [&] {
        host = &newHost;
        ++links;
        if (const auto handler = onConnected) handler(*this);
    });
}

void Sample::disconnected() {
    note("disconnected", [&] {
        host = nullptr;
        isSubscribed = false;
    });
}

void Sample::subscribed(const CBUUID& characteristic, bool enabled) {
    note(enabled ? "subscribed" : "unsubscribed", [&] {
        if (characteristic == notified) isSubscribed = enabled;
        if (!enabled) return;
        ++subscriptions;
        if (const auto handler = onSubscribed) handler(*this);
    });
}

void Sample::written(const CBUUID&, Bytes value, CBCharacteristicWriteType type) {
    note("written", [&] { writes.push_back({Value(value.begin(), value.end()), type}); });
}

void Sample::send(std::initializer_list<std::uint8_t> value, const CBUUID& characteristic) {
    if (host) host->notify(characteristic, Value(value));
}

Scene::Scene(BackEnd& backEnd, Findings& findings) : backEnd(backEnd), findings(findings) {
    backEnd.add(device);
}

Scene::~Scene() {
    // The handlers refer to the check, which is over; and nothing may hold itself in a circle.
    device->onConnected = device->onSubscribed = nullptr;
    if (client) {
        client->onEvent = nullptr;
        client->central = nullptr;
        client->events.clear();
    }
    backEnd.remove(*device);
    backEnd.settle();
}

void Scene::makeCentral() {
    ask([&] { client->central = backEnd.platform().makeCentralManager(client); });
}

void Scene::waitFor(const std::function<bool()>& done, std::string_view what) {
    if (!done() && !backEnd.runUntil(done))
        findings.require(false, "waited in vain for " + std::string(what));
}

void Scene::waitForOneMore(Kind kind, std::size_t before) {
    constexpr std::string_view names[] = {"a state event",   "a discovery", "a connection",   "services",
                                          "characteristics", "a value",     "a disconnection"};
    waitFor([&] { return client->count(kind) > before; }, names[static_cast<std::size_t>(kind)]);
}

void Scene::scan() {
    const std::size_t before = client->count(Kind::discovered);
    ask([&] { client->central->scanForPeripherals(); });
    waitForOneMore(Kind::discovered, before);
}

void Scene::discoverServices(std::span<const CBUUID> wanted) {
    const std::size_t before = client->count(Kind::services);
    ask([&] { peripheral->discoverServices(wanted); });
    waitForOneMore(Kind::services, before);
}

void Scene::discoverCharacteristics(std::span<const CBUUID> wanted) {
    const std::size_t before = client->count(Kind::characteristics);
    const ServiceRef of = service();
    ask([&] { peripheral->discoverCharacteristics(wanted, *of); });
    waitForOneMore(Kind::characteristics, before);
}

void Scene::reach(Kind kind) {
    if (!client->central) {
        makeCentral();
        waitForOneMore(Kind::state, 0);
    }
    if (kind == Kind::state) return;
    if (!peripheral) {
        scan();
        peripheral = client->last(Kind::discovered)->peripheral;
        peripheral->setDelegate(client);
        ask([&] { client->central->stopScan(); });
    }
    if (kind == Kind::discovered) return;
    const std::size_t connections = client->count(Kind::connected);
    ask([&] { client->central->connect(peripheral); });
    waitForOneMore(Kind::connected, connections);
    if (kind == Kind::connected) return;
    discoverServices();
    if (kind == Kind::services) return;
    discoverCharacteristics();
    if (kind == Kind::characteristics) return;
    subscribe();
    device->send({1});
    waitForOneMore(Kind::value, 0);
    if (kind == Kind::value) return;
    cancel();
}

void Scene::subscribe(bool enabled) {
    ask([&] { peripheral->setNotifyValue(enabled, *characteristic()); });
    waitFor([&] { return device->isSubscribed == enabled; }, "the device to see the subscription");
}

void Scene::write(std::initializer_list<std::uint8_t> value, CBCharacteristicWriteType type) {
    written_.emplace_back(value);
    ask([&] { peripheral->writeValue(written_.back(), *characteristic(Sample::writable), type); });
}

void Scene::cancel() {
    const std::size_t before = client->count(Kind::disconnected);
    ask([&] { client->central->cancelPeripheralConnection(peripheral); });
    waitForOneMore(Kind::disconnected, before);
}

std::vector<ServiceRef> Scene::services() const {
    const auto list = peripheral->services();
    findings.require(list.has_value(), "services were discovered");
    return *list;
}

ServiceRef Scene::service() const {
    ServiceRef wanted;
    for (const ServiceRef& service : services()) {
        if (service->uuid == Sample::service) wanted = service;
    }
    findings.require(wanted != nullptr, "the service is in the list");
    return wanted;
}

std::vector<CharacteristicRef> Scene::characteristics() const {
    const Event* snapshot = client->last(Kind::characteristics);
    findings.require(snapshot && snapshot->service->characteristics, "characteristics were discovered");
    return *snapshot->service->characteristics;
}

CharacteristicRef Scene::characteristic(const CBUUID& uuid) const {
    CharacteristicRef wanted;
    for (const CharacteristicRef& found : characteristics()) {
        if (found->uuid == uuid) wanted = found;
    }
    findings.require(wanted != nullptr, "the characteristic is in the list");
    return wanted;
}

}  // namespace corvane::conformance
