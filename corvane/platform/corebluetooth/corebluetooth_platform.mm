// The back end on CoreBluetooth.
//
// Everything happens on the main queue: the native manager is made without a queue of its own, so its events
// come there, and drivers call from there. An event is taken by `CRVNCentralEvents`, which knows its central
// weakly; whoever lets go of the central hears nothing more. The native stack holds neither delegates nor
// peripherals, so the central keeps both.
//
// The platform's own classes are written with a leading `::`, as ours have the same names.
#import <CoreBluetooth/CoreBluetooth.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "corvane/platform/corebluetooth/corebluetooth_platform.h"

#if !__has_feature(objc_arc)
#error "compile this file with -fobjc-arc"
#endif

namespace corvane {
namespace {
class Central;
}
}  // namespace corvane

/// Hands the native stack's events to the central, for as long as there is one. Class names are shared by the
/// whole process, hence the prefix.
@interface CRVNCentralEvents : NSObject <CBCentralManagerDelegate, CBPeripheralDelegate>
- (instancetype)initWithCentral:(std::weak_ptr<corvane::Central>)central;
@end

namespace corvane {
namespace {

template <class Ours, class Native>
constexpr bool same(Ours ours, Native native) {
    return static_cast<NSInteger>(ours) == static_cast<NSInteger>(native);
}
static_assert(same(CBManagerState::unknown, CBManagerStateUnknown));
static_assert(same(CBManagerState::resetting, CBManagerStateResetting));
static_assert(same(CBManagerState::unsupported, CBManagerStateUnsupported));
static_assert(same(CBManagerState::unauthorized, CBManagerStateUnauthorized));
static_assert(same(CBManagerState::poweredOff, CBManagerStatePoweredOff));
static_assert(same(CBManagerState::poweredOn, CBManagerStatePoweredOn));
static_assert(same(CBCharacteristicWriteType::withResponse, CBCharacteristicWriteWithResponse));
static_assert(same(CBCharacteristicWriteType::withoutResponse, CBCharacteristicWriteWithoutResponse));

/// A state that a later system adds is one that we do not know.
CBManagerState stateOf(::CBManagerState native) {
    const bool known = native >= CBManagerStateUnknown && native <= CBManagerStatePoweredOn;
    return known ? static_cast<CBManagerState>(native) : CBManagerState::unknown;
}

/// By its bytes, as a C string would end at a NUL that a neighbour put into its name. Half a surrogate pair,
/// which has no UTF-8, is replaced.
std::string text(NSString* string) {
    NSData* utf8 = [string dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:YES];
    return std::string(static_cast<const char*>(utf8.bytes), utf8.length);
}

std::optional<CBError> failure(NSError* error) {
    return error ? std::optional(CBError{text(error.localizedDescription)}) : std::nullopt;
}

const CBError* pointerTo(const std::optional<CBError>& error) { return error ? &*error : nullptr; }

CBUUID uuidOf(::CBAttribute* attribute) {
    return CBUUID::parse(text(attribute.UUID.UUIDString)).value_or(CBUUID());
}

/// Nil where nothing in particular is wanted: an empty array would find nothing.
NSArray<::CBUUID*>* filter(std::span<const CBUUID> wanted) {
    if (wanted.empty()) return nil;
    NSMutableArray<::CBUUID*>* list = [NSMutableArray array];
    for (const CBUUID& uuid : wanted) {
        // A full-length text, always: the system raises an exception on what is no UUID.
        [list addObject:[::CBUUID UUIDWithString:@(uuid.uuidString().c_str())]];
    }
    return list;
}

// What runs in here may let go of its owner, so callers hold what they need afterwards. An exception ends
// here, with the process: the system's frames below cannot be unwound.
template <class Delegate, class Event>
void tell(const std::weak_ptr<Delegate>& delegate, Event event) noexcept {
    if (const std::shared_ptr<Delegate> alive = delegate.lock()) event(*alive);
}

void run(const std::function<void()>& task) noexcept { task(); }

/// How long to wait before an attempt that the system gave up is made again.
std::chrono::seconds pauseAfter(unsigned failures) {
    constexpr std::chrono::seconds longest(60);
    constexpr unsigned doublings = 6;
    return std::min(longest, std::chrono::seconds(1 << std::min(failures - 1, doublings)));
}

struct Characteristic final : CBCharacteristic {
    ::CBCharacteristic* handle = nil;
    ::CBService* service = nil;
};

struct Service final : CBService {
    ::CBService* handle = nil;
};

CharacteristicRef snapshot(::CBCharacteristic* handle, ::CBService* service) {
    auto characteristic = std::make_shared<Characteristic>();
    characteristic->uuid = uuidOf(handle);
    characteristic->handle = handle;
    characteristic->service = service;
    return characteristic;
}

ServiceRef snapshot(::CBService* handle) {
    auto service = std::make_shared<Service>();
    service->uuid = uuidOf(handle);
    service->handle = handle;
    NSArray<::CBCharacteristic*>* characteristics = handle.characteristics;
    if (characteristics) service->characteristics.emplace();
    for (::CBCharacteristic* characteristic in characteristics) {
        service->characteristics->push_back(snapshot(characteristic, handle));
    }
    return service;
}

::CBService* handleOf(const CBService& service) { return static_cast<const Service&>(service).handle; }
::CBCharacteristic* handleOf(const CBCharacteristic& characteristic) {
    return static_cast<const Characteristic&>(characteristic).handle;
}

class Peripheral final : public CBPeripheral {
public:
    Peripheral(std::string identifier, ::CBPeripheral* handle, CRVNCentralEvents* events)
        : identifier_(std::move(identifier)) {
        adopt(handle, events);
    }
    ~Peripheral() override { release(); }

