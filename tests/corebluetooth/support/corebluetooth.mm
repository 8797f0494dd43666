#import <CoreBluetooth/CoreBluetooth.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <utility>

#include "corvane/framework/text_decoding.h"
#include "foundation_private.h"
#include "main_loop.h"
#include "radio.h"

using corvane::Bytes;
using standin::StackBehaviour;
using namespace std::chrono_literals;

namespace standin {
struct Station;
}

@interface CBUUID () {
@public
    corvane::CBUUID _uuid;
    NSString* _text;
}
@end

@interface CBPeer () {
@public
    NSUUID* _identifier;
}
@end

@interface CBAttribute () {
@public
    CBUUID* _uuid;
}
@end

@interface CBCharacteristic () {
@public
    unsigned _properties;
    NSData* _value;
    bool _notifying;
}
@end

@interface CBService () {
@public
    NSArray<CBCharacteristic*>* _characteristics;
    std::vector<CBCharacteristic*> _offered;
}
@end

@interface CBPeripheral () {
@public
    __weak CBCentralManager* _manager;
    std::shared_ptr<standin::Station> _station;
    NSString* _name;
    CBPeripheralState _state;
    bool _showsLink;  // after it was cancelled
    NSArray<CBService*>* _services;
    std::vector<CBService*> _offered;
}
- (void)later:(void (^)(id<CBPeripheralDelegate> delegate))event;
@end

@interface CBCentralManager () {
@public
    bool _opened, _scanning;
    CBManagerState _state;
    std::map<std::string, __weak CBPeripheral*> _peripherals;
    std::vector<std::string> _reported;
}
- (void)later:(void (^)(id<CBCentralManagerDelegate> delegate))event;
- (void)hear:(const std::shared_ptr<standin::Station>&)station;
- (void)tryToLink:(CBPeripheral*)peripheral;
- (void)end:(CBPeripheral*)peripheral error:(NSError*)error;
- (void)setState:(CBManagerState)state;
@end

namespace standin {

/// The device's end of a link; tasks and commands of a link that has ended find it closed.
struct Link final : corvane::PeripheralHost, std::enable_shared_from_this<Link> {
    explicit Link(Station& station) : station(station) {}
    void notify(const corvane::CBUUID& characteristic, Bytes value) override;
    void after(std::chrono::nanoseconds delay, std::function<void()> task) override;
    void disconnect() override;

    Station& station;
    bool open = true;
    std::vector<__weak CBPeripheral*> members;
};

struct Station : std::enable_shared_from_this<Station> {
    std::shared_ptr<corvane::PeripheralDevice> device;
    std::string identifier;
    std::optional<std::optional<std::string>> nameByTest;
    bool inReach = false;
    bool failsDiscovery = false;
    int failures = 0;
    radio::Refusals refusals;
    std::shared_ptr<Link> link;

    bool refusesLinks() const { return failures > 0 || refusals.connection; }

