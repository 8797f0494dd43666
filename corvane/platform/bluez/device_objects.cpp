#include "corvane/platform/bluez/device_objects.h"

#include <algorithm>
#include <optional>
#include <string>

#include "corvane/platform/bluez/bluez_names.h"
#include "corvane/platform/bluez/property_reader.h"

namespace corvane::bluez {
namespace {

constexpr const char* advertisementInterface = "org.bluez.LEAdvertisement1";

struct FlagName {
    unsigned property;
    const char* name;
};
constexpr FlagName flagNames[] = {{gatt::read, "read"},
                                  {gatt::writeWithoutResponse, "write-without-response"},
                                  {gatt::write, "write"},
                                  {gatt::notify, "notify"},
                                  {gatt::indicate, "indicate"}};

/// What BlueZ says about a read or a write.
struct AccessOptions {
    std::optional<std::uint16_t> offset;
    std::optional<std::string_view> type;

    explicit AccessOptions(sd_bus_message* message) {
        readProperties(message, [this](PropertyReader& option) {
            return option.read("offset", offset) || option.read("type", type);
        });
    }
};

int appendFlags(sd_bus_message* reply, unsigned properties) {
    int result = sd_bus_message_open_container(reply, 'a', "s");
    for (const FlagName& flag : flagNames) {
        if (result >= 0 && (properties & flag.property))
            result = sd_bus_message_append_basic(reply, 's', flag.name);
    }
    return result < 0 ? result : sd_bus_message_close_container(reply);
}

// An advert has 31 bytes, of which the flags take three. The name goes into the scan response.
constexpr std::size_t roomForServices = 28;

bool isShort(const CBUUID& uuid) { return CBUUID::parse(uuid.uuidString().substr(4, 4)) == uuid; }

// As many as fit: a central may look for one of them. Each length has a list of its own, with two bytes
// before it.
int appendServices(sd_bus_message* reply, const std::vector<GattService>& services) {
    std::size_t used = 0;
    bool listed[2] = {};
    int result = sd_bus_message_open_container(reply, 'a', "s");
    for (const GattService& service : services) {
        const bool shortens = isShort(service.uuid);
        const std::size_t size = (shortens ? 2 : 16) + (listed[shortens] ? 0 : 2);
        if (result < 0 || used + size > roomForServices) continue;
        used += size;
        listed[shortens] = true;
        result = sd_bus_message_append_basic(reply, 's', service.uuid.uuidString().c_str());
    }
    return result < 0 ? result : sd_bus_message_close_container(reply);
}

int refuse(sd_bus_error* error, const char* name, const char* text) {
    return sd_bus_error_set_const(error, name, text);
}

}  // namespace

struct DeviceObjects::Service {
    CBUUID uuid;
    Slot object;
};

struct DeviceObjects::Characteristic {
    Owner& owner;
    CBUUID uuid;
    unsigned properties;
    std::string servicePath;
    std::string path;
    std::vector<std::uint8_t> value{};
    bool notifying = false;
    Slot object{};
};

struct DeviceObjects::Calls {
    static Owner& ownerOf(DeviceObjects& objects) { return objects.owner_; }
    static Owner& ownerOf(Characteristic& characteristic) { return characteristic.owner; }

    /// As the tables below want it, for a method of the object.
    template <class Object, int (*handle)(Object&, sd_bus_message*, sd_bus_error*)>
    static int method(sd_bus_message* message, void* of, sd_bus_error* error) {
        auto& object = *static_cast<Object*>(of);
        if (!ownerOf(object).isFromService(message))
            return refuse(error, SD_BUS_ERROR_ACCESS_DENIED, "only for the Bluetooth service");
        return handle(object, message, error);
    }

    static int serviceProperty(sd_bus*, const char*, const char*, const char* name, sd_bus_message* reply,
                               void* of, sd_bus_error*) {
        if (textOrEmpty(name) == "Primary") return sd_bus_message_append(reply, "b", 1);
        return sd_bus_message_append(reply, "s", static_cast<const Service*>(of)->uuid.uuidString().c_str());
    }

    static int characteristicProperty(sd_bus*, const char*, const char*, const char* name,
                                      sd_bus_message* reply, void* of, sd_bus_error*) {
        const auto& self = *static_cast<const Characteristic*>(of);
        const std::string_view wanted = textOrEmpty(name);
        if (wanted == "Notifying") return sd_bus_message_append(reply, "b", self.notifying ? 1 : 0);
        if (wanted == "Service") return sd_bus_message_append(reply, "o", self.servicePath.c_str());
        if (wanted == "UUID") return sd_bus_message_append(reply, "s", self.uuid.uuidString().c_str());
        if (wanted == "Flags") return appendFlags(reply, self.properties);
        return sd_bus_message_append_array(reply, 'y', self.value.data(), self.value.size());
    }

    // Without the discoverable flag a central that scans without a filter never sees the device.
    static int advertisementProperty(sd_bus*, const char*, const char*, const char* name,
                                     sd_bus_message* reply, void* of, sd_bus_error*) {
        const PeripheralDevice& device = static_cast<DeviceObjects*>(of)->device_;
        const std::string_view wanted = textOrEmpty(name);
        if (wanted == "ServiceUUIDs") return appendServices(reply, device.services());
        if (wanted == "Discoverable") return sd_bus_message_append(reply, "b", 1);
        if (wanted == "Type") return sd_bus_message_append(reply, "s", "peripheral");
        return sd_bus_message_append(reply, "s", device.name().c_str());
    }

    template <bool enabled>
    static int subscribe(Characteristic& self, sd_bus_message* message, sd_bus_error*) {
        self.notifying = enabled;
        const int sent = sd_bus_reply_method_return(message, "");
        self.owner.subscribed(self.uuid, enabled);
        return sent;
    }