    /// Nothing where the system gives nothing; an empty name is a name.
    std::optional<std::string> name() const override {
        NSString* name = handle_.name;
        return name ? std::optional(text(name)) : std::nullopt;
    }
    const std::string& identifier() const override { return identifier_; }
    void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override {
        delegate_ = std::move(delegate);
    }
    std::optional<std::vector<ServiceRef>> services() const override { return services_; }

    void discoverServices(std::span<const CBUUID> wanted) override {
        if (isLinked()) [handle_ discoverServices:filter(wanted)];
    }

    void discoverCharacteristics(std::span<const CBUUID> wanted, const CBService& service) override {
        if (isUsable(handleOf(service))) {
            [handle_ discoverCharacteristics:filter(wanted) forService:handleOf(service)];
        }
    }

    void setNotifyValue(bool enabled, const CBCharacteristic& characteristic) override {
        if (isUsable(characteristic)) {
            [handle_ setNotifyValue:enabled forCharacteristic:handleOf(characteristic)];
        }
    }

    void writeValue(Bytes value, const CBCharacteristic& characteristic,
                    CBCharacteristicWriteType type) override {
        if (!isUsable(characteristic)) return;
        [handle_ writeValue:[NSData dataWithBytes:value.data() length:value.size()]
            forCharacteristic:handleOf(characteristic)
                         type:static_cast<::CBCharacteristicWriteType>(type)];
    }

    ::CBPeripheral* handle() const { return handle_; }
    const std::weak_ptr<CBPeripheralDelegate>& delegate() const { return delegate_; }

    /// The system may come to show a device by another object than before.
    void adopt(::CBPeripheral* handle, CRVNCentralEvents* events) {
        release();
        handle_ = handle;
        events_ = events;
        handle_.delegate = events;
    }

    /// Nothing more comes from the handle, and nothing goes to it.
    void release() {
        if (handle_.delegate == events_) handle_.delegate = nil;
        events_ = nil;
        linkEnded();
    }

