// A registration goes through these steps, each begun by the reply to the one before:
//
//   the service has an owner -> its objects hold the adapter, switched on
//     -> the Alias is set -> the GATT application is registered -> the advertisement is registered
//
// Links are told by the Connected property of the central's own object under the adapter. What the central
// does comes by calls to DeviceObjects.
#include "corvane/platform/bluez/bluez_peripheral.h"

#include <map>
#include <optional>
#include <set>

#include "corvane/platform/bluez/bluez_names.h"
#include "corvane/platform/bluez/bluez_service.h"
#include "corvane/platform/bluez/device_objects.h"

namespace corvane {

using namespace bluez;

namespace {

constexpr const char* gattManager = "org.bluez.GattManager1";
constexpr const char* advertisingManager = "org.bluez.LEAdvertisingManager1";
constexpr const char* properties = "org.freedesktop.DBus.Properties";

}  // namespace

class BlueZPeripheral::Registration final : public PeripheralHost,
                                            public ObjectTree::Observer,
                                            public DeviceObjects::Owner {
public:
    Registration(std::shared_ptr<PeripheralDevice> device, BlueZPeripheralOptions options)
        : device_(std::move(device)), options_(std::move(options)),
          adapterPath_("/org/bluez/" + options_.adapter),
          service_(
              options_.busAddress, loop_, *this, [this] { presenceChanged(); },
              [this](std::string_view line) { tell(line); }) {
        loop_.diagnostics = [this](std::string_view line) { tell(line); };
        service_.open();
        presenceChanged();
    }
    ~Registration();

    State state() const { return state_; }
    EventLoop& loop() { return loop_; }

private:
    // PeripheralHost
    void notify(const CBUUID& characteristic, Bytes value) override;
    void after(std::chrono::nanoseconds delay, std::function<void()> task) override;
    void disconnect() override;

    // ObjectTree::Observer
    void adaptersChanged() override { look(); }
    void deviceAppeared(DeviceNode& device) override { linkChanged(device); }
    void deviceChanged(DeviceNode& device, const ObjectTree::DeviceChange& /*change*/) override {
        linkChanged(device);
    }
    void deviceVanished(const DeviceNode& device) override { deviceLeft(device.path); }
    void valueChanged(std::string_view /*characteristic*/, Bytes /*value*/) override {}

    // DeviceObjects::Owner
    bool isFromService(sd_bus_message* call) const override { return service_.fromService(call); }
    void subscribed(const CBUUID& characteristic, bool enabled) override;
    void written(const CBUUID& characteristic, Bytes value, CBCharacteristicWriteType type) override;
    void advertisementReleased() override { giveUp(State::waiting, "BlueZ has withdrawn the advertisement"); }

    void presenceChanged();
    void look();
    void begin();
    void setAlias();
    void registerApplication();
    void registerAdvertisement();
    void refuse(std::string_view step, const Reply& reply);
    void giveUp(State state, std::string_view line);
    void withdraw();
    void lookForCentral();
    void linkChanged(const DeviceNode& device);
    void deviceLeft(const std::string& path);
    void linkEnded();
    void change(State state, std::string_view line);
    void tell(std::string_view line) {
        if (options_.onChange) options_.onChange(line);
    }
    void call(const Message& message, Bus::ReplyHandler handler) {
        pending_ = service_.call(message, std::move(handler));
    }
    Message newAliasCall(const std::string& alias);
    Message newManagerCall(const char* manager, const char* method, const char* path);
    void lookForCentralAmongAll();

    EventLoop loop_;
    const std::shared_ptr<PeripheralDevice> device_;
    const BlueZPeripheralOptions options_;
    const std::string adapterPath_;
    State state_ = State::waiting;
    std::string lastLine_;
    std::string central_;  // Path of the linked central; empty without a link.
    bool used_ = false;    // By the central, which shows that it is one.
    // Paths of what is linked to the adapter for other reasons: mice, headphones.
    std::set<std::string> strangers_;
    std::optional<std::string> formerAlias_;
    std::map<std::uint64_t, std::unique_ptr<Timer>> tasks_;
    std::uint64_t tasksMade_ = 0;
    BlueZService service_;
    std::unique_ptr<DeviceObjects> objects_;  // On the service's bus.
    Call pending_;                            // The one call whose reply is the next step.
};

BlueZPeripheral::Registration::~Registration() {
    // A central that stayed linked would find nothing any more.
    disconnect();
    giveUp(State::waiting, "withdrawn");
    if (formerAlias_) service_.send(newAliasCall(*formerAlias_));
}

void BlueZPeripheral::Registration::presenceChanged() {
    if (service_.presence() == BlueZService::Presence::present) return look();
    if (service_.presence() == BlueZService::Presence::refused)
        giveUp(State::refused, "the Bluetooth service may not be used from here");
    else if (service_.bus())
        giveUp(State::waiting, "waiting for the Bluetooth service");
    else
        giveUp(State::refused, "there is no system bus");
    objects_.reset();  // They belong to a connection that may be another one next time.
}

// Begins where the adapter is ready, and gives up what stands where it is not.
void BlueZPeripheral::Registration::look() {
    if (service_.presence() != BlueZService::Presence::present) return;
    const auto& adapters = service_.tree().adapters();
    const auto adapter = adapters.find(adapterPath_);
    if (adapter == adapters.end()) return giveUp(State::waiting, "waiting for " + options_.adapter);
    if (!adapter->second.powered) return giveUp(State::waiting, options_.adapter + " is off; waiting");
    if (state_ == State::waiting || state_ == State::refused) begin();
}

void BlueZPeripheral::Registration::begin() {
    change(State::registering, "registering on " + options_.adapter);
    objects_.reset();
    objects_ = std::make_unique<DeviceObjects>(service_.bus()->handle(), *device_, *this);
    strangers_.clear();
    service_.tree().forEachDevice(adapterPath_, [this](const DeviceNode& device) {
        if (device.connected) strangers_.insert(device.path);
    });
    if (formerAlias_) return setAlias();
    Message message = service_.newCall(adapterPath_, properties, "Get");
    message.append("ss", adapterInterface, "Alias");
    call(message, [this](const Reply& reply) {
        const char* alias = nullptr;
        if (reply.failed()) return refuse("asking for the adapter's name", reply);
        if (sd_bus_message_read(reply.message(), "v", "s", &alias) > 0) formerAlias_ = alias;
        setAlias();
    });
}

Message BlueZPeripheral::Registration::newAliasCall(const std::string& alias) {
    Message message = service_.newCall(adapterPath_, properties, "Set");
    message.append("ssv", adapterInterface, "Alias", "s", alias.c_str());
    return message;
}

Message BlueZPeripheral::Registration::newManagerCall(const char* manager, const char* method,
                                                      const char* path) {
    Message message = service_.newCall(adapterPath_, manager, method);
    message.append("o", path);
    return message;
}

void BlueZPeripheral::Registration::setAlias() {
    call(newAliasCall(device_->name()), [this](const Reply& reply) {
        if (reply.failed()) return refuse("setting the adapter's name", reply);
        registerApplication();
    });
}

void BlueZPeripheral::Registration::registerApplication() {
    Message message = newManagerCall(gattManager, "RegisterApplication", DeviceObjects::applicationPath);
    message.appendOptions();
    call(message, [this](const Reply& reply) {
        if (reply.failed()) return refuse("registering the services", reply);
        registerAdvertisement();
    });
}

void BlueZPeripheral::Registration::registerAdvertisement() {
    Message message =
        newManagerCall(advertisingManager, "RegisterAdvertisement", DeviceObjects::advertisementPath);
    message.appendOptions();
    call(message, [this](const Reply& reply) {
        if (reply.failed()) return refuse("registering the advertisement", reply);
        change(State::advertising, "advertising \"" + device_->name() + "\" on " + options_.adapter);
        lookForCentral();  // One may have been quicker than the reply.
    });
}

void BlueZPeripheral::Registration::refuse(std::string_view step, const Reply& reply) {
    std::string line(step);
    line += ": ";
    line += reply.errorText();
    giveUp(State::refused, line);
}

void BlueZPeripheral::Registration::giveUp(State state, std::string_view line) {
    pending_.reset();
    linkEnded();
    if (state_ == State::registering || state_ == State::advertising) withdraw();
    change(state, line);
}

// Whatever of it the service has: an adapter that goes off forgets its advertisement, say, but the service
// keeps it, and would refuse it the next time. What it does not have it need not be asked about.
void BlueZPeripheral::Registration::withdraw() {
    service_.send(
        newManagerCall(advertisingManager, "UnregisterAdvertisement", DeviceObjects::advertisementPath));
    service_.send(newManagerCall(gattManager, "UnregisterApplication", DeviceObjects::applicationPath));
}

void BlueZPeripheral::Registration::change(State state, std::string_view line) {
    if (state_ == state && line == lastLine_) return;
    state_ = state;
    lastLine_ = line;
    tell(line);
}

// The link.

void BlueZPeripheral::Registration::lookForCentral() {
    service_.tree().forEachDevice(adapterPath_, [this](const DeviceNode& device) { linkChanged(device); });
}

void BlueZPeripheral::Registration::linkChanged(const DeviceNode& device) {
    if (device.adapterPath() != adapterPath_) return;
    if (!device.connected) return deviceLeft(device.path);
    if (device.path == central_ || strangers_.count(device.path)) return;
    if (state_ == State::linked && !used_) {
        // Two that are linked, of which the former has not asked for anything: a mouse that came meanwhile.
        strangers_.insert(central_);
        linkEnded();
    }
    if (state_ != State::advertising) return;
    central_ = device.path;
    state_ = State::linked;
    device_->connected(*this);
    for (const CBUUID& characteristic : objects_->subscriptions()) subscribed(characteristic, true);
}

void BlueZPeripheral::Registration::deviceLeft(const std::string& path) {
    strangers_.erase(path);
    if (path != central_) return;
    linkEnded();
    lookForCentral();
}

void BlueZPeripheral::Registration::linkEnded() {
    central_.clear();
    used_ = false;
    tasks_.clear();
    if (objects_) objects_->dropSubscriptions();
    if (state_ != State::linked) return;
    state_ = State::advertising;
    device_->disconnected();
}

// Whoever makes use of the device is linked, be it one of those that seemed to be no central.
void BlueZPeripheral::Registration::lookForCentralAmongAll() {
    strangers_.clear();
    lookForCentral();
}

// Subscriptions from before the link is known are told when it is.
void BlueZPeripheral::Registration::subscribed(const CBUUID& characteristic, bool enabled) {
    if (state_ == State::linked) {
        used_ = true;
        device_->subscribed(characteristic, enabled);
    } else if (enabled) {
        lookForCentralAmongAll();
    }
}

void BlueZPeripheral::Registration::written(const CBUUID& characteristic, Bytes value,
                                            CBCharacteristicWriteType type) {
    if (state_ != State::linked) lookForCentralAmongAll();
    if (state_ != State::linked) return;
    used_ = true;
    device_->written(characteristic, value, type);
}

// What the device asks for.

void BlueZPeripheral::Registration::notify(const CBUUID& characteristic, Bytes value) {
    if (objects_) objects_->notify(characteristic, value);
}

void BlueZPeripheral::Registration::after(std::chrono::nanoseconds delay, std::function<void()> task) {
    const std::uint64_t number = ++tasksMade_;
    tasks_[number] = loop_.after(delay, [this, number, task = std::move(task)] {
        tasks_.erase(number);
        task();
    });
}

void BlueZPeripheral::Registration::disconnect() {
    if (!central_.empty()) service_.send(service_.newCall(central_, deviceInterface, "Disconnect"));
}

BlueZPeripheral::BlueZPeripheral(std::shared_ptr<PeripheralDevice> device, BlueZPeripheralOptions options)
    : registration_(std::make_unique<Registration>(std::move(device), std::move(options))) {}

BlueZPeripheral::~BlueZPeripheral() = default;

BlueZPeripheral::State BlueZPeripheral::state() const { return registration_->state(); }

void BlueZPeripheral::wake() noexcept { registration_->loop().wake(); }

bool BlueZPeripheral::runUntil(const std::function<bool()>& done, std::chrono::nanoseconds limit) {
    return registration_->loop().runUntil(done, limit);
}

}  // namespace corvane
