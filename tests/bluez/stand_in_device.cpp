#include "tests/bluez/stand_in_device.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <cstdio>

#include "corvane/framework/text_decoding.h"
#include "corvane/platform/bluez/object_tree.h"
#include "corvane/platform/bluez/property_reader.h"

namespace corvane::bluez {
namespace {

constexpr const char* deviceInterface = "org.bluez.Device1";
constexpr const char* serviceInterface = "org.bluez.GattService1";
constexpr const char* characteristicInterface = "org.bluez.GattCharacteristic1";

const Refusal notConnected{"org.bluez.Error.Failed", "Not connected"};

std::string formatted(const char* format, std::size_t number) {
    char text[64];
    std::snprintf(text, sizeof text, format, static_cast<unsigned>(number >> 8),
                  static_cast<unsigned>(number & 0xFF));
    return text;
}

std::string lowerCase(const CBUUID& uuid) {
    std::string text = uuid.uuidString();
    for (char& c : text) c = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
    return text;
}

std::vector<std::string> flagsOf(unsigned properties) {
    std::vector<std::string> flags;
    const std::pair<unsigned, const char*> names[] = {{gatt::read, "read"},
                                                      {gatt::writeWithoutResponse, "write-without-response"},
                                                      {gatt::write, "write"},
                                                      {gatt::notify, "notify"},
                                                      {gatt::indicate, "indicate"}};
    for (const auto& [bit, name] : names) {
        if (properties & bit) flags.emplace_back(name);
    }
    return flags;
}

}  // namespace

// The service's end of a socket that carries notifications.
class StandInDevice::SocketEnd final : public EventSource {
public:
    SocketEnd(Descriptor descriptor, std::function<void()> hungUp)
        : descriptor_(std::move(descriptor)), hungUp_(std::move(hungUp)) {}