    void linkStands() {
        linked_ = true;
        failures = 0;
        refused_.clear();
    }
    /// This side has asked for its end, which the handle need not show at once.
    void linkIsLeaving() { leaving_ = linked_; }
    bool linkEnded() {
        services_.reset();
        usable_.clear();
        leaving_ = false;
        return std::exchange(linked_, false);
    }
    bool isLinked() const { return linked_ && !leaving_ && handle_.state == CBPeripheralStateConnected; }
    /// The system does nothing for a link.
    bool isIdle() const { return handle_.state == CBPeripheralStateDisconnected; }
    /// Whether the end of a link is still to be reported.
    bool owesDisconnect() const { return linked_; }

    void servicesFound() {
        services_.reset();
        NSArray<::CBService*>* found = handle_.services;
        if (found) services_.emplace();
        for (::CBService* service in found) {
            services_->push_back(snapshot(service));
            if (!isListed(service)) usable_.push_back(service);
        }
    }

    /// The new snapshot; null for a service that is not in the list.
    ServiceRef characteristicsFound(::CBService* handle) {
        if (!services_) return nullptr;
        const auto known = std::find_if(services_->begin(), services_->end(), [&](const ServiceRef& service) {
            return handleOf(*service) == handle;
        });
        return known == services_->end() ? nullptr : *known = snapshot(handle);
    }

    void servicesGone(NSArray<::CBService*>* gone) {
        for (::CBService* service in gone) {
            std::erase(usable_, service);
            if (!services_) continue;
            std::erase_if(*services_, [&](const ServiceRef& known) { return handleOf(*known) == service; });
        }
    }

    /// Null where it is not in the list.
    CharacteristicRef find(::CBCharacteristic* handle) const {
        if (!services_) return nullptr;
        for (const ServiceRef& service : *services_) {
            if (!service->characteristics) continue;
            for (const CharacteristicRef& characteristic : *service->characteristics) {
                if (handleOf(*characteristic) == handle) return characteristic;
            }
        }
        return nullptr;
    }

    /// Whether it is the first time on this link: a driver that asks each second is refused each second.
    bool isRefusedFirst(const std::string& step) { return refused_.insert(step).second; }

    std::string refusal(const std::string& step, NSError* error) const {
        const std::optional<CBError> reason = failure(error);
        return '"' + name().value_or("-") + "\" (" + identifier_ + "): " + step + ": " +
               (reason ? reason->localizedDescription : "refused without a reason");
    }

    /// The driver wants a link and has none yet.
    bool attempting = false;
    std::uint64_t attempts = 0;  ///< Of which a pause knows the one that it follows.
    unsigned failures = 0;       ///< Of attempts since the last link.

    /// Whether the current scan has reported the device, and under which name.
    bool reported = false;
    std::optional<std::string> reportedName;

private:
    bool isListed(::CBService* service) const {
        return std::find(usable_.begin(), usable_.end(), service) != usable_.end();
    }
    bool isUsable(::CBService* service) const { return isLinked() && isListed(service); }
    bool isUsable(const CBCharacteristic& characteristic) const {
        return isUsable(static_cast<const Characteristic&>(characteristic).service);
    }

    const std::string identifier_;
    ::CBPeripheral* handle_ = nil;
    CRVNCentralEvents* events_ = nil;
    std::weak_ptr<CBPeripheralDelegate> delegate_;
    bool linked_ = false;
    bool leaving_ = false;
    std::optional<std::vector<ServiceRef>> services_;
    // Every service that was listed on this link and not withdrawn, as older snapshots stay in use.
    std::vector<::CBService*> usable_;
    std::set<std::string> refused_;  // steps, on this link
};

using KnownPeripheral = std::shared_ptr<Peripheral>;

class Central final : public CBCentralManager, public std::enable_shared_from_this<Central> {
public:
    Central(const Platform& platform, std::weak_ptr<CBCentralManagerDelegate> delegate)
        : platform_(platform), delegate_(std::move(delegate)) {}

    void open() {
        events_ = [[CRVNCentralEvents alloc] initWithCentral:weak_from_this()];
        manager_ = [[::CBCentralManager alloc] initWithDelegate:events_ queue:nil options:nil];
    }

