#include "tests/bluez/peripheral_side.h"

#include <set>

#include "corvane/framework/hexadecimal_text.h"
#include "corvane/platform/bluez/property_reader.h"

namespace corvane::bluez {
namespace {

constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";
constexpr const char* serviceInterface = "org.bluez.GattService1";
constexpr const char* characteristicInterface = "org.bluez.GattCharacteristic1";
constexpr const char* advertisementInterface = "org.bluez.LEAdvertisement1";

const Refusal alreadyExists{"org.bluez.Error.AlreadyExists", "Already Exists"};
const Refusal doesNotExist{"org.bluez.Error.DoesNotExist", "Does Not Exist"};

/// The properties of one object, as far as they matter here.
struct Facts {
    std::string uuid, service, name;
    std::vector<std::string> flags, services;

    bool read(sd_bus_message* message) {
        return readEntries(message, 's', "v", [&](std::string_view property) {
            if (property == "UUID") return readText(message, "s", uuid);
            if (property == "Service") return readText(message, "o", service);
            if (property == "LocalName") return readText(message, "s", name);
            if (property == "Flags") return readList(message, flags);
            if (property == "ServiceUUIDs") return readList(message, services);
            return sd_bus_message_skip(message, "v") >= 0;
        });
    }

    /// Flags and services, as they go on the air.
    std::size_t advertSize() const {
        std::size_t size = 3;
        std::set<bool> lengths;
        for (const std::string& uuid : services) {
            const bool isShort = uuid.starts_with("0000") && uuid.ends_with("-0000-1000-8000-00805F9B34FB");
            size += isShort ? 2 : 16;
            lengths.insert(isShort);
        }
        return size + 2 * lengths.size();
    }

private:
    static bool readList(sd_bus_message* message, std::vector<std::string>& to) {
        return sd_bus_message_enter_container(message, 'v', "as") > 0 &&
               readTexts(message, [&](std::string_view text) { to.emplace_back(text); }) &&
               sd_bus_message_exit_container(message) >= 0;
    }
    static bool readText(sd_bus_message* message, const char* type, std::string& to) {
        const char* text = nullptr;
        if (sd_bus_message_read(message, "v", type, &text) <= 0) return false;
        to = text;
        return true;
    }
};

std::string pathArgument(const IncomingCall& call) {
    const char* path = "";
    sd_bus_message_read_basic(call.message.get(), 'o', &path);
    return path;
}

}  // namespace

PeripheralSide::PeripheralSide(StandIn& service) : service_(service) {
    service_.part = this;
    serviceStarted();
}

PeripheralSide::~PeripheralSide() { service_.part = nullptr; }

void PeripheralSide::serviceStarted() {
    values_ = service_.bus()->match("type='signal',interface='org.freedesktop.DBus.Properties',"
                                    "member='PropertiesChanged',path_namespace='/org/corvane'",
                                    [this](sd_bus_message* signal) { valueChanged(signal); });
}

void PeripheralSide::serviceEnded() {
    for (const int place : {1, 2}) unlink(place);
    values_.reset();
    asked_.clear();
    forgetApplication();
    advertised.clear();
}

void PeripheralSide::clientLeft(const std::string& client) {
    if (client != client_) return;
    forgetApplication();
    advertised.clear();
}

bool PeripheralSide::handle(const IncomingCall& call) {
    if (call.path != service_.adapter()) return false;
    if (call.member == "RegisterApplication") return registerApplication(call), true;
    if (call.member == "RegisterAdvertisement") return registerAdvertisement(call), true;
    if (call.member.starts_with("Unregister")) return unregister(call), true;
    return false;
}

void PeripheralSide::registerApplication(const IncomingCall& call) {
    if (!application_.empty()) return service_.answer(call, alreadyExists);
    client_ = call.sender;
    application_ = pathArgument(call);
    send(application_, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", {},
         [this, call](const Reply& reply) {
             if (!reply.failed() && readObjects(reply.message())) return service_.answer(call);
             forgetApplication();
             service_.answer(call, {"org.bluez.Error.Failed", "No valid service object found"});
         });
}

bool PeripheralSide::readObjects(sd_bus_message* reply) {
    std::map<std::string, std::string> services;
    const bool read = readEntries(reply, 'o', "a{sa{sv}}", [&](std::string_view path) {
        return readEntries(reply, 's', "a{sv}", [&](std::string_view interface) {
            Facts facts;
            if (!facts.read(reply)) return false;
            if (interface == serviceInterface) services[std::string(path)] = facts.uuid;
            if (interface != characteristicInterface) return true;
            handles.emplace_back(path);
            characteristics[handles.back()] = {facts.service, facts.uuid, facts.flags};
            return true;
        });
    });
    for (auto& [path, characteristic] : characteristics)
        characteristic.service = services[characteristic.service];
    return read && !services.empty();
}

void PeripheralSide::registerAdvertisement(const IncomingCall& call) {
    if (!advertised.empty()) return service_.answer(call, alreadyExists);
    client_ = call.sender;
    advertisement_ = pathArgument(call);
    const auto append = [](Message& message) { message.append("s", advertisementInterface); };
    send(advertisement_, propertiesInterface, "GetAll", append, [this, call](const Reply& reply) {
        Facts facts;
        if (reply.failed() || !facts.read(reply.message()))
            return service_.answer(call, {"org.bluez.Error.Failed", "Failed to parse advertisement."});
        if (facts.advertSize() > 31)
            return service_.answer(call, {"org.bluez.Error.InvalidLength", "Advertising data too long"});
        advertised = facts.name;
        advertisedServices = facts.services;
        if (whenAdvertised) whenAdvertised();
        service_.answer(call);
    });
}

void PeripheralSide::unregister(const IncomingCall& call) {
    const bool application = call.member == "UnregisterApplication";
    const std::string& registered = application ? application_ : advertisement_;
    if (call.sender != client_ || registered != pathArgument(call))
        return service_.answer(call, doesNotExist);
    if (application) {
        forgetApplication();
    } else {
        advertised.clear();
        advertisement_.clear();
    }
    service_.answer(call);
}

void PeripheralSide::forgetApplication() {
    application_.clear();
    characteristics.clear();
    handles.clear();
}

std::string PeripheralSide::find(const CBUUID& characteristic) const {
    for (const auto& [path, of] : characteristics) {
        if (of.uuid == characteristic.uuidString()) return path;
    }
    return {};
}

void PeripheralSide::setConnected(int place, bool connected) {
    const std::string number = std::to_string(place);
    const std::string path = service_.adapter() + "/dev_AA_BB_CC_DD_EE_0" + number;
    if (service_.objects().has(path)) return service_.objects().set(path, "Connected", connected);
    if (!connected) return;
    service_.objects().add(path, "org.bluez.Device1",
                           {{"Address", "AA:BB:CC:DD:EE:0" + number},
                            {"AddressType", std::string("random")},
                            {"Connected", true}});
}

void PeripheralSide::valueChanged(sd_bus_message* signal) {
    const char* interface = "";
    std::optional<Bytes> value;
    sd_bus_message_read_basic(signal, 's', &interface);
    readProperties(signal, [&](PropertyReader& property) { return property.read("Value", value); });
    const auto found = characteristics.find(sd_bus_message_get_path(signal));
    if (!value || found == characteristics.end()) return;
    values.push_back(found->second.uuid + ':' + hexadecimalText(*value));
}

void PeripheralSide::call(const std::string& path, const char* member,
                          const std::function<void(Message&)>& append, Bus::ReplyHandler answered) {
    send(path, characteristicInterface, member, append, std::move(answered));
}

void PeripheralSide::releaseAdvertisement() {
    const std::string path = std::exchange(advertisement_, {});
    advertised.clear();
    send(path, advertisementInterface, "Release", {}, {});
}

void PeripheralSide::send(const std::string& path, const char* interface, const char* member,
                          const std::function<void(Message&)>& append, Bus::ReplyHandler answered) {
    Message message = service_.bus()->newCall(client_, path, interface, member);
    if (append) append(message);
    asked_.push_back(service_.bus()->call(
        message, answered ? std::move(answered) : [](const Reply&) {}));
}

}  // namespace corvane::bluez