    void send(Bytes value) {
        ::send(descriptor_.get(), value.data(), value.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    }
    int descriptor() const override { return descriptor_.get(); }
    std::uint32_t events() const override { return EPOLLIN; }
    bool dispatch() noexcept override {
        std::uint8_t byte = 0;
        if (::recv(descriptor_.get(), &byte, 1, MSG_DONTWAIT) == 0) hungUp_();
        return false;
    }

private:
    Descriptor descriptor_;
    std::function<void()> hungUp_;
};

StandInDevice::StandInDevice(StandIn& service, std::shared_ptr<PeripheralDevice> device, std::size_t number)
    : service_(service), device_(std::move(device)), address_(formatted("C0:FF:EE:00:%02X:%02X", number)),
      path_(service.adapter() + formatted("/dev_C0_FF_EE_00_%02X_%02X", number)) {
    std::size_t handle = 0;
    for (const GattService& offered : device_->services()) {
        const std::string servicePath = path_ + formatted("/service%02x%02x", ++handle);
        for (const GattCharacteristic& characteristic : offered.characteristics) {
            const std::string path = servicePath + formatted("/char%02x%02x", ++handle);
            Characteristic& own = characteristics_[path];
            own.uuid = characteristic.uuid;
            own.properties = characteristic.properties;
        }
    }
}

std::size_t StandInDevice::notifySessions() const {
    std::size_t count = 0;
    for (const auto& [path, characteristic] : characteristics_)
        count += characteristic.sessions.size() + (characteristic.socket ? 1 : 0);
    return count;
}

// What it advertises, of which the service cuts what is no text.
std::string StandInDevice::advertisedName() const {
    std::string name;
    const std::string advertised = device_->name();
    for (std::string_view rest = advertised; !rest.empty();) {
        const std::size_t length = utf8CharacterLength(rest);
        name += rest.substr(0, length);
        rest.remove_prefix(length == 0 ? 1 : length);
    }
    return name;
}

Properties StandInDevice::describe() const {
    std::string alias = address_;
    for (char& c : alias) c = c == ':' ? '-' : c;
    return {{"Address", address_},
            {"AddressType", std::string("random")},
            {"Alias", alias},
            {"Adapter", ObjectPath{service_.adapter()}},
            {"Paired", false},
            {"Connected", linked_},
            {"ServicesResolved", false},
            {"UUIDs", std::vector<std::string>{}}};
}

void StandInDevice::comeIntoReach() {
    inReach_ = true;
    advertise();
}

void StandInDevice::leaveReach() {
    inReach_ = false;
    service_.objects().invalidate(path_, "RSSI");
    loseLink();
}

void StandInDevice::advertise() {
    if (!inReach_ || linked_ || !service_.isDiscovering() || !service_.isPowered()) return;
    constexpr std::int16_t strength = -60;
    const std::string name = advertisedName();
    if (!service_.objects().has(path_)) {
        Properties properties = describe();
        properties["RSSI"] = strength;
        if (!name.empty() && !service_.habits.lateNames) properties["Name"] = name;
        service_.objects().add(path_, deviceInterface, std::move(properties));
        if (service_.habits.lateNames) nameChanged();
        return;
    }
    // The controller tells of each device once, until discovery starts anew.
    if (service_.objects().hasProperty(path_, "RSSI")) return;
    service_.objects().set(path_, "RSSI", strength);
    nameChanged();
}

void StandInDevice::nameChanged() {
    const std::string name = advertisedName();
    if (inReach_ && !linked_ && service_.isDiscovering() && !name.empty())
        service_.objects().set(path_, "Name", name);
}

void StandInDevice::loseSignalStrength() { service_.objects().invalidate(path_, "RSSI"); }

void StandInDevice::exportObject() {
    Properties properties = describe();
    if (const std::string name = advertisedName(); !name.empty()) properties["Name"] = name;
    service_.objects().add(path_, deviceInterface, std::move(properties));
}

void StandInDevice::linkFromElsewhere() {
    if (!service_.objects().has(path_)) exportObject();
    linkStands();
}

void StandInDevice::forget() {
    loseLink();
    service_.objects().remove(path_);
    for (auto& [path, characteristic] : characteristics_) characteristic.sessions.clear();
}

void StandInDevice::serviceEnded() {
    loseLink();
    attempt_.reset();
    attemptTimer_.reset();
    disconnectTimer_.reset();
    for (auto& [path, characteristic] : characteristics_) characteristic.sessions.clear();
}

void StandInDevice::clientLeft(const std::string& client) {
    for (auto& [path, characteristic] : characteristics_) {
        if (characteristic.sessions.erase(client)) updateSubscription(characteristic);
    }
}

bool StandInDevice::handle(const IncomingCall& call) {
    if (!service_.objects().has(call.path)) return false;
    if (call.path == path_ && call.member == "Connect") return connect(call), true;
    if (call.path == path_ && call.member == "Disconnect") return disconnectFrom(call), true;
    if (!characteristics_.count(call.path)) return false;
    if (call.member == "StartNotify") return startNotify(call, call.path), true;
    if (call.member == "StopNotify") return stopNotify(call, call.path), true;
    if (call.member == "AcquireNotify") return acquireNotify(call, call.path), true;
    if (call.member == "WriteValue") return write(call, call.path), true;
    return false;
}

// The link.

void StandInDevice::connect(const IncomingCall& call) {
    if (linked_) return service_.answer(call);
    if (service_.isDiscovering()) ++service_.connectsWhileDiscovering;
    if (attempt_) return service_.answer(call, {"org.bluez.Error.Failed", "Operation already in progress"});
    attempt_ = std::make_unique<IncomingCall>(call);
    const auto time = inReach_ ? std::chrono::milliseconds(0) : service_.habits.connectTime;
    attemptTimer_ = service_.loop().after(time, [this] {
        if (inReach_) return linkStands();
        failAttempt({"org.bluez.Error.Failed", "le-connection-abort-by-local"});
    });
}

void StandInDevice::failAttempt(const Refusal& refusal) {
    attemptTimer_.reset();
    if (const auto call = std::exchange(attempt_, nullptr)) service_.answer(*call, refusal);
}

void StandInDevice::linkStands() {
    const auto self = shared_from_this();
    attemptTimer_.reset();
    const auto call = std::exchange(attempt_, nullptr);
    linked_ = true;
    leaving_ = false;
    ++links_;
    if (service_.habits.linksSilently) {
        service_.objects().setSilently(path_, "Connected", true);
    } else {
        service_.objects().set(path_, "Connected", true);
    }
    if (!service_.habits.resolvesBeforeReply && call) service_.answer(*call);
    device_->connected(*this);
    later([this] { resolve(); });
    if (service_.habits.resolvesBeforeReply && call) later([this, call = *call] { service_.answer(call); });
}

void StandInDevice::resolve() {
    if (service_.unresolvedLinks > 0) {
        --service_.unresolvedLinks;
        return;
    }
    const auto exportDelay = service_.habits.exportDelay;
    if (exportDelay == exportDelay.zero()) exportServices();
    resumeSessions();
    service_.objects().set(path_, "ServicesResolved", true);
    if (exportDelay > exportDelay.zero()) later(exportDelay, [this] { exportServices(); });
}

void StandInDevice::exportServices() {
    std::size_t handle = 0;
    for (const GattService& offered : device_->services()) {
        const std::string servicePath = path_ + formatted("/service%02x%02x", ++handle);
        handle += offered.characteristics.size();
        if (service_.objects().has(servicePath)) continue;
        service_.objects().add(
            servicePath, serviceInterface,
            {{"UUID", lowerCase(offered.uuid)}, {"Primary", true}, {"Device", ObjectPath{path_}}});
    }
    for (const auto& [path, characteristic] : characteristics_) {
        if (service_.objects().has(path)) continue;
        service_.objects().add(path, characteristicInterface,
                               {{"UUID", lowerCase(characteristic.uuid)},
                                {"Service", ObjectPath{std::string(parentOf(path))}},
                                {"Value", std::vector<std::uint8_t>{}},
                                {"Notifying", false},
                                {"Flags", flagsOf(characteristic.properties)}});
    }
}

void StandInDevice::disconnectFrom(const IncomingCall& call) {
    if (!linked_) {
        failAttempt({"org.bluez.Error.Failed", "br-connection-canceled"});
        return service_.answer(call);
    }
    leaving_ = true;
    disconnectTimer_ = service_.loop().after(service_.habits.disconnectTime, [this, call] {
        endLink();
        service_.answer(call);
    });
}

void StandInDevice::loseLink() {
    if (linked_) later([this] { endLink(); });
}

void StandInDevice::endLink() {
    if (!linked_) return;
    const auto self = shared_from_this();
    linked_ = leaving_ = false;
    ++links_;
    timers_.clear();
    disconnectTimer_.reset();
    for (auto& [path, characteristic] : characteristics_) {
        characteristic.subscribed = characteristic.acquiring = characteristic.writing = false;
        characteristic.early.clear();
    }
    device_->disconnected();
    service_.objects().set(path_, Properties{{"Connected", false}, {"ServicesResolved", false}});
    // Clients can hear of the end on the bus before their sockets hang up.
    for (auto& [path, characteristic] : characteristics_) releaseSocket(path);
    if (!service_.habits.cachesObjects) {
        for (auto& [path, characteristic] : characteristics_) {
            characteristic.sessions.clear();
            service_.objects().remove(path);
            service_.objects().remove(std::string(parentOf(path)));
        }
    }
    service_.objects().invalidate(path_, "RSSI");
    service_.loop().post([self] { self->advertise(); });
}

// What the device does.

void StandInDevice::notify(const CBUUID& uuid, Bytes value) {
    for (auto& [path, characteristic] : characteristics_) {
        if (characteristic.uuid != uuid || !characteristic.subscribed || !linked_) continue;
        if (characteristic.socket) {
            characteristic.socket->send(value);
        } else if (!characteristic.acquiring) {
            service_.objects().set(path, "Value", std::vector<std::uint8_t>(value.begin(), value.end()));
        } else if (service_.habits.keepsEarlyValuesOnSocket) {
            characteristic.early.emplace_back(value.begin(), value.end());
        }
    }
}

void StandInDevice::after(std::chrono::nanoseconds delay, std::function<void()> task) {
    later(delay / service_.habits.hurry, std::move(task));
}

void StandInDevice::later(std::chrono::nanoseconds delay, std::function<void()> task) {
    const std::uint64_t id = ++timersMade_;
    timers_[id] = service_.loop().after(delay, [this, id, task = std::move(task)] {
        const auto self = shared_from_this();
        timers_.erase(id);
        task();
    });
}

void StandInDevice::disconnect() { loseLink(); }

void StandInDevice::later(std::function<void()> task) {
    service_.loop().post([weak = weak_from_this(), link = links_, task = std::move(task)] {
        const auto self = weak.lock();
        if (self && self->linked_ && self->links_ == link) task();
    });
}

// Values.

void StandInDevice::updateSubscription(Characteristic& characteristic) {
    const bool wanted =
        linked_ && (!characteristic.sessions.empty() || characteristic.socket || characteristic.acquiring);
    if (std::exchange(characteristic.subscribed, wanted) != wanted)
        device_->subscribed(characteristic.uuid, wanted);
}

// Sessions of an earlier link go on by themselves.
void StandInDevice::resumeSessions() {
    for (auto& [path, characteristic] : characteristics_) updateSubscription(characteristic);
}

void StandInDevice::notifyElsewhere(const std::string& path) {
    const auto found = characteristics_.find(path);
    if (!linked_ || found == characteristics_.end()) return;
    Characteristic& characteristic = found->second;
    if (characteristic.socket || !characteristic.sessions.insert(anotherClient).second) return;
    updateSubscription(characteristic);
    service_.objects().set(path, "Notifying", true);
    later(std::chrono::seconds(1), [this, &characteristic] {
        characteristic.sessions.erase(anotherClient);
        updateSubscription(characteristic);
    });
}

void StandInDevice::startNotify(const IncomingCall& call, const std::string& path) {
    Characteristic& characteristic = characteristics_[path];
    if (leaving_) return service_.answer(call, {"org.bluez.Error.NotConnected", "Not Connected"});
    if (characteristic.socket || characteristic.acquiring)
        return service_.answer(call, {"org.bluez.Error.NotPermitted", "Notify acquired"});
    if (!(characteristic.properties & (gatt::notify | gatt::indicate)))
        return service_.answer(call, {"org.bluez.Error.NotSupported", "Operation is not supported"});
    if (!linked_ || characteristic.sessions.count(call.sender)) {
        characteristic.sessions.insert(call.sender);
        return service_.answer(call);
    }
    characteristic.sessions.insert(call.sender);
    later([this, call, path, &characteristic] {
        updateSubscription(characteristic);
        service_.objects().set(path, "Notifying", true);
        service_.answer(call);
    });
}

void StandInDevice::stopNotify(const IncomingCall& call, const std::string& path) {
    Characteristic& characteristic = characteristics_[path];
    if (!characteristic.sessions.erase(call.sender))
        return service_.answer(call, {"org.bluez.Error.Failed", "No notify session started"});
    if (characteristic.sessions.empty()) service_.objects().set(path, "Notifying", false);
    updateSubscription(characteristic);
    service_.answer(call);
}

void StandInDevice::acquireNotify(const IncomingCall& call, const std::string& path) {
    Characteristic& characteristic = characteristics_[path];
    if (!linked_) return service_.answer(call, notConnected);
    if (characteristic.socket || characteristic.acquiring)
        return service_.answer(call, {"org.bluez.Error.NotPermitted", "Notify acquired"});
    if (!characteristic.sessions.empty())
        return service_.answer(call, {"org.bluez.Error.InProgress", "In Progress"});
    if (!(characteristic.properties & gatt::notify))
        return service_.answer(call, {"org.bluez.Error.NotSupported", "Operation is not supported"});
    characteristic.acquiring = true;
    later([this, call, path, &characteristic] {
        updateSubscription(characteristic);
        if (linked_) handOver(call, path);
    });
}

void StandInDevice::handOver(const IncomingCall& call, const std::string& path) {
    Characteristic& characteristic = characteristics_[path];
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) < 0)
        return service_.answer(call, {"org.bluez.Error.Failed", "no socket"});
    const Descriptor theirs(ends[0]);
    characteristic.socket =
        std::make_shared<SocketEnd>(Descriptor(ends[1]), [this, path] { releaseSocket(path); });
    characteristic.acquiring = false;
    service_.loop().attach(characteristic.socket);
    for (const auto& value : std::exchange(characteristic.early, {})) characteristic.socket->send(value);
    Message reply = service_.newReply(call);
    reply.append("hq", theirs.get(), 517);
    service_.answer(call, reply);
}

