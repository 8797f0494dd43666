// A registration goes through these steps, each begun by the reply to the one before:
//
//   the service has an owner -> its objects hold the adapter, with both managers, switched on
//     -> the Alias is set -> the GATT application is registered -> the advertisement is registered
//
// BlueZ then calls the objects below: StartNotify and StopNotify when a central subscribes, WriteValue when
// it writes. Links are told by the Connected property of the central's own object under the adapter. A value
// goes out as a change of the characteristic's Value property.
#include "corvane/platform/bluez/bluez_peripheral.h"

#include <map>
#include <optional>
#include <vector>

#include "corvane/platform/bluez/bluez_service.h"
#include "corvane/platform/bluez/bus.h"
#include "corvane/platform/bluez/event_loop.h"
#include "corvane/platform/bluez/property_reader.h"

namespace corvane {

using namespace bluez;

namespace {

constexpr const char* adapterInterface = "org.bluez.Adapter1";
constexpr const char* deviceInterface = "org.bluez.Device1";
constexpr const char* serviceInterface = "org.bluez.GattService1";
constexpr const char* characteristicInterface = "org.bluez.GattCharacteristic1";
constexpr const char* advertisementInterface = "org.bluez.LEAdvertisement1";
constexpr const char* gattManager = "org.bluez.GattManager1";
constexpr const char* advertisingManager = "org.bluez.LEAdvertisingManager1";
constexpr const char* properties = "org.freedesktop.DBus.Properties";

const std::string applicationPath = "/org/corvane/application";
const std::string advertisementPath = "/org/corvane/advertisement";

// The longest value that an attribute can have.
constexpr std::size_t longestValue = 512;

struct FlagName {
    unsigned property;
    const char* name;
};
constexpr FlagName flagNames[] = {{gatt::read, "read"},
                                  {gatt::writeWithoutResponse, "write-without-response"},
                                  {gatt::write, "write"},
                                  {gatt::notify, "notify"},
                                  {gatt::indicate, "indicate"}};

std::string_view textOf(const char* text) { return text ? std::string_view(text) : std::string_view(); }

}  // namespace

class BlueZPeripheral::Registration final : public PeripheralHost, public ObjectTree::Observer {
public:
    Registration(std::shared_ptr<PeripheralDevice> device, BlueZPeripheralOptions options)
        : device_(std::move(device)), options_(std::move(options)),
          adapterPath_("/org/bluez/" + options_.adapter),
          service_(
              options_.busAddress, loop_, *this, [this] { presenceChanged(); },
              [this](std::string_view line) { tell(line); }) {
        service_.open();
        presenceChanged();
    }
    ~Registration();

    State state() const { return state_; }
    EventLoop& loop() { return loop_; }

private:
    struct Characteristic {
        Registration& owner;
        CBUUID uuid;
        unsigned properties;
        std::string servicePath;
        std::string path;
        std::vector<std::uint8_t> value;
        bool notifying = false;
        Slot object;
    };
    struct Service {
        CBUUID uuid;
        std::string path;
        Slot object;
    };

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
    void deviceVanished(const DeviceNode& device) override {
        if (device.path == central_) linkEnded();
    }
    void valueChanged(std::string_view /*characteristic*/, Bytes /*value*/) override {}
    void notifyingChanged(std::string_view /*characteristic*/, bool /*notifying*/) override {}

    void makeObjects();
    void makeCharacteristic(const std::string& servicePath, std::size_t index, const GattCharacteristic& of);
    void dropObjects();
    void presenceChanged();
    void look();
    void begin();
    void setAlias(const std::string& alias);
    void registerApplication();
    void registerAdvertisement();
    void unregister();
    void lookForCentral();
    void linkChanged(const DeviceNode& device);
    void linkEnded();
    void change(State state, std::string_view line);
    void refuse(std::string_view step, const Reply& reply);
    void wait(std::string_view line);
    void tell(std::string_view line) {
        if (options_.onChange) options_.onChange(line);
    }
    void call(const Message& message, Bus::ReplyHandler handler) {
        pending_ = service_.call(message, std::move(handler));
    }
    bool isRegistered() const { return state_ == State::advertising || state_ == State::linked; }