    static int readValue(Characteristic& self, sd_bus_message* message, sd_bus_error* error) {
        const std::size_t offset = AccessOptions(message).offset.value_or(0);
        if (offset > self.value.size())
            return refuse(error, "org.bluez.Error.InvalidOffset", "beyond the end of the value");
        sd_bus_message* reply = nullptr;
        int result = sd_bus_message_new_method_return(message, &reply);
        const Message kept(reply);
        if (result >= 0)
            result = sd_bus_message_append_array(reply, 'y', self.value.data() + offset,
                                                 self.value.size() - offset);
        return result < 0 ? result : sd_bus_send(nullptr, reply, nullptr);
    }

    static int writeValue(Characteristic& self, sd_bus_message* message, sd_bus_error* error) {
        const void* bytes = nullptr;
        std::size_t size = 0;
        if (const int result = sd_bus_message_read_array(message, 'y', &bytes, &size); result < 0)
            return result;
        const AccessOptions options(message);
        if (size > longestValue)
            return refuse(error, "org.bluez.Error.InvalidValueLength", "longer than 512 bytes");
        if (options.offset.value_or(0) > 0)
            return refuse(error, "org.bluez.Error.InvalidOffset", "this device takes whole values only");
        const auto type = options.type == "command" ? CBCharacteristicWriteType::withoutResponse
                                                    : CBCharacteristicWriteType::withResponse;
        const int sent = sd_bus_reply_method_return(message, "");
        self.owner.written(self.uuid, Bytes(static_cast<const std::uint8_t*>(bytes), size), type);
        return sent;
    }

    static int release(DeviceObjects& self, sd_bus_message* message, sd_bus_error*) {
        const int sent = sd_bus_reply_method_return(message, "");
        self.owner_.advertisementReleased();
        return sent;
    }

    static const sd_bus_vtable service[];
    static const sd_bus_vtable characteristic[];
    static const sd_bus_vtable advertisement[];
};

const sd_bus_vtable DeviceObjects::Calls::service[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("UUID", "s", serviceProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Primary", "b", serviceProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable DeviceObjects::Calls::characteristic[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("UUID", "s", characteristicProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Service", "o", characteristicProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Flags", "as", characteristicProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Value", "ay", characteristicProperty, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("Notifying", "b", characteristicProperty, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_METHOD("StartNotify", "", "", (method<Characteristic, subscribe<true>>),
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("StopNotify", "", "", (method<Characteristic, subscribe<false>>),
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("ReadValue", "a{sv}", "ay", (method<Characteristic, readValue>),
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("WriteValue", "aya{sv}", "", (method<Characteristic, writeValue>),
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable DeviceObjects::Calls::advertisement[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Type", "s", advertisementProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("ServiceUUIDs", "as", advertisementProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("LocalName", "s", advertisementProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Discoverable", "b", advertisementProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_METHOD("Release", "", "", (method<DeviceObjects, release>), SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

DeviceObjects::DeviceObjects(sd_bus* bus, const PeripheralDevice& device, Owner& owner)
    : bus_(bus), device_(device), owner_(owner) {
    sd_bus_slot* slot = nullptr;
    sd_bus_add_object_manager(bus_, &slot, applicationPath);
    objectManager_.reset(slot);
    // sd-bus lists the newest object first, and BlueZ gives out handles in the order of that list.
    const std::vector<GattService> services = device_.services();
    for (std::size_t i = services.size(); i > 0; --i) add(services[i - 1]);
    advertisement_ = add(advertisementPath, advertisementInterface, Calls::advertisement, this);
}

DeviceObjects::~DeviceObjects() = default;

void DeviceObjects::add(const GattService& service) {
    const std::string path = std::string(applicationPath) + "/service" + std::to_string(services_.size());
    auto& made = services_.emplace_back(std::make_unique<Service>(Service{service.uuid, {}}));
    made->object = add(path.c_str(), serviceInterface, Calls::service, made.get());
    for (std::size_t i = service.characteristics.size(); i > 0; --i) {
        const GattCharacteristic& of = service.characteristics[i - 1];
        auto& characteristic = characteristics_.emplace_back(std::make_unique<Characteristic>(
            Characteristic{.owner = owner_,
                           .uuid = of.uuid,
                           .properties = of.properties,
                           .servicePath = path,
                           .path = path + "/characteristic" + std::to_string(i - 1)}));
        characteristic->object = add(characteristic->path.c_str(), characteristicInterface,
                                     Calls::characteristic, characteristic.get());
    }
}

Slot DeviceObjects::add(const char* path, const char* interface, const sd_bus_vtable* table, void* object) {
    sd_bus_slot* slot = nullptr;
    sd_bus_add_object_vtable(bus_, &slot, path, interface, table, object);
    return Slot(slot);
}

void DeviceObjects::notify(const CBUUID& characteristic, Bytes value) {
    for (const auto& of : characteristics_) {
        if (of->uuid != characteristic || !of->notifying) continue;
        of->value.assign(value.begin(), value.end());
        sd_bus_emit_properties_changed(bus_, of->path.c_str(), characteristicInterface, "Value", nullptr);
    }
}

std::vector<CBUUID> DeviceObjects::subscriptions() const {
    std::vector<CBUUID> found;
    for (const auto& of : characteristics_) {
        if (of->notifying) found.push_back(of->uuid);
    }
    return found;
}

void DeviceObjects::dropSubscriptions() {
    for (const auto& of : characteristics_) of->notifying = false;
}

}  // namespace corvane::bluez