void StandInDevice::releaseSocket(const std::string& path) {
    Characteristic& characteristic = characteristics_[path];
    const auto socket = std::exchange(characteristic.socket, nullptr);
    if (!socket) return;
    service_.loop().detach(*socket);
    if (linked_) updateSubscription(characteristic);
}

void StandInDevice::write(const IncomingCall& call, const std::string& path) {
    Characteristic& characteristic = characteristics_[path];
    const void* bytes = nullptr;
    std::size_t size = 0;
    std::optional<std::string_view> type;
    sd_bus_message_read_array(call.message.get(), 'y', &bytes, &size);
    readProperties(call.message.get(), [&](PropertyReader& option) { return option.read("type", type); });
    if (!linked_) return service_.answer(call, notConnected);
    if (characteristic.writing) return service_.answer(call, {"org.bluez.Error.InProgress", "In Progress"});

    const auto* first = static_cast<const std::uint8_t*>(bytes);
    const std::vector<std::uint8_t> value(first, first + size);
    if (type == "command") {
        device_->written(characteristic.uuid, value, CBCharacteristicWriteType::withoutResponse);
        return service_.answer(call);
    }
    characteristic.writing = true;
    later([this, call, value, &characteristic] {
        characteristic.writing = false;
        device_->written(characteristic.uuid, value, CBCharacteristicWriteType::withResponse);
        service_.answer(call);
    });
}

}  // namespace corvane::bluez