    /// As the system has it, which takes the bytes of an advert for text.
    NSString* name() const;
    void join(CBPeripheral* peripheral);
    /// Nil for one that is deallocated.
    void leave(CBPeripheral* peripheral);
    void close();
    void advertise();
    bool accepts() const { return inReach && (!link || link->open); }
};

namespace {

struct Radio {
    StackBehaviour behaviour;
    CBManagerState state = CBManagerStateUnknown;
    std::vector<std::shared_ptr<Station>> stations;
    std::vector<__weak CBCentralManager*> managers;
    std::vector<std::string> misuses;
    std::size_t operations = 0;
};

Radio& theRadio() {
    static auto* radio = new Radio;
    return *radio;
}

void misuse(std::string what) { theRadio().misuses.push_back(std::move(what)); }

NSString* string(std::string text) { return [[StoredString alloc] initWithBytes:std::move(text)]; }

NSError* error(std::string text) {
    return [NSError errorWithDomain:@"CBErrorDomain"
                               code:0
                           userInfo:@{NSLocalizedDescriptionKey : string(std::move(text))}];
}

NSError* linkLost() { return error("The specified device has disconnected from us."); }

std::vector<CBCentralManager*> managersAlive() {
    std::vector<CBCentralManager*> alive;
    for (const auto& manager : theRadio().managers) {
        if (CBCentralManager* strong = manager) alive.push_back(strong);
    }
    return alive;
}

std::shared_ptr<Station> find(const corvane::PeripheralDevice& device) {
    for (const auto& station : theRadio().stations) {
        if (station->device.get() == &device) return station;
    }
    return nullptr;
}

std::shared_ptr<Station> stationOf(const corvane::PeripheralDevice& device) {
    const auto station = find(device);
    if (!station) std::abort();  // the test never added it
    return station;
}

/// The peripherals by which managers know the device.
std::vector<CBPeripheral*> peripheralsOf(const Station& station) {
    std::vector<CBPeripheral*> known;
    for (CBCentralManager* manager : managersAlive()) {
        const auto entry = manager->_peripherals.find(station.identifier);
        if (entry == manager->_peripherals.end()) continue;
        if (CBPeripheral* peripheral = entry->second) known.push_back(peripheral);
    }
    return known;
}

/// Those that the manager does something for.
std::vector<CBPeripheral*> busyPeripheralsOf(CBCentralManager* manager) {
    std::vector<CBPeripheral*> busy;
    for (const auto& [identifier, known] : manager->_peripherals) {
        CBPeripheral* peripheral = known;
        if (peripheral && peripheral->_state != CBPeripheralStateDisconnected) busy.push_back(peripheral);
    }
    return busy;
}

/// Assigned numbers have short texts.
CBUUID* native(const corvane::CBUUID& uuid) {
    const std::string text = uuid.uuidString();
    const bool assigned = uuid == corvane::CBUUID::parse(text.substr(0, 8));
    if (!assigned) return [CBUUID UUIDWithString:string(text)];
    return [CBUUID UUIDWithString:string(text.starts_with("0000") ? text.substr(4, 4) : text.substr(0, 8))];
}

bool isWanted(NSArray<CBUUID*>* wanted, CBAttribute* attribute) {
    if (!wanted) return true;
    for (CBUUID* uuid in wanted) {
        if (uuid->_uuid == attribute.UUID->_uuid) return true;
    }
    return false;
}

template <class Attribute>
NSArray<Attribute*>* listOf(const std::vector<Attribute*>& offered, NSArray<CBUUID*>* wanted) {
    NSMutableArray<Attribute*>* list = [NSMutableArray array];
    for (Attribute* attribute : offered) {
        if (isWanted(wanted, attribute)) [list addObject:attribute];
    }
    return [list copy];
}

CBService* serviceObject(const corvane::GattService& offered) {
    CBService* service = [CBService new];
    service->_uuid = native(offered.uuid);
    for (const corvane::GattCharacteristic& of : offered.characteristics) {
        CBCharacteristic* characteristic = [CBCharacteristic new];
        characteristic->_uuid = native(of.uuid);
        characteristic->_properties = of.properties;
        service->_offered.push_back(characteristic);
    }
    return service;
}

CBCharacteristic* find(CBPeripheral* peripheral, const corvane::CBUUID& uuid) {
    for (CBService* service : peripheral->_offered) {
        for (CBCharacteristic* characteristic : service->_offered) {
            if (characteristic->_uuid->_uuid == uuid) return characteristic;
        }
    }
    return nil;
}

bool offers(CBPeripheral* peripheral, CBCharacteristic* characteristic) {
    return find(peripheral, characteristic->_uuid->_uuid) == characteristic;
}

/// What the system says to a request that needs one of the properties; nothing where it is not refused.
std::optional<std::string> refusal(CBCharacteristic* characteristic, unsigned properties,
                                   const std::optional<std::string>& chosen) {
    return characteristic->_properties & properties ? chosen : "The request is not supported.";
}

/// The bytes of a characteristic's value have one place, where each value is written over the one before.
void deliver(CBPeripheral* peripheral, CBCharacteristic* characteristic,
             std::optional<std::vector<std::uint8_t>> value, NSError* error) {
    [peripheral later:^(id<CBPeripheralDelegate> delegate) {
      if (!value) characteristic->_value = nil;
      if (value && !characteristic->_value) {
          characteristic->_value = [NSData dataWithBytes:nullptr length:0];
      }
      if (value) [characteristic->_value overwriteWith:*value];
      [delegate peripheral:peripheral didUpdateValueForCharacteristic:characteristic error:error];
    }];
}

}  // namespace

NSString* Station::name() const {
    if (nameByTest) return *nameByTest ? string(**nameByTest) : nil;
    const std::string bytes = device->name();
    if (bytes.empty()) return nil;
    std::string decoded;
    for (std::string_view rest = bytes; !rest.empty();) {
        const std::size_t length = corvane::utf8CharacterLength(rest);
        decoded += length ? rest.substr(0, length) : "\uFFFD";
        rest.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return string(decoded);
}

void Link::notify(const corvane::CBUUID& uuid, Bytes value) {
    const std::vector<std::uint8_t> copy(value.begin(), value.end());
    for (const auto& member : members) {
        CBPeripheral* peripheral = member;
        CBCharacteristic* characteristic = peripheral ? find(peripheral, uuid) : nil;
        if (characteristic && characteristic->_notifying) deliver(peripheral, characteristic, copy, nil);
    }
}

void Link::after(std::chrono::nanoseconds delay, std::function<void()> task) {
    mainLoop::after(delay, [self = shared_from_this(), task = std::move(task)] {
        if (self->open) task();
    });
}

void Link::disconnect() {
    after(0ns, [this] { radio::loseLink(*station.device); });
}

void Station::join(CBPeripheral* peripheral) {
    const bool first = !link;
    if (first) link = std::make_shared<Link>(*this);
    link->members.push_back(peripheral);
    for (const corvane::GattService& service : device->services()) {
        peripheral->_offered.push_back(serviceObject(service));
    }
    const auto held = device;
    if (first) held->connected(*link);
}

void Station::leave(CBPeripheral* peripheral) {
    if (peripheral) {
        peripheral->_services = nil;
        peripheral->_offered.clear();
    }
    if (!link || !link->open) return;
    std::erase_if(link->members, [&](const auto& member) { return member == peripheral || !member; });
    if (link->members.empty()) close();
}

/// The device hears of it later, and until then nobody can link to it.
void Station::close() {
    link->open = false;
    mainLoop::after(0ns, [self = shared_from_this()] {
        self->device->disconnected();
        self->link = nullptr;
        self->advertise();
    });
}

void Station::advertise() {
    if (!inReach) return;
    for (CBCentralManager* manager : managersAlive()) [manager hear:shared_from_this()];
    for (CBPeripheral* peripheral : peripheralsOf(*this)) [peripheral->_manager tryToLink:peripheral];
}

namespace radio {

void reset(StackBehaviour behaviour, corvane::CBManagerState state) {
    theRadio() = {};
    theRadio().behaviour = behaviour;
    theRadio().state = static_cast<CBManagerState>(state);
}

void setState(long state) {
    if (state == static_cast<long>(theRadio().state)) return;
    theRadio().state = static_cast<CBManagerState>(state);
    for (CBCentralManager* manager : managersAlive()) {
        if (manager->_opened) [manager setState:theRadio().state];
    }
}

void add(std::shared_ptr<Device> device) {
    auto station = find(*device);
    if (!station) {
        auto& stations = theRadio().stations;
        station = stations.emplace_back(std::make_shared<Station>());
        station->device = device;
        std::string number = std::to_string(stations.size());
        number.insert(0, 12 - number.size(), '0');
        station->identifier = "C0DE0000-0000-4000-8000-" + number;
    }
    station->inReach = true;
    station->advertise();
}

void remove(const Device& device) {
    const auto station = find(device);
    if (!station) return;
    station->inReach = false;
    loseLink(device);
}

void loseLink(const Device& device) {
    const auto station = stationOf(device);
    for (CBPeripheral* peripheral : peripheralsOf(*station)) {
        if (peripheral->_state == CBPeripheralStateConnected) {
            [peripheral->_manager end:peripheral error:linkLost()];
        }
    }
}

void failNextConnect(const Device& device) { ++stationOf(device)->failures; }
Refusals& refusals(const Device& device) { return stationOf(device)->refusals; }
void failDiscovery(const Device& device) { stationOf(device)->failsDiscovery = true; }
std::string identifier(const Device& device) { return stationOf(device)->identifier; }

void nameChanged(const Device& device) {
    const auto station = stationOf(device);
    for (CBPeripheral* peripheral : peripheralsOf(*station)) {
        peripheral->_name = station->name();
        if (id<CBPeripheralDelegate> delegate = peripheral.delegate) {
            mainLoop::after(0ns, [=] { [delegate peripheralDidUpdateName:peripheral]; });
        }
    }
}

void setName(const Device& device, std::optional<std::string> name) {
    stationOf(device)->nameByTest = std::move(name);
    nameChanged(device);
}

void changeService(const Device& device, const corvane::CBUUID& uuid) {
    for (CBPeripheral* peripheral : peripheralsOf(*stationOf(device))) {
        NSMutableArray<CBService*>* gone = [NSMutableArray array];
        for (auto& service : peripheral->_offered) {
            if (service->_uuid->_uuid != uuid) continue;
            [gone addObject:service];
            for (const auto& offered : device.services()) {
                if (offered.uuid == uuid) service = serviceObject(offered);
            }
        }
        NSMutableArray<CBService*>* kept = [NSMutableArray array];
        for (CBService* service in peripheral->_services) {
            if (service->_uuid->_uuid != uuid) [kept addObject:service];
        }
        peripheral->_services = [kept copy];
        [peripheral later:^(id<CBPeripheralDelegate> delegate) {
          [delegate peripheral:peripheral didModifyServices:gone];
        }];
    }
}

void sendValue(const Device& device, const corvane::CBUUID& uuid, std::optional<Bytes> value,
               std::optional<std::string> problem) {
    std::optional<std::vector<std::uint8_t>> copy;
    if (value) copy.emplace(value->begin(), value->end());
    for (CBPeripheral* peripheral : peripheralsOf(*stationOf(device))) {
        CBCharacteristic* characteristic = find(peripheral, uuid);
        if (characteristic) deliver(peripheral, characteristic, copy, problem ? error(*problem) : nil);
    }
}

std::size_t managers() { return managersAlive().size(); }

std::size_t scans() {
    const auto alive = managersAlive();
    return static_cast<std::size_t>(std::count_if(
        alive.begin(), alive.end(), [](CBCentralManager* manager) { return manager->_scanning; }));
}

std::size_t links() {
    std::size_t count = 0;
    for (CBCentralManager* manager : managersAlive()) {
        for (CBPeripheral* peripheral : busyPeripheralsOf(manager)) {
            count += peripheral->_state != CBPeripheralStateDisconnecting;
        }
    }
    return count;
}

std::size_t operations() { return theRadio().operations; }

std::vector<std::string> takeMisuses() { return std::exchange(theRadio().misuses, {}); }

}  // namespace radio
}  // namespace standin

using namespace standin;

@implementation CBUUID
+ (CBUUID*)UUIDWithString:(NSString*)text {
    const auto uuid = corvane::CBUUID::parse(text.bytes);
    if (!uuid) abort();  // an exception on the vendor's systems
    CBUUID* object = [CBUUID new];
    object->_uuid = *uuid;
    std::string upper(text.bytes);
    for (char& c : upper) c = static_cast<char>(toupper(c));
    object->_text = string(upper);
    return object;
}
- (NSString*)UUIDString {
    return _text;
}
@end

@implementation CBPeer
- (NSUUID*)identifier {
    return _identifier;
}
@end

@implementation CBAttribute
- (CBUUID*)UUID {
    return _uuid;
}
@end

@implementation CBCharacteristic
- (NSData*)value {
    return _value;
}
@end

@implementation CBService
- (NSArray<CBCharacteristic*>*)characteristics {
    return _characteristics;
}
@end

@implementation CBPeripheral
- (void)dealloc {
    if (self.delegate) misuse("a peripheral was let go while it had a delegate");
    if (_state == CBPeripheralStateDisconnected) return;
    if (_state != CBPeripheralStateDisconnecting) misuse("a peripheral was let go while it was in use");
    _station->leave(nil);
}
- (NSString*)name {
    return _name;
}
- (CBPeripheralState)state {
    if (_state == CBPeripheralStateDisconnecting && _showsLink) return CBPeripheralStateConnected;
    const bool underWay = _state == CBPeripheralStateConnecting && theRadio().behaviour.deliversLate;
    return underWay ? CBPeripheralStateDisconnected : _state;
}
- (NSArray<CBService*>*)services {
    return _services;
}
- (void)later:(void (^)(id<CBPeripheralDelegate>))event {
    const bool late = theRadio().behaviour.deliversLate;
    id<CBPeripheralDelegate> meant = late ? self.delegate : nil;
    mainLoop::after(0ns, [=] {
        if (!late && (self->_state != CBPeripheralStateConnected || !self->_manager)) return;
        if (id<CBPeripheralDelegate> delegate = late ? meant : self.delegate) event(delegate);
    });
}
- (BOOL)accepts:(const char*)command {
    ++theRadio().operations;
    if (_state != CBPeripheralStateConnected) {
        misuse(std::string(command) + " while not connected");
    } else if (!self.delegate) {
        misuse(std::string(command) + " without a delegate");
    }
    return _state == CBPeripheralStateConnected;
}
- (void)discoverServices:(NSArray<CBUUID*>*)wanted {
    if (![self accepts:"discoverServices"]) return;
    [self later:^(id<CBPeripheralDelegate> delegate) {
      const bool fails = self->_station->failsDiscovery;
      self->_services = fails ? nil : listOf(self->_offered, wanted);
      [delegate peripheral:self didDiscoverServices:fails ? error("Discovery failed.") : nil];
    }];
}
- (void)discoverCharacteristics:(NSArray<CBUUID*>*)wanted forService:(CBService*)service {
    if (![self accepts:"discoverCharacteristics"]) return;
    if (std::count(_offered.begin(), _offered.end(), service) == 0) return misuse("a service of the past");
    [self later:^(id<CBPeripheralDelegate> delegate) {
      const bool fails = self->_station->failsDiscovery;
      service->_characteristics = fails ? nil : listOf(service->_offered, wanted);
      [delegate peripheral:self
          didDiscoverCharacteristicsForService:service
                                         error:fails ? error("Discovery failed.") : nil];
    }];
}
/// Runs what a request does to the device, in the order of the requests, and then tells how it went. One that
/// is refused does nothing.
- (void)request:(const char*)command
             of:(CBCharacteristic*)characteristic
        refusal:(std::optional<std::string>)refusal
            run:(std::function<void(Station&)>)act
         answer:(std::function<void(id<CBPeripheralDelegate>, NSError*)>)answer {
    if (![self accepts:command]) return;
    if (!offers(self, characteristic))
        return misuse(std::string(command) + " on a characteristic of the past");
    mainLoop::after(0ns, [=] {
        if (self->_state == CBPeripheralStateConnected && !refusal) act(*self->_station);
    });
    [self later:^(id<CBPeripheralDelegate> delegate) {
      answer(delegate, refusal ? error(*refusal) : nil);
    }];
}
- (void)writeValue:(NSData*)data
    forCharacteristic:(CBCharacteristic*)characteristic
                 type:(CBCharacteristicWriteType)type {
    const bool answered = type == CBCharacteristicWriteWithResponse;
    const auto* first = static_cast<const std::uint8_t*>(data.bytes);
    const std::vector<std::uint8_t> copy(first, first + data.length);
    [self request:"writeValue"
        of:characteristic
        refusal:refusal(characteristic, answered ? corvane::gatt::write : corvane::gatt::writeWithoutResponse,
                        _station->refusals.write)
        run:[=](Station& station) {
            const auto held = station.device;
            held->written(characteristic->_uuid->_uuid, copy,
                          static_cast<corvane::CBCharacteristicWriteType>(type));
        }
        answer:[=](id<CBPeripheralDelegate> delegate, NSError* problem) {
            if (answered)
                [delegate peripheral:self didWriteValueForCharacteristic:characteristic error:problem];
        }];
}
- (void)setNotifyValue:(BOOL)enabled forCharacteristic:(CBCharacteristic*)characteristic {
    [self request:"setNotifyValue"
        of:characteristic
        refusal:refusal(characteristic, corvane::gatt::notify | corvane::gatt::indicate,
                        _station->refusals.subscription)
        run:[=](Station& station) {
            characteristic->_notifying = enabled;
            const auto held = station.device;
            held->subscribed(characteristic->_uuid->_uuid, enabled);
        }
        answer:[=](id<CBPeripheralDelegate> delegate, NSError* problem) {
            [delegate peripheral:self
                didUpdateNotificationStateForCharacteristic:characteristic
                                                      error:problem];
        }];
}
@end

@implementation CBManager
@dynamic state;
@end

@implementation CBCentralManager
- (instancetype)initWithDelegate:(id<CBCentralManagerDelegate>)delegate
                           queue:(dispatch_queue_t)queue
                         options:(NSDictionary<NSString*, id>*)options {
    if (!(self = [super init])) return nil;
    self.delegate = delegate;
    theRadio().managers.push_back(self);
    [self later:^(id<CBCentralManagerDelegate> alive) {
      self->_opened = true;
      self->_state = theRadio().state;
      [alive centralManagerDidUpdateState:self];
    }];
    return self;
}
- (void)dealloc {
    if (self.delegate) misuse("a manager was let go while it had a delegate");
    for (CBPeripheral* peripheral : busyPeripheralsOf(self)) {
        peripheral->_state = CBPeripheralStateDisconnected;
        peripheral->_station->leave(peripheral);
    }
}
- (CBManagerState)state {
    return _state;
}
- (void)later:(void (^)(id<CBCentralManagerDelegate>))event {
    const bool late = theRadio().behaviour.deliversLate;
    __weak CBCentralManager* weakSelf = self;  // an event does not keep the manager
    CBCentralManager* kept = late ? self : nil;
    id<CBCentralManagerDelegate> meant = late ? self.delegate : nil;
    mainLoop::after(0ns, [=] {
        CBCentralManager* alive = kept ?: weakSelf;
        if (!alive) return;
        if (id<CBCentralManagerDelegate> delegate = meant ?: alive.delegate) event(delegate);
    });
}
- (void)setState:(CBManagerState)state {
    const auto order = theRadio().behaviour.powerOff;
    std::vector<CBPeripheral*> ended;
    _state = state;
    if (state != CBManagerStatePoweredOn) {
        _scanning = false;
        ended = busyPeripheralsOf(self);
        for (CBPeripheral* peripheral : ended) {
            peripheral->_state = CBPeripheralStateDisconnected;
            peripheral->_station->leave(peripheral);
        }
        // From here on other objects stand for the devices.
        if (state < CBManagerStatePoweredOff) _peripherals.clear();
    }
    const auto reportLinks = ^{
      for (CBPeripheral* peripheral : ended) {
          [self later:^(id<CBCentralManagerDelegate> delegate) {
            [delegate centralManager:self didDisconnectPeripheral:peripheral error:linkLost()];
          }];
      }
    };
    if (order == StackBehaviour::PowerOff::linksBeforeState) reportLinks();
    [self later:^(id<CBCentralManagerDelegate> delegate) {
      [delegate centralManagerDidUpdateState:self];
    }];
    if (order == StackBehaviour::PowerOff::linksAfterState) reportLinks();
}
- (BOOL)accepts:(const char*)command {
    if (_state == CBManagerStatePoweredOn) return YES;
    misuse(std::string(command) + " while not powered on");
    return NO;
}
- (CBPeripheral*)peripheralOf:(const std::shared_ptr<Station>&)station {
    if (CBPeripheral* known = _peripherals[station->identifier]) return known;
    CBPeripheral* peripheral = [CBPeripheral new];
    peripheral->_identifier = [[NSUUID alloc] initWithUUIDString:string(station->identifier)];
    peripheral->_manager = self;
    peripheral->_station = station;
    _peripherals[station->identifier] = peripheral;
    return peripheral;
}
- (NSArray<CBPeripheral*>*)retrievePeripheralsWithIdentifiers:(NSArray<NSUUID*>*)identifiers {
    NSMutableArray<CBPeripheral*>* known = [NSMutableArray array];
    for (NSUUID* identifier in identifiers) {
        for (const auto& station : theRadio().stations) {
            if (identifier.UUIDString.bytes == station->identifier)
                [known addObject:[self peripheralOf:station]];
        }
    }
    return known;
}
- (void)scanForPeripheralsWithServices:(NSArray<CBUUID*>*)services
                               options:(NSDictionary<NSString*, id>*)options {
    ++theRadio().operations;
    if (![self accepts:"scan"]) return;
    if (services || options) misuse("a scan that does not report everything");
    if (std::exchange(_scanning, true)) return;
    _reported.clear();
    for (const auto& station : theRadio().stations) [self hear:station];
}
- (void)hear:(const std::shared_ptr<Station>&)station {
    const std::shared_ptr<Station> heard = station;
    [self later:^(id<CBCentralManagerDelegate> delegate) {
      const bool listens = self->_scanning || theRadio().behaviour.deliversLate;
      if (!listens || !heard->inReach || heard->link) return;
      if (std::count(self->_reported.begin(), self->_reported.end(), heard->identifier)) return;
      self->_reported.push_back(heard->identifier);
      CBPeripheral* peripheral = [self peripheralOf:heard];
      peripheral->_name = heard->name();
      for (int i = theRadio().behaviour.repeatsDiscoveries ? 2 : 1; i > 0; --i) {
          [delegate centralManager:self
              didDiscoverPeripheral:peripheral
                  advertisementData:[NSDictionary new]
                               RSSI:[NSNumber numberWithInt:-50]];
      }
    }];
}
- (void)stopScan {
    if ([self accepts:"stopScan"]) _scanning = false;
}
- (void)connectPeripheral:(CBPeripheral*)peripheral options:(NSDictionary<NSString*, id>*)options {
    ++theRadio().operations;
    if (![self accepts:"connect"]) return;
    if (peripheral->_manager != self) return misuse("connect to a peripheral of another manager");
    if (_peripherals[peripheral->_station->identifier] != peripheral)
        return misuse("connect to a stale peripheral");
    if (peripheral->_state != CBPeripheralStateDisconnected) return;
    peripheral->_state = CBPeripheralStateConnecting;
    [self tryToLink:peripheral];
}
/// An attempt never times out by itself: it waits for the device to come into reach.
- (void)tryToLink:(CBPeripheral*)peripheral {
    if (![self canLink:peripheral]) return;
    const bool early = theRadio().behaviour.deliversLate && !peripheral->_station->refusesLinks();
    if (early) [self link:peripheral];
    __weak CBPeripheral* weakPeripheral = peripheral;  // nobody but the application keeps it
    [self later:^(id<CBCentralManagerDelegate> delegate) {
      CBPeripheral* alive = weakPeripheral;
      if (!alive || (!early && ![self canLink:alive])) return;
      Station& station = *alive->_station;
      if (!early && station.refusesLinks()) {
          const std::string text = station.refusals.connection.value_or("Connecting failed.");
          station.failures -= station.failures > 0;
          alive->_state = CBPeripheralStateDisconnected;
          [delegate centralManager:self didFailToConnectPeripheral:alive error:error(text)];
          return;
      }
      if (!early) [self link:alive];
      [delegate centralManager:self didConnectPeripheral:alive];
    }];
}
- (BOOL)canLink:(CBPeripheral*)peripheral {
    return peripheral->_state == CBPeripheralStateConnecting && peripheral->_station->accepts();
}
- (void)link:(CBPeripheral*)peripheral {
    peripheral->_state = CBPeripheralStateConnected;
    peripheral->_station->join(peripheral);
}
- (void)end:(CBPeripheral*)peripheral error:(NSError*)problem {
    // A link that was lost is gone at once; one that is cancelled goes when the device has been told.
    if (problem) {
        peripheral->_state = CBPeripheralStateDisconnected;
        peripheral->_station->leave(peripheral);
    } else {
        peripheral->_showsLink =
            peripheral->_state == CBPeripheralStateConnected && theRadio().behaviour.showsLinksToTheirEnd;
        peripheral->_state = CBPeripheralStateDisconnecting;
    }
    [self later:^(id<CBCentralManagerDelegate> delegate) {
      if (peripheral->_state == CBPeripheralStateDisconnecting) {
          peripheral->_state = CBPeripheralStateDisconnected;
          peripheral->_station->leave(peripheral);
      }
      [delegate centralManager:self didDisconnectPeripheral:peripheral error:problem];
    }];
}
- (void)cancelPeripheralConnection:(CBPeripheral*)peripheral {
    if (![self accepts:"cancelPeripheralConnection"]) return;
    const bool busy =
        peripheral->_state == CBPeripheralStateConnected || peripheral->_state == CBPeripheralStateConnecting;
    if (busy) [self end:peripheral error:nil];
}
@end
