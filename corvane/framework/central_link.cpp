#include "corvane/framework/central_link.h"

namespace corvane {
namespace {

/// Each startScan that runs inside another one takes a piece of the stack.
constexpr int deepestScan = 32;

/// Counts what runs inside one another, also where an application's exception ends it.
class Nested {
public:
    explicit Nested(int& depth) : depth_(++depth) {}
    ~Nested() { --depth_; }
    Nested(const Nested&) = delete;
    Nested& operator=(const Nested&) = delete;

private:
    int& depth_;
};

}  // namespace

// The application may destroy the handle inside any call, so each operation holds the session while it runs.
DeviceBase::DeviceBase(std::shared_ptr<CentralLink> session) : session_(std::move(session)) {
    session_->attach(*this);
}
DeviceBase::~DeviceBase() { session_->close(); }
void DeviceBase::startScan() { session()->startScan(); }
void DeviceBase::stopScan() { session()->stopScan(); }
void DeviceBase::disconnect() { session()->disconnect(); }

CentralLink::~CentralLink() = default;

void CentralLink::close() {
    owner_ = nullptr;
    timer_.reset();
    centralManager_.reset();
}

CBCentralManager& CentralLink::central() {
    if (!centralManager_) centralManager_ = platform_.makeCentralManager(weak_from_this());
    return *centralManager_;
}

void CentralLink::startScan() {
    const Nested running(scansRunning_);
    if (scansRunning_ > deepestScan) return nestedTooDeeply();
    scanBegins();
    // The application may let go in a hook that reports, too.
    if (!owner_) return;
    cancelStoredLink();
    const CBManagerState state = central().state();
    owner_->stateCentralManager(state);
    // The state may be another by now.
    if (owner_ && central().state() == CBManagerState::poweredOn) central().scanForPeripherals();
}

// The host's handler may call startScan, too: that one is dropped in silence.
void CentralLink::nestedTooDeeply() {
    if (scansRunning_ > deepestScan + 1) return;
    (void)require(
        false, "startScan was called from its own callbacks 32 deep; the driver scans by itself whenever the "
               "adapter is on, and a new search can be posted to the main queue");
}

void CentralLink::stopScan() { central().stopScan(); }

void CentralLink::disconnect() {
    disconnectRequested();
    cancelStoredLink();
}

void CentralLink::cancelStoredLink() {
    if (owner_ && peripheral) central().cancelPeripheralConnection(peripheral);
}

void CentralLink::subscribe(const PeripheralRef& on, const CharacteristicRef& to) {
    if (owner_ && on) on->setNotifyValue(true, *to);
}

void CentralLink::write(const PeripheralRef& on, const CharacteristicRef& to, Bytes value,
                        CBCharacteristicWriteType type) {
    if (owner_ && on) on->writeValue(value, *to, type);
}

void CentralLink::request(Bytes command) {
    if (!peripheral || !characteristic) return;
    subscribe(peripheral, characteristic);
    write(peripheral, characteristic, command);
}

void CentralLink::log(std::string_view line) {
    if (owner_) platform_.log(line);
}

void CentralLink::post(std::function<void()> task) {
    if (!owner_) return;
    platform_.mainQueue().post([weak = weak_from_this(), task = std::move(task)] {
        if (const auto self = weak.lock(); self && self->owner_) task();
    });
}

void CentralLink::every(std::chrono::nanoseconds interval, std::function<void()> tick) {
    if (!owner_) return;
    stopTimer();
    timer_ = platform_.mainQueue().scheduleTimer(interval, [weak = weak_from_this(), tick = std::move(tick)] {
        if (const auto self = weak.lock(); self && self->owner_) tick();
    });
}

bool CentralLink::require(bool holds, std::string_view what) {
    if (!holds && owner_) platform_.preconditionFailed(profile_.model.driver, what);
    return holds;
}

void CentralLink::didUpdateState() {
    if (owner_) startScan();
}

void CentralLink::didDiscover(const PeripheralRef& found) {
    const std::optional<std::string> name = found->name();
    log(name ? std::string_view(*name) : "-");
    if (!owner_ || !name || !profile_.model.recognises(*name)) return;
    found->setDelegate(weak_from_this());
    peripheral = found;
    central().connect(found);
    central().stopScan();
}

void CentralLink::didConnect(const PeripheralRef& to) {
    if (owner_) owner_->stateConnection(StateDeviceConnection::connect);
    if (owner_) to->discoverServices({&profile_.model.service, 1});
}

void CentralLink::didDiscoverServices(const PeripheralRef& from, const CBError* /*error*/) {
    if (!owner_) return;
    if (const auto services = from->services()) servicesFound(from, *services);
}

void CentralLink::servicesFound(const PeripheralRef& from, const std::vector<ServiceRef>& services) {
    for (const ServiceRef& service : services) {
        if (service->uuid != profile_.model.service) continue;
        from->discoverCharacteristics(wantedCharacteristics(), *service);
        if (!profile_.everyService) return;
    }
}

void CentralLink::didDiscoverCharacteristicsFor(const PeripheralRef& from, const ServiceRef& service,
                                                const CBError* /*error*/) {
    if (!service->characteristics) return;
    for (const CharacteristicRef& found : *service->characteristics) {
        if (owner_) characteristicFound(from, found);
    }
}

void CentralLink::characteristicFound(const PeripheralRef& from, const CharacteristicRef& found) {
    if (found->uuid != profile_.characteristic) return;
    peripheral = from;
    characteristic = found;
    post([this, found] { linkReady(found); });
}

void CentralLink::linkReady(const CharacteristicRef& found) {
    reportLoading();
    subscribe(peripheral, found);
}

void CentralLink::didUpdateValueFor(const PeripheralRef& from, const CharacteristicRef& of,
                                    std::optional<Bytes> value, const CBError* error) {
    if (!owner_) return;
    const After after = valueArrived({from, of, value});
    if (after == After::reportError && error) reportError(error->localizedDescription);
}

void CentralLink::didDisconnectPeripheral(const PeripheralRef& /*from*/, const CBError* /*error*/) {
    if (!owner_) return;
    linkEnded();
    if (owner_) owner_->stateConnection(StateDeviceConnection::disconnect);
}

}  // namespace corvane