    ~Central() override {
        if (manager_.delegate == events_) manager_.delegate = nil;
        stopScan();
        for (const auto& [identifier, peripheral] : peripherals_) {
            if (peripheral->attempting || peripheral->owesDisconnect())
                cancelPeripheralConnection(peripheral);
            peripheral->release();
        }
    }

    CBManagerState state() const override { return state_; }

    void scanForPeripherals() override {
        if (!isOn()) return;
        if (scanning_) [manager_ stopScan];
        scanning_ = true;
        forgetUnused();
        for (const auto& [identifier, peripheral] : peripherals_) peripheral->reported = false;
        [manager_ scanForPeripheralsWithServices:nil options:nil];
    }

    void stopScan() override {
        if (scanning_ && isOn()) [manager_ stopScan];
        scanning_ = false;
    }

    void connect(const PeripheralRef& peripheral) override {
        Peripheral& wanted = static_cast<Peripheral&>(*peripheral);
        if (!isOn() || wanted.isLinked()) return;
        wanted.attempting = true;
        attempt(wanted);
    }

    void cancelPeripheralConnection(const PeripheralRef& peripheral) override {
        Peripheral& unwanted = static_cast<Peripheral&>(*peripheral);
        // The state of a handle need not show an attempt at once.
        const bool busy = std::exchange(unwanted.attempting, false) || !unwanted.isIdle();
        if (!busy || !isOn()) return;
        unwanted.linkIsLeaving();
        [manager_ cancelPeripheralConnection:unwanted.handle()];
    }

    // Events. Whoever calls them holds the central.

    /// Ends what ended with the adapter, which may have been off and on again by now: then also what was
    /// asked for since, as an event does not say which change it is of. Returns the devices whose links are
    /// still to be reported.
    std::vector<KnownPeripheral> adapterChanged() {
        interrupted_ |= scanning_;
        stopScan();
        std::vector<KnownPeripheral> unlinked;
        for (const auto& [identifier, peripheral] : peripherals_) {
            const bool stands = manager_.state == CBManagerStatePoweredOn && peripheral->isLinked();
            if (peripheral->owesDisconnect() && !stands) unlinked.push_back(peripheral);
            if (!peripheral->attempting) continue;
            interrupted_ = true;
            cancelPeripheralConnection(peripheral);
        }
        interrupted_ |= !unlinked.empty();
        return unlinked;
    }

    /// A state that is as before is news to those who lost something to the change that they did not see.
    void reportState() {
        const CBManagerState before = std::exchange(state_, stateOf(manager_.state));
        if (!std::exchange(interrupted_, false) && state_ == before) return;
        tell(delegate_, [](CBCentralManagerDelegate& delegate) { delegate.didUpdateState(); });
    }

    void discovered(::CBPeripheral* handle) {
        if (!scanning_) return;
        report(deviceOf(handle));
    }

    void nameChanged(::CBPeripheral* handle) {
        const KnownPeripheral known = find(handle);
        if (known && scanning_ && known->reported) report(known);
    }

    void connected(::CBPeripheral* handle) {
        const KnownPeripheral known = find(handle);
        // A link that stood just before its attempt was cancelled is on its way out, though wanted again
        // perhaps.
        if (!known || !known->attempting || handle.state != CBPeripheralStateConnected) return;
        known->attempting = false;
        known->linkStands();
        tell(delegate_, [&](CBCentralManagerDelegate& delegate) { delegate.didConnect(known); });
    }

    /// The system gives up where we have promised to go on until cancelled. It may do so at once and every
    /// time, as with a device that has forgotten its pairing, which only the user can mend.
    void failedToConnect(::CBPeripheral* handle, NSError* error) {
        const KnownPeripheral known = find(handle);
        if (!known || !known->attempting) return;
        const std::chrono::seconds pause = pauseAfter(++known->failures);
        const std::uint64_t failed = known->attempts;
        const std::weak_ptr<Central> weak = weak_from_this();
        dispatch_after(dispatch_time(DISPATCH_TIME_NOW, std::chrono::nanoseconds(pause).count()),
                       dispatch_get_main_queue(), ^{
                         const auto self = weak.lock();
                         if (self && known->attempts == failed) self->attempt(*known);
                       });
        diagnose(known->refusal("connecting", error) + "; next attempt in " + std::to_string(pause.count()) +
                 " s");
    }