    static int property(sd_bus*, const char*, const char*, const char*, sd_bus_message*, void*,
                        sd_bus_error*);
    static int serviceProperty(sd_bus*, const char*, const char*, const char*, sd_bus_message*, void*,
                               sd_bus_error*);
    static int advertisementProperty(sd_bus*, const char*, const char*, const char*, sd_bus_message*, void*,
                                     sd_bus_error*);
    static int startNotify(sd_bus_message*, void*, sd_bus_error*);
    static int stopNotify(sd_bus_message*, void*, sd_bus_error*);
    static int readValue(sd_bus_message*, void*, sd_bus_error*);
    static int writeValue(sd_bus_message*, void*, sd_bus_error*);
    static int released(sd_bus_message*, void*, sd_bus_error*);

    static const sd_bus_vtable serviceTable[];
    static const sd_bus_vtable characteristicTable[];
    static const sd_bus_vtable advertisementTable[];

    EventLoop loop_;
    const std::shared_ptr<PeripheralDevice> device_;
    const BlueZPeripheralOptions options_;
    const std::string adapterPath_;
    State state_ = State::waiting;
    std::string lastLine_;
    std::string central_;  // path of the linked central; empty without a link
    std::optional<std::string> formerAlias_;
    std::vector<std::unique_ptr<Service>> services_;
    std::vector<std::unique_ptr<Characteristic>> characteristics_;
    Slot objectManager_;
    Slot advertisement_;
    std::map<std::uint64_t, std::unique_ptr<Timer>> tasks_;
    std::uint64_t tasksMade_ = 0;
    BlueZService service_;
    Call pending_;  // the one call whose reply is the next step
};

// The objects that BlueZ sees.

const sd_bus_vtable BlueZPeripheral::Registration::serviceTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("UUID", "s", serviceProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Primary", "b", serviceProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable BlueZPeripheral::Registration::characteristicTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("UUID", "s", property, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Service", "o", property, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Flags", "as", property, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Value", "ay", property, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("Notifying", "b", property, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_METHOD("StartNotify", "", "", startNotify, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("StopNotify", "", "", stopNotify, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("ReadValue", "a{sv}", "ay", readValue, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("WriteValue", "aya{sv}", "", writeValue, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable BlueZPeripheral::Registration::advertisementTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Type", "s", advertisementProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("LocalName", "s", advertisementProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Discoverable", "b", advertisementProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_METHOD("Release", "", "", released, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

int BlueZPeripheral::Registration::serviceProperty(sd_bus*, const char*, const char*, const char* name,
                                                   sd_bus_message* reply, void* of, sd_bus_error*) {
    const auto& self = *static_cast<const Service*>(of);
    if (textOf(name) == "Primary") return sd_bus_message_append(reply, "b", 1);
    return sd_bus_message_append(reply, "s", self.uuid.uuidString().c_str());
}

int BlueZPeripheral::Registration::property(sd_bus*, const char*, const char*, const char* name,
                                            sd_bus_message* reply, void* of, sd_bus_error*) {
    const auto& self = *static_cast<const Characteristic*>(of);
    const std::string_view wanted = textOf(name);
    if (wanted == "Notifying") return sd_bus_message_append(reply, "b", self.notifying ? 1 : 0);
    if (wanted == "Service") return sd_bus_message_append(reply, "o", self.servicePath.c_str());
    if (wanted == "UUID") return sd_bus_message_append(reply, "s", self.uuid.uuidString().c_str());
    if (wanted == "Value")
        return sd_bus_message_append_array(reply, 'y', self.value.data(), self.value.size());
    if (const int error = sd_bus_message_open_container(reply, 'a', "s"); error < 0) return error;
    for (const FlagName& flag : flagNames) {
        if (!(self.properties & flag.property)) continue;
        if (const int error = sd_bus_message_append(reply, "s", flag.name); error < 0) return error;
    }
    return sd_bus_message_close_container(reply);
}

// The name alone: with a 128-bit UUID beside it, it would not fit the 31 bytes of an advert. Without the
// discoverable flag a central that scans without a filter never sees the device.
int BlueZPeripheral::Registration::advertisementProperty(sd_bus*, const char*, const char*, const char* name,
                                                         sd_bus_message* reply, void* of, sd_bus_error*) {
    const auto& self = *static_cast<const Registration*>(of);
    const std::string_view wanted = textOf(name);
    if (wanted == "Discoverable") return sd_bus_message_append(reply, "b", 1);
    if (wanted == "Type") return sd_bus_message_append(reply, "s", "peripheral");
    return sd_bus_message_append(reply, "s", self.device_->name().c_str());
}

// Replies go out before the device hears of the call: what it then sends comes after them.

int BlueZPeripheral::Registration::startNotify(sd_bus_message* message, void* of, sd_bus_error* error) {
    auto& self = *static_cast<Characteristic*>(of);
    if (!self.owner.service_.fromService(message))
        return sd_bus_error_set_const(error, SD_BUS_ERROR_ACCESS_DENIED, "");
    self.notifying = true;
    const int sent = sd_bus_reply_method_return(message, "");
    self.owner.lookForCentral();
    self.owner.device_->subscribed(self.uuid, true);
    return sent;
}

int BlueZPeripheral::Registration::stopNotify(sd_bus_message* message, void* of, sd_bus_error* error) {
    auto& self = *static_cast<Characteristic*>(of);
    if (!self.owner.service_.fromService(message))
        return sd_bus_error_set_const(error, SD_BUS_ERROR_ACCESS_DENIED, "");
    self.notifying = false;
    const int sent = sd_bus_reply_method_return(message, "");
    self.owner.device_->subscribed(self.uuid, false);
    return sent;
}

int BlueZPeripheral::Registration::readValue(sd_bus_message* message, void* of, sd_bus_error* error) {
    auto& self = *static_cast<Characteristic*>(of);
    if (!self.owner.service_.fromService(message))
        return sd_bus_error_set_const(error, SD_BUS_ERROR_ACCESS_DENIED, "");
    sd_bus_message* reply = nullptr;
    int result = sd_bus_message_new_method_return(message, &reply);
    if (result >= 0) result = sd_bus_message_append_array(reply, 'y', self.value.data(), self.value.size());
    if (result >= 0) result = sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return result < 0 ? result : 1;
}

int BlueZPeripheral::Registration::writeValue(sd_bus_message* message, void* of, sd_bus_error* error) {
    auto& self = *static_cast<Characteristic*>(of);
    if (!self.owner.service_.fromService(message))
        return sd_bus_error_set_const(error, SD_BUS_ERROR_ACCESS_DENIED, "");
    const void* bytes = nullptr;
    std::size_t size = 0;
    if (const int result = sd_bus_message_read_array(message, 'y', &bytes, &size); result < 0) return result;
    if (size > longestValue) {
        return sd_bus_error_set_const(error, "org.bluez.Error.InvalidValueLength", "longer than 512 bytes");
    }
    std::optional<std::string_view> type;
    readProperties(message, [&](PropertyReader& option) { return option.read("type", type); });
    const bool command = type == "command";
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    const std::vector<std::uint8_t> value(first, first + size);
    const int sent = sd_bus_reply_method_return(message, "");
    self.owner.lookForCentral();
    self.owner.device_->written(self.uuid, value,
                                command ? CBCharacteristicWriteType::withoutResponse
                                        : CBCharacteristicWriteType::withResponse);
    return sent;
}

int BlueZPeripheral::Registration::released(sd_bus_message* message, void* of, sd_bus_error* error) {
    auto& self = *static_cast<Registration*>(of);
    if (!self.service_.fromService(message))
        return sd_bus_error_set_const(error, SD_BUS_ERROR_ACCESS_DENIED, "");
    const int sent = sd_bus_reply_method_return(message, "");
    self.wait("BlueZ has withdrawn the advertisement");
    return sent;
}

void BlueZPeripheral::Registration::makeObjects() {
    sd_bus_slot* slot = nullptr;
    sd_bus_add_object_manager(service_.bus()->handle(), &slot, applicationPath.c_str());
    objectManager_.reset(slot);
    for (const GattService& of : device_->services()) {
        auto made = std::make_unique<Service>();
        made->uuid = of.uuid;
        made->path = applicationPath + "/service" + std::to_string(services_.size());
        slot = nullptr;
        sd_bus_add_object_vtable(service_.bus()->handle(), &slot, made->path.c_str(), serviceInterface,
                                 serviceTable, made.get());
        made->object.reset(slot);
        // sd-bus lists the newest object first, and BlueZ gives out handles in the order of that list.
        for (std::size_t i = of.characteristics.size(); i > 0; --i)
            makeCharacteristic(made->path, i - 1, of.characteristics[i - 1]);
        services_.push_back(std::move(made));
    }
    slot = nullptr;
    sd_bus_add_object_vtable(service_.bus()->handle(), &slot, advertisementPath.c_str(),
                             advertisementInterface, advertisementTable, this);
    advertisement_.reset(slot);
}

void BlueZPeripheral::Registration::makeCharacteristic(const std::string& servicePath, std::size_t index,
                                                       const GattCharacteristic& of) {
    auto made = std::make_unique<Characteristic>(
        Characteristic{.owner = *this,
                       .uuid = of.uuid,
                       .properties = of.properties,
                       .servicePath = servicePath,
                       .path = servicePath + "/characteristic" + std::to_string(index),
                       .value = {},
                       .notifying = false,
                       .object = nullptr});
    sd_bus_slot* slot = nullptr;
    sd_bus_add_object_vtable(service_.bus()->handle(), &slot, made->path.c_str(), characteristicInterface,
                             characteristicTable, made.get());
    made->object.reset(slot);
    characteristics_.push_back(std::move(made));
}

void BlueZPeripheral::Registration::dropObjects() {
    characteristics_.clear();
    services_.clear();
    advertisement_.reset();
    objectManager_.reset();
}

// The registration.

BlueZPeripheral::Registration::~Registration() {
    pending_.reset();
    linkEnded();
    unregister();
    if (formerAlias_ && service_.presence() == BlueZService::Presence::present) {
        Message message = service_.newCall(adapterPath_, properties, "Set");
        message.append("ssv", adapterInterface, "Alias", "s", formerAlias_->c_str());
        service_.send(message);
    }
    dropObjects();
}

void BlueZPeripheral::Registration::presenceChanged() {
    if (service_.presence() == BlueZService::Presence::present) return look();
    if (service_.presence() == BlueZService::Presence::refused)
        change(State::refused, "the Bluetooth service may not be used from here");
    else if (service_.bus())
        wait("waiting for the Bluetooth service");
    else
        change(State::refused, "there is no system bus");
    dropObjects();  // they belong to a connection that may be another one next time
}

// Begins where the adapter is ready, and gives up what stands where it is not.
void BlueZPeripheral::Registration::look() {
    if (service_.presence() != BlueZService::Presence::present) return;
    const auto& adapters = service_.tree().adapters();
    const auto adapter = adapters.find(adapterPath_);
    if (adapter == adapters.end()) return wait("waiting for " + options_.adapter);
    if (!adapter->second.powered) return wait(options_.adapter + " is off; waiting");
    if (isRegistered() || state_ == State::registering) return;
    change(State::registering, "registering on " + options_.adapter);
    begin();
}

void BlueZPeripheral::Registration::wait(std::string_view line) {
    pending_.reset();
    linkEnded();
    // An adapter that goes off forgets its advertisement, but the service keeps it: it could not be made
    // again.
    unregister();
    change(State::waiting, line);
}

void BlueZPeripheral::Registration::begin() {
    dropObjects();
    makeObjects();
    if (formerAlias_) return setAlias(device_->name());
    Message message = service_.newCall(adapterPath_, properties, "Get");
    message.append("ss", adapterInterface, "Alias");
    call(message, [this](const Reply& reply) {
        const char* alias = nullptr;
        if (reply.failed()) return refuse("asking for the adapter's name", reply);
        if (sd_bus_message_read(reply.message(), "v", "s", &alias) > 0) formerAlias_ = alias;
        setAlias(device_->name());
    });
}

void BlueZPeripheral::Registration::setAlias(const std::string& alias) {
    Message message = service_.newCall(adapterPath_, properties, "Set");
    message.append("ssv", adapterInterface, "Alias", "s", alias.c_str());
    call(message, [this](const Reply& reply) {
        if (reply.failed()) return refuse("setting the adapter's name", reply);
        registerApplication();
    });
}

void BlueZPeripheral::Registration::registerApplication() {
    Message message = service_.newCall(adapterPath_, gattManager, "RegisterApplication");
    message.append("o", applicationPath.c_str());
    message.appendOptions();
    call(message, [this](const Reply& reply) {
        if (reply.failed()) return refuse("registering the services", reply);
        registerAdvertisement();
    });
}

void BlueZPeripheral::Registration::registerAdvertisement() {
    Message message = service_.newCall(adapterPath_, advertisingManager, "RegisterAdvertisement");
    message.append("o", advertisementPath.c_str());
    message.appendOptions();
    call(message, [this](const Reply& reply) {
        if (reply.failed()) return refuse("registering the advertisement", reply);
        change(State::advertising, "advertising \"" + device_->name() + "\" on " + options_.adapter);
        lookForCentral();  // one may have been quicker than the reply
    });
}

void BlueZPeripheral::Registration::unregister() {
    if (!isRegistered()) return;
    Message advertisement = service_.newCall(adapterPath_, advertisingManager, "UnregisterAdvertisement");
    Message application = service_.newCall(adapterPath_, gattManager, "UnregisterApplication");
    if (!advertisement.get()) return;
    advertisement.append("o", advertisementPath.c_str());
    service_.send(advertisement);
    application.append("o", applicationPath.c_str());
    service_.send(application);
}

void BlueZPeripheral::Registration::refuse(std::string_view step, const Reply& reply) {
    std::string line(step);
    line += ": ";
    line += reply.errorText();
    change(State::refused, line);
}

void BlueZPeripheral::Registration::change(State state, std::string_view line) {
    if (state_ == state && state == State::waiting && line == lastLine_) return;
    state_ = state;
    lastLine_ = line;
    tell(line);
}

void BlueZPeripheral::Registration::lookForCentral() {
    service_.tree().forEachDevice(adapterPath_, [this](DeviceNode& device) { linkChanged(device); });
}

void BlueZPeripheral::Registration::linkChanged(const DeviceNode& device) {
    if (device.adapterPath() != adapterPath_) return;
    if (!device.connected) {
        if (device.path == central_) linkEnded();
        return;
    }
    if (state_ != State::advertising) return;
    central_ = device.path;
    change(State::linked, "linked");
    device_->connected(*this);
}

void BlueZPeripheral::Registration::linkEnded() {
    central_.clear();
    tasks_.clear();
    for (const auto& characteristic : characteristics_) characteristic->notifying = false;
    if (state_ != State::linked) return;
    change(State::advertising, "the link has ended");
    device_->disconnected();
}

// What the device asks for.

void BlueZPeripheral::Registration::notify(const CBUUID& characteristic, Bytes value) {
    for (const auto& of : characteristics_) {
        if (of->uuid != characteristic || !of->notifying) continue;
        of->value.assign(value.begin(), value.end());
        sd_bus_emit_properties_changed(service_.bus()->handle(), of->path.c_str(), characteristicInterface,
                                       "Value", nullptr);
    }
}

void BlueZPeripheral::Registration::after(std::chrono::nanoseconds delay, std::function<void()> task) {
    const std::uint64_t number = ++tasksMade_;
    tasks_[number] = loop_.after(delay, [this, number, task = std::move(task)] {
        const auto running = tasks_.extract(number);  // the timer holds the task
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

bool BlueZPeripheral::runUntil(const std::function<bool()>& done, std::chrono::nanoseconds limit) {
    const auto end = Clock::now() + limit;
    for (;;) {
        if (done()) return true;
        const auto left = end - Clock::now();
        if (left <= left.zero()) return false;
        registration_->loop().step(left);
    }
}

}  // namespace corvane
