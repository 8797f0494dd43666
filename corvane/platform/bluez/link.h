// The link to one device, shared by all who want it.
//
// BlueZ's attempts to connect end by themselves, after 40 seconds or at once; a link's do not: they are made
// again until the link stands or nobody wants it any more. A link that nobody wants is ended.
//
// A link sees to it that it gets on. Each step up to the subscription (LinkStep) has a time limit, far longer
// than a slow device needs. Past it the link reads the state of things again, since a signal may have been
// left out; if that does not help, it ends the connection, and those who have heard of it are told.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "corvane/platform/bluez/bluez_service.h"
#include "corvane/platform/bluez/discovery.h"
#include "corvane/platform/bluez/gatt_session.h"

namespace corvane::bluez {

/// Who wants a link. Called also from inside the listener's own calls: it must not act at once.
class LinkListener : public ValueListener {
public:
    virtual void linkStands(const std::shared_ptr<GattSession>& session) = 0;
    /// Time to answer questions about services. A question waits where what it asks for is not there yet,
    /// unless this is the `last` time. False if something that was asked for is not there.
    virtual bool servicesResolved(bool last) = 0;
    /// A service has a characteristic that was not there when its characteristics were told.
    virtual bool isOutdated() const = 0;
    /// `error` is null if the listener asked for it. Only after `linkStands`.
    virtual void linkEnded(const CBError* error) = 0;
    /// No attempt is made any more, without the listener's doing and before the link ever stood.
    virtual void attemptEnded() = 0;

protected:
    ~LinkListener() = default;
};

/// What a link waits for.
enum class LinkStep { connection, services, wantedService, characteristics, subscription };

class Link final : private GattSession::Owner, public std::enable_shared_from_this<Link> {
public:
    /// What a link needs around itself.
    struct Surroundings {
        BlueZService& service;
        EventLoop& loop;
        Discovery& discovery;
        BlueZNotifyPath notifyPath;
        std::function<void(std::string_view line)> diagnose;
        /// By device: how many links in a row were given up. The next one is not made at once.
        std::map<std::string, unsigned, std::less<>>& troubles;
        /// The link is over, or waits for the device to be found, or does so no more. Keeps a link that is
        /// over alive until what runs in it has returned.
        std::function<void(Link&)> changed;
    };

    /// `surroundings` must outlive the link.
    Link(const Surroundings& surroundings, std::string device);
    ~Link();

    void want(std::shared_ptr<LinkListener> listener);
    void leave(const LinkListener& listener);

    const std::string& device() const { return device_; }
    bool waitsForDevice() const { return phase_ == Phase::waitingForDevice; }
    bool isOver() const { return phase_ == Phase::over; }
    GattSession* session() const { return session_.get(); }

    /// A listener has asked for services, and they are resolved.
    void servicesAsked() { tellServices(false); }
    /// A listener has received a list of characteristics. The link checks later that the list was complete.
    void characteristicsTold();

    // What becomes of the device.
    void deviceAppeared(const DeviceNode& device);
    void deviceChanged(const DeviceNode& device, const ObjectTree::DeviceChange& change);
    void deviceVanished();
    void attributesAdded();
    void airIsQuiet();
    /// The adapter is off or gone: there is no link, and no attempt is made.
    void radioLost();

private:
    enum class Phase { waitingForDevice, waitingForAir, connecting, waitingToRetry, up, closing, over };

    using Listeners = std::vector<std::shared_ptr<LinkListener>>;

    void callFailed(const char* call, const Reply& reply) override;
    void subscriptionFailed(std::string_view reason) override;
    void valuesFlow() override;

    void enter(Phase phase);
    void follow(const DeviceNode& device, const ObjectTree::DeviceChange& change);
    void begin();
    void beginAfterTroubles();
    void waitForAir();
    void connect();
    void answered(const Reply& reply);
    void connectUnanswered();
    void attemptFailed();
    void expect(LinkStep step);
    void overdue();
    void lookAgain(std::function<void()> then);
    void tellServices(bool last);
    void attributesSettled();
    bool isOutdated() const;
    void giveUp(LinkStep step, const std::string& reason);
    void doubt();
    Call read(std::function<void()> then);
    bool servicesAreResolved() const { return node() && node()->servicesResolved; }
    std::string label() const;
    void stands();
    bool mayStand() const;
    void close();
    void closeIfDown();
    void closed();
    void lost();
    const DeviceNode* node() const;

    const Surroundings& around_;
    const std::string device_;
    Phase phase_ = Phase::over;
    Listeners listeners_;  // Who wants the link.
    Listeners leaving_;    // Who had it, and is to be told when it is gone.
    std::shared_ptr<GattSession> session_;
    Discovery::Pause pause_;
    Call call_;
    Call doubt_;  // Reads the device, because something contradicts what is known of it.
    std::unique_ptr<Timer> timer_;
    std::unique_ptr<Timer> settling_;  // Since an attribute was added.
    LinkStep step_ = LinkStep::connection;
    unsigned failures_ = 0;
    bool wasConnected_ = false;  // In this attempt, or when closing began.
    bool disconnectAnswered_ = false;
    std::optional<CBError> givenUp_;  // Why the link is being ended, where nobody asked for that.
};

}  // namespace corvane::bluez