    void answered(::CBPeripheral* handle, const char* request, ::CBCharacteristic* of, NSError* error) {
        const KnownPeripheral known = find(handle);
        if (!known || !error) return;
        const std::string step = request + (' ' + uuidOf(of).uuidString());
        if (known->isRefusedFirst(step)) diagnose(known->refusal(step, error));
    }

    /// A link that ended with the adapter is told after the state, whose event is still on its way.
    void disconnected(::CBPeripheral* handle, NSError* error) {
        const KnownPeripheral known = find(handle);
        if (known && isOn()) endLink(known, failure(error));
    }

    void endLink(const KnownPeripheral& known, const std::optional<CBError>& error) {
        if (known->linkEnded()) {
            tell(delegate_, [&](CBCentralManagerDelegate& delegate) {
                delegate.didDisconnectPeripheral(known, pointerTo(error));
            });
        }
        // Wanted again while the old link, or attempt, was on its way out.
        attempt(*known);
    }

    void servicesFound(::CBPeripheral* handle, NSError* error) {
        const KnownPeripheral known = find(handle);
        if (!known || !known->isLinked()) return;
        known->servicesFound();
        tell(known->delegate(), [&](CBPeripheralDelegate& delegate) {
            delegate.didDiscoverServices(known, pointerTo(failure(error)));
        });
    }

    void servicesGone(::CBPeripheral* handle, NSArray<::CBService*>* gone) {
        if (const KnownPeripheral known = find(handle)) known->servicesGone(gone);
    }

    void characteristicsFound(::CBPeripheral* handle, ::CBService* of, NSError* error) {
        const KnownPeripheral known = find(handle);
        const ServiceRef service = known ? known->characteristicsFound(of) : nullptr;
        if (!service) return;
        tell(known->delegate(), [&](CBPeripheralDelegate& delegate) {
            delegate.didDiscoverCharacteristicsFor(known, service, pointerTo(failure(error)));
        });
    }

    void valueUpdated(::CBPeripheral* handle, ::CBCharacteristic* of, NSError* error) {
        const KnownPeripheral known = find(handle);
        const CharacteristicRef characteristic = known ? known->find(of) : nullptr;
        if (!characteristic) return;
        NSData* value = of.value;
        const auto* first = static_cast<const std::uint8_t*>(value.bytes);
        // A copy: the next value may overwrite this one before the event is over.
        const std::vector<std::uint8_t> bytes(first, first + value.length);
        tell(known->delegate(), [&](CBPeripheralDelegate& delegate) {
            delegate.didUpdateValueFor(known, characteristic,
                                       value ? std::optional(Bytes(bytes)) : std::nullopt,
                                       pointerTo(failure(error)));
        });
    }

private:
    /// The manager's state can be ahead of the event that tells of it.
    bool isOn() const {
        return state_ == CBManagerState::poweredOn && manager_.state == CBManagerStatePoweredOn;
    }

    /// An old link is to end first. After a reset of the system's Bluetooth the handle may be one of the
    /// past.
    void attempt(Peripheral& peripheral) {
        if (!peripheral.attempting || peripheral.owesDisconnect() || !isOn()) return;
        NSArray<NSUUID*>* identifiers = [NSArray arrayWithObject:peripheral.handle().identifier];
        ::CBPeripheral* current = [manager_ retrievePeripheralsWithIdentifiers:identifiers].firstObject;
        if (current && current != peripheral.handle()) peripheral.adopt(current, events_);
        ++peripheral.attempts;
        [manager_ connectPeripheral:peripheral.handle() options:nil];
    }

