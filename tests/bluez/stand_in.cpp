#include "tests/bluez/stand_in.h"

#include <algorithm>

#include "tests/bluez/stand_in_device.h"

namespace corvane::bluez {
namespace {

constexpr const char* serviceName = "org.bluez";
constexpr const char* adapterInterface = "org.bluez.Adapter1";

const Refusal inProgress{"org.bluez.Error.InProgress", "In Progress"};
const Refusal unknownObject{SD_BUS_ERROR_UNKNOWN_OBJECT, "Unknown object"};
const Refusal notReady{"org.bluez.Error.NotReady", "Resource Not Ready"};

std::string textOf(const char* text) { return text ? text : ""; }

}  // namespace

StandIn::StandIn(std::string busAddress, EventLoop& loop)
    : outbox(loop), address_(std::move(busAddress)), loop_(loop) {
    exportAdapter();
    comeBack();
}

StandIn::~StandIn() { vanish(); }

void StandIn::comeBack() {
    int error = 0;
    bus_ = Bus::open(address_, error);
    if (!bus_) std::abort();  // The daemon is the test's own.
    outbox.useBus(bus_->handle());
    objects_.useBus(bus_->handle());
    sd_bus_slot* slot = nullptr;
    sd_bus_add_filter(
        bus_->handle(), &slot,
        [](sd_bus_message* message, void* self, sd_bus_error*) {
            return static_cast<StandIn*>(self)->received(message) ? 1 : 0;
        },
        this);
    filter_ = Slot(slot);
    ownerMatch_ = bus_->match("type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged'",
                              [this](sd_bus_message* message) { ownerChanged(message); });
    sd_bus_request_name(bus_->handle(), serviceName,
                        SD_BUS_NAME_ALLOW_REPLACEMENT | SD_BUS_NAME_REPLACE_EXISTING);
    loop_.attach(bus_);
    if (part) part->serviceStarted();
}

void StandIn::vanish() {
    if (!bus_) return;
    outbox.useBus(nullptr);
    objects_.useBus(nullptr);
    if (part) part->serviceEnded();
    filter_.reset();
    ownerMatch_.reset();
    loop_.detach(*bus_);
    bus_.reset();
    discoverers_.clear();
    for (const auto& device : devices_) {
        device->loseSignalStrength();
        device->serviceEnded();
    }
}

void StandIn::exportAdapter() {
    objects_.add(adapter_, adapterInterface,
                 {{"Address", std::string("00:AA:01:00:00:00")},
                  {"Name", std::string("stand-in")},
                  {"Alias", alias_},
                  {"Powered", powered_},
                  {"Pairable", true},
                  {"Discovering", false}});
}

void StandIn::addAdapter() { exportAdapter(); }

void StandIn::removeAdapter() {
    for (const auto& device : devices_) device->forget();
    discoverers_.clear();
    objects_.remove(adapter_);
}

void StandIn::setPowered(bool powered) {
    powered_ = powered;
    const auto delay = links() > 0 ? habits.powerTime : std::chrono::milliseconds(0);
    if (!powered) {
        for (const auto& device : devices_) device->loseLink();
        discoverers_.clear();
    }
    // The links end first.
    switches_.push_back(loop_.after(delay, [this, powered] {
        if (!powered) discoveryEnded();
        objects_.set(adapter_, "Powered", powered);
    }));
}

void StandIn::add(std::shared_ptr<PeripheralDevice> device) {
    StandInDevice* known = find(*device);
    if (!known) {
        devices_.push_back(std::make_shared<StandInDevice>(*this, std::move(device), devices_.size() + 1));
        known = devices_.back().get();
    }
    known->comeIntoReach();
}

void StandIn::remove(const PeripheralDevice& device) {
    if (StandInDevice* known = find(device)) known->leaveReach();
}

void StandIn::nameChanged(const PeripheralDevice& device) {
    if (StandInDevice* known = find(device)) known->nameChanged();
}

void StandIn::loseLink(const PeripheralDevice& device) {
    if (StandInDevice* known = find(device)) known->loseLink();
}

void StandIn::leaveLinks() {
    for (const auto& device : devices_) device->linkFromElsewhere();
}

void StandIn::forget(const PeripheralDevice& device) {
    StandInDevice* known = find(device);
    if (!known) return;
    known->forget();
    loop_.post([kept = known->shared_from_this()] { kept->advertise(); });
}

std::string StandIn::pathOf(const PeripheralDevice& device) const {
    for (const auto& known : devices_) {
        if (&known->device() == &device) return known->path();
    }
    return {};
}

StandInDevice* StandIn::find(const PeripheralDevice& device) {
    for (const auto& known : devices_) {
        if (&known->device() == &device) return known.get();
    }
    return nullptr;
}

std::size_t StandIn::links() const {
    return static_cast<std::size_t>(std::count_if(devices_.begin(), devices_.end(),
                                                  [](const auto& device) { return device->isLinked(); }));
}

std::size_t StandIn::notifySessions() const {
    std::size_t count = 0;
    for (const auto& device : devices_) count += device->notifySessions();
    return count;
}

std::string StandIn::leftovers() const {
    std::string text;
    const auto note = [&](std::size_t count, const char* what) {
        if (count > 0) text += std::to_string(count) + ' ' + what + ' ';
    };
    note(discoveringClients(), "discovering");
    note(links(), "links");
    note(notifySessions(), "notify sessions");
    return text;
}

// Calls.

bool StandIn::received(sd_bus_message* message) {
    std::uint8_t type = 0;
    sd_bus_message_get_type(message, &type);
    if (type != SD_BUS_MESSAGE_METHOD_CALL) return false;
    const IncomingCall call{.message = Message(sd_bus_message_ref(message)),
                            .path = textOf(sd_bus_message_get_path(message)),
                            .member = textOf(sd_bus_message_get_member(message)),
                            .sender = textOf(sd_bus_message_get_sender(message))};
    ++calls[call.member];
    if (habits.anotherClient) anotherComesFirst(call);
    handle(call);
    return true;
}

void StandIn::handle(const IncomingCall& call) {
    if (isNext(lostCalls, call.member)) return;
    if (auto& refused = refusals[call.member]; !refused.empty()) {
        const Refusal refusal = refused.front();
        refused.pop_front();
        return answer(call, refusal);
    }
    if (call.member == "GetManagedObjects") {
        const Message reply = newReply(call);
        objects_.appendAll(reply.get());
        return answer(call, reply);
    }
    if (call.member == "Get" || call.member == "GetAll") return answerProperties(call);
    if (part && part->handle(call)) return;
    if (call.path == adapter_ && objects_.has(adapter_)) return handleOnAdapter(call);
    for (const auto& device : std::vector(devices_)) {
        if (device->handle(call)) return;
    }
    answer(call, unknownObject);
}

void StandIn::answerProperties(const IncomingCall& call) {
    const char *interface = "", *property = "";
    const Message reply = newReply(call);
    sd_bus_message_read_basic(call.message.get(), 's', &interface);
    bool found = false;
    if (call.member == "GetAll") {
        found = objects_.appendProperties(reply.get(), call.path, interface);
    } else {
        sd_bus_message_read_basic(call.message.get(), 's', &property);
        found = objects_.appendProperty(reply.get(), call.path, interface, property);
    }
    if (found) return answer(call, reply);
    answer(call,
           objects_.has(call.path) ? Refusal{SD_BUS_ERROR_INVALID_ARGS, "No such property"} : unknownObject);
}

void StandIn::setAlias(const IncomingCall& call) {
    const char *interface = "", *property = "", *text = "";
    sd_bus_message_read(call.message.get(), "ssv", &interface, &property, "s", &text);
    if (std::string_view(property) != "Alias")
        return answer(call, {SD_BUS_ERROR_PROPERTY_READ_ONLY, "Property is not writable"});
    alias_ = text;
    objects_.set(adapter_, "Alias", alias_);
    answer(call);
}

void StandIn::handleOnAdapter(const IncomingCall& call) {
    if (call.member == "Set") return setAlias(call);
    if (!powered_) return answer(call, notReady);
    if (call.member == "SetDiscoveryFilter") return answer(call);
    if (call.member == "StartDiscovery") return startDiscovery(call);
    if (call.member == "StopDiscovery") return stopDiscovery(call);
    answer(call, {"org.freedesktop.DBus.Error.UnknownMethod", "Unknown method"});
}

void StandIn::startDiscovery(const IncomingCall& call) {
    if (!discoverers_.insert(call.sender).second) return answer(call, inProgress);
    objects_.set(adapter_, "Discovering", true);
    // A device may be found before the call is answered.
    if (habits.advertisingDelay == std::chrono::milliseconds(0)) {
        advertise();
    } else {
        firstAdvertisement_ = loop_.after(habits.advertisingDelay, [this] { advertise(); });
    }
    answer(call);
}

void StandIn::anotherComesFirst(const IncomingCall& call) {
    if (powered_ && call.member == "StartDiscovery") discoverElsewhere();
    if (call.member != "StartNotify") return;
    for (const auto& device : std::vector(devices_)) device->notifyElsewhere(call.path);
}

void StandIn::discoverElsewhere() {
    if (!discoverers_.insert(anotherClient).second) return;
    objects_.set(adapter_, "Discovering", true);
    elsewhere_ = loop_.after(std::chrono::seconds(1), [this] {
        if (discoverers_.erase(anotherClient) && discoverers_.empty()) discoveryEnded();
    });
}

void StandIn::advertise() {
    for (const auto& device : std::vector(devices_)) device->advertise();
}

void StandIn::stopDiscovery(const IncomingCall& call) {
    if (!discoverers_.erase(call.sender))
        return answer(call, {"org.bluez.Error.Failed", "No discovery started"});
    answer(call);
    if (discoverers_.empty()) discoveryEnded();
}

void StandIn::discoveryEnded() {
    for (const auto& device : devices_) device->loseSignalStrength();
    objects_.set(adapter_, "Discovering", false);
}

void StandIn::ownerChanged(sd_bus_message* message) {
    const char* name = nullptr;
    const char* before = nullptr;
    const char* now = nullptr;
    sd_bus_message_read(message, "sss", &name, &before, &now);
    if (!*now) clientLeft(name);
}

void StandIn::clientLeft(const std::string& client) {
    if (part) part->clientLeft(client);
    if (discoverers_.erase(client) && discoverers_.empty()) discoveryEnded();
    for (const auto& device : std::vector(devices_)) device->clientLeft(client);
}

bool StandIn::isNext(std::map<std::string, int>& planned, const std::string& method) {
    int& left = planned[method];
    return left > 0 && left-- > 0;
}

Message StandIn::newReply(const IncomingCall& call) {
    sd_bus_message* reply = nullptr;
    sd_bus_message_new_method_return(call.message.get(), &reply);
    return Message(reply);
}

void StandIn::answer(const IncomingCall& call) { answer(call, newReply(call)); }

void StandIn::answer(const IncomingCall& call, const Refusal& refusal) {
    const sd_bus_error error{refusal.error.c_str(), refusal.text.c_str(), 0};
    sd_bus_message* reply = nullptr;
    sd_bus_message_new_method_error(call.message.get(), &reply, &error);
    send(call, Message(reply), "refusal ");
}

void StandIn::answer(const IncomingCall& call, const Message& reply) { send(call, reply, "reply "); }

void StandIn::send(const IncomingCall& call, const Message& reply, const char* kind) {
    if (isNext(lostReplies, call.member)) return;
    const Message sent = isNext(emptyReplies, call.member) ? newReply(call) : reply;
    // The call may be older than the service's present life.
    if (bus_ && sd_bus_message_get_bus(call.message.get()) == bus_->handle())
        outbox.send(sent, kind + call.member);
}

}  // namespace corvane::bluez
