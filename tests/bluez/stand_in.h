// org.bluez played by a test: one adapter, and devices that are PeripheralDevice objects. It behaves as
// bluetoothd does where clients depend on it, and misbehaves as it does now and then, or on request.
//
// Everything runs on the loop that it is given. The client under test may run on the same thread, with a loop
// of its own.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "corvane/platform/bluez/bus.h"
#include "corvane/platform/peripheral_device.h"
#include "tests/bluez/exported_objects.h"
#include "tests/bluez/outbox.h"

namespace corvane::bluez {

class StandInDevice;

/// A method call that was received; it may be answered later.
struct IncomingCall {
    Message message;
    std::string path;
    std::string member;
    std::string sender;
};

/// Where another client of the service is played, this is its bus name.
inline constexpr const char* anotherClient = "another";

struct Refusal {
    std::string error;
    std::string text;
};

/// How the service behaves where real ones differ, or fail.
struct StandInHabits {
    /// The name comes in a signal of its own, after the device was found.
    bool lateNames = false;
    /// `Connected` becomes true without a signal: the real service loses it where the kernel's news of a link
    /// comes after its own.
    bool linksSilently = false;
    /// Another client starts the same discovery or notification right before this one does, and ends it a
    /// second later.
    bool anotherClient = false;
    /// The GATT objects stay when the link ends.
    bool cachesObjects = true;
    /// The services are resolved before the call that asked for the link is answered.
    bool resolvesBeforeReply = false;
    /// What a device sends before a socket is handed over comes through it, instead of being dropped.
    bool keepsEarlyValuesOnSocket = false;
    /// From the signal that the services are resolved to their objects, where those are not there yet.
    std::chrono::milliseconds exportDelay{0};
    /// From the end of the links, where there are any, to the signal that the adapter is off.
    std::chrono::milliseconds powerTime{30};
    /// From the call that ends a link to its end; values go on coming meanwhile.
    std::chrono::milliseconds disconnectTime{0};
    /// An attempt to connect to a device that is not there fails after this time.
    std::chrono::milliseconds connectTime{20};
    /// From the start of discovery to the first advertisement.
    std::chrono::milliseconds advertisingDelay{0};
    /// What devices do after a time, they do this much sooner.
    int hurry = 1;
};

/// More that the service can do.
class StandInPart {
public:
    virtual ~StandInPart() = default;
    /// False where the call is somebody else's.
    virtual bool handle(const IncomingCall& call) = 0;
    virtual void serviceStarted() = 0;
    virtual void serviceEnded() = 0;
    virtual void clientLeft(const std::string& client) = 0;
};

class StandIn {
public:
    /// Takes the name; blocks until it has it.
    StandIn(std::string busAddress, EventLoop& loop);
    ~StandIn();
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

    StandInHabits habits;
    /// How often each method was called.
    std::map<std::string, int> calls;
    /// By method: the next calls are refused so.
    std::map<std::string, std::deque<Refusal>> refusals;
    /// By method: so many of the next calls do not arrive.
    std::map<std::string, int> lostCalls;
    /// By method: so many of the next calls are done but not answered.
    std::map<std::string, int> lostReplies;
    /// By method: so many of the next calls are done, and the answer lacks what it should hold.
    std::map<std::string, int> emptyReplies;
    /// So many of the next links stand, and their services are never resolved.
    int unresolvedLinks = 0;
    /// Attempts to connect while discovery was on; real controllers take ten seconds for those.
    int connectsWhileDiscovering = 0;

    /// Loses, delays or swaps any one of the messages that are sent.
    Outbox outbox;

    /// Asked before this one handles a call; may be null.
    StandInPart* part = nullptr;

    /// Comes into reach.
    void add(std::shared_ptr<PeripheralDevice> device);
    /// Goes out of reach; its link is lost. The object stays.
    void remove(const PeripheralDevice& device);
    void nameChanged(const PeripheralDevice& device);
    /// Ends the link from outside.
    void loseLink(const PeripheralDevice& device);
    /// Links every device that is in reach, as clients do that are killed while they are linked.
    void leaveLinks();
    /// Forgets the device, as bluetoothctl's "remove" makes it; it can be found again.
    void forget(const PeripheralDevice& device);
    std::string pathOf(const PeripheralDevice& device) const;

    void setPowered(bool powered);
    void removeAdapter();
    void addAdapter();
    /// The service is killed: it says nothing any more, and its links are gone.
    void vanish();
    /// It is started again.
    void comeBack();

    // What clients have and have not cleaned up.
    std::size_t discoveringClients() const { return discoverers_.size(); }
    std::size_t links() const;
    std::size_t notifySessions() const;
    /// The name under which the adapter is known to others.
    const std::string& alias() const { return alias_; }
    /// What clients have not taken back, in words; empty if it is nothing.
    std::string leftovers() const;

    const std::string& adapter() const { return adapter_; }
    EventLoop& loop() { return loop_; }
    ExportedObjects& objects() { return objects_; }
    bool isPowered() const { return powered_; }
    bool isDiscovering() const { return !discoverers_.empty(); }
    /// Null while the service is gone.
    Bus* bus() { return bus_.get(); }

    void answer(const IncomingCall& call);
    void answer(const IncomingCall& call, const Refusal& refusal);
    /// Sends a reply that the caller has filled, unless it is to be lost.
    void answer(const IncomingCall& call, const Message& reply);
    Message newReply(const IncomingCall& call);

private:
    static bool isNext(std::map<std::string, int>& planned, const std::string& method);
    void send(const IncomingCall& call, const Message& reply, const char* kind);
    void takeName();
    void exportAdapter();
    bool received(sd_bus_message* message);
    void handle(const IncomingCall& call);
    void handleOnAdapter(const IncomingCall& call);
    void answerProperties(const IncomingCall& call);
    void setAlias(const IncomingCall& call);
    void startDiscovery(const IncomingCall& call);
    void stopDiscovery(const IncomingCall& call);
    void anotherComesFirst(const IncomingCall& call);
    void discoverElsewhere();
    void discoveryEnded();
    void advertise();
    void clientLeft(const std::string& client);
    void ownerChanged(sd_bus_message* message);
    StandInDevice* find(const PeripheralDevice& device);

    const std::string address_;
    EventLoop& loop_;
    const std::string adapter_ = "/org/bluez/hci0";
    std::shared_ptr<Bus> bus_;
    Slot filter_, ownerMatch_;
    ExportedObjects objects_{outbox};
    bool powered_ = true;
    std::string alias_ = "stand-in";
    std::set<std::string> discoverers_;
    std::unique_ptr<Timer> firstAdvertisement_, elsewhere_;
    std::vector<std::unique_ptr<Timer>> switches_;
    // Devices that are gone may still be forgotten later, so they are kept.
    std::vector<std::shared_ptr<StandInDevice>> devices_;
};

}  // namespace corvane::bluez