    /// The one object of the device, whichever object the system shows it by now. A link that stands keeps
    /// its own.
    KnownPeripheral deviceOf(::CBPeripheral* handle) {
        if (peripherals_.size() >= mostPeripherals_) {
            forgetUnused();
            mostPeripherals_ = std::max(fewPeripherals, 2 * peripherals_.size());
        }
        const std::string identifier = text(handle.identifier.UUIDString);
        KnownPeripheral& known = peripherals_[identifier];
        if (!known) known = std::make_shared<Peripheral>(identifier, handle, events_);
        if (known->handle() != handle && !known->owesDisconnect()) {
            known->adopt(handle, events_);
            attempt(*known);
        }
        return known;
    }

    /// Null for an object that no longer stands for its device.
    KnownPeripheral find(::CBPeripheral* handle) const {
        const auto known = peripherals_.find(text(handle.identifier.UUIDString));
        return known != peripherals_.end() && known->second->handle() == handle ? known->second : nullptr;
    }

    /// Devices with changing addresses would otherwise add up, also in the course of one scan. One that is
    /// forgotten may be reported again.
    void forgetUnused() {
        std::erase_if(peripherals_, [](const auto& entry) {
            const KnownPeripheral& known = entry.second;
            return known.use_count() == 1 && !known->attempting && !known->owesDisconnect() &&
                   known->isIdle();
        });
    }

    void report(const KnownPeripheral& known) {
        std::optional<std::string> name = known->name();
        if (std::exchange(known->reported, true) && known->reportedName == name) return;
        known->reportedName = std::move(name);
        tell(delegate_, [&](CBCentralManagerDelegate& delegate) { delegate.didDiscover(known); });
    }

    void diagnose(const std::string& line) const noexcept {
        if (platform_.diagnostics) platform_.diagnostics(line);
    }

    const Platform& platform_;
    const std::weak_ptr<CBCentralManagerDelegate> delegate_;
    CRVNCentralEvents* events_ = nil;
    ::CBCentralManager* manager_ = nil;
    CBManagerState state_ = CBManagerState::unknown;
    bool scanning_ = false;
    bool interrupted_ = false;  // by a change of the adapter that is still to be told
    static constexpr std::size_t fewPeripherals = 1024;
    std::size_t mostPeripherals_ = fewPeripherals;
    std::map<std::string, KnownPeripheral> peripherals_;  // by identifier
};

/// Links that end with the adapter come after its state. The system need not report them one by one, so we
/// do. Each step locks the central again, as the step before may have let it go.
void stateChanged(const std::weak_ptr<Central> central) {
    std::vector<KnownPeripheral> unlinked;
    if (const auto alive = central.lock()) unlinked = alive->adapterChanged();
    if (const auto alive = central.lock()) alive->reportState();
    for (const KnownPeripheral& peripheral : unlinked) {
        if (const auto alive = central.lock()) {
            alive->endLink(peripheral, CBError{"Bluetooth is not available."});
        }
    }
}

class MainTimer final : public Timer {
public:
    MainTimer(std::chrono::nanoseconds interval, std::function<void()> tick) {
        const auto shared = std::make_shared<const std::function<void()>>(std::move(tick));
        timer_ = [NSTimer timerWithTimeInterval:std::chrono::duration<double>(interval).count()
                                        repeats:YES
                                          block:^(NSTimer*) {
                                            // The tick may release this timer, and with it the block.
                                            const auto running = shared;
                                            run(*running);
                                          }];
        // In the common modes, or it stands still while a finger is on the screen.
        [NSRunLoop.mainRunLoop addTimer:timer_ forMode:NSRunLoopCommonModes];
    }
    ~MainTimer() override { [timer_ invalidate]; }

private:
    NSTimer* timer_;
};

class SystemMainQueue final : public MainQueue {
public:
    void post(std::function<void()> task) override {
        const std::weak_ptr<const bool> open = open_;
        const auto shared = std::make_shared<const std::function<void()>>(std::move(task));
        dispatch_async(dispatch_get_main_queue(), ^{
          if (!open.expired()) run(*shared);
        });
    }

    std::unique_ptr<Timer> scheduleTimer(std::chrono::nanoseconds interval,
                                         std::function<void()> tick) override {
        return std::make_unique<MainTimer>(interval, std::move(tick));
    }

private:
    const std::shared_ptr<const bool> open_ = std::make_shared<const bool>(true);
};

class CoreBluetoothPlatform final : public Platform {
public:
    std::shared_ptr<CBCentralManager>
    makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) override {
        auto central = std::make_shared<Central>(*this, std::move(delegate));
        central->open();
        return central;
    }
    MainQueue& mainQueue() override { return queue_; }

private:
    SystemMainQueue queue_;
};

}  // namespace

std::unique_ptr<Platform> makeCoreBluetoothPlatform() { return std::make_unique<CoreBluetoothPlatform>(); }

}  // namespace corvane

@implementation CRVNCentralEvents {
    std::weak_ptr<corvane::Central> _central;
}

- (instancetype)initWithCentral:(std::weak_ptr<corvane::Central>)central {
    if ((self = [super init])) _central = std::move(central);
    return self;
}

- (void)centralManagerDidUpdateState:(CBCentralManager*)manager {
    corvane::stateChanged(_central);
}

- (void)centralManager:(CBCentralManager*)manager
    didDiscoverPeripheral:(CBPeripheral*)peripheral
        advertisementData:(NSDictionary<NSString*, id>*)data
                     RSSI:(NSNumber*)rssi {
    if (const auto central = _central.lock()) central->discovered(peripheral);
}

- (void)centralManager:(CBCentralManager*)manager didConnectPeripheral:(CBPeripheral*)peripheral {
    if (const auto central = _central.lock()) central->connected(peripheral);
}

- (void)centralManager:(CBCentralManager*)manager
    didFailToConnectPeripheral:(CBPeripheral*)peripheral
                         error:(NSError*)error {
    if (const auto central = _central.lock()) central->failedToConnect(peripheral, error);
}

- (void)centralManager:(CBCentralManager*)manager
    didDisconnectPeripheral:(CBPeripheral*)peripheral
                      error:(NSError*)error {
    if (const auto central = _central.lock()) central->disconnected(peripheral, error);
}

- (void)peripheralDidUpdateName:(CBPeripheral*)peripheral {
    if (const auto central = _central.lock()) central->nameChanged(peripheral);
}

- (void)peripheral:(CBPeripheral*)peripheral didModifyServices:(NSArray<CBService*>*)gone {
    if (const auto central = _central.lock()) central->servicesGone(peripheral, gone);
}

- (void)peripheral:(CBPeripheral*)peripheral didDiscoverServices:(NSError*)error {
    if (const auto central = _central.lock()) central->servicesFound(peripheral, error);
}

- (void)peripheral:(CBPeripheral*)peripheral
    didDiscoverCharacteristicsForService:(CBService*)service
                                   error:(NSError*)error {
    if (const auto central = _central.lock()) central->characteristicsFound(peripheral, service, error);
}

- (void)peripheral:(CBPeripheral*)peripheral
    didUpdateNotificationStateForCharacteristic:(CBCharacteristic*)characteristic
                                          error:(NSError*)error {
    if (const auto central = _central.lock()) {
        central->answered(peripheral, "subscribing to", characteristic, error);
    }
}

- (void)peripheral:(CBPeripheral*)peripheral
    didWriteValueForCharacteristic:(CBCharacteristic*)characteristic
                             error:(NSError*)error {
    if (const auto central = _central.lock()) {
        central->answered(peripheral, "writing to", characteristic, error);
    }
}

- (void)peripheral:(CBPeripheral*)peripheral
    didUpdateValueForCharacteristic:(CBCharacteristic*)characteristic
                              error:(NSError*)error {
    if (const auto central = _central.lock()) central->valueUpdated(peripheral, characteristic, error);
}

@end
