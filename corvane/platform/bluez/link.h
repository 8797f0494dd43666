// The link to one device, shared by all who want it.
//
// BlueZ's attempts to connect end by themselves, after 40 seconds or at once; a link's do not: they are made
// again until the link stands or nobody wants it any more. A link that nobody wants is ended.
#pragma once

#include <memory>
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
    virtual void servicesResolved() = 0;
    /// `error` is null if the listener asked for it. Only after `linkStands`.
    virtual void linkEnded(const CBError* error) = 0;
    /// No attempt is made any more, without the listener's doing and before the link ever stood.
    virtual void attemptEnded() = 0;

protected:
    ~LinkListener() = default;
};

class Link : public std::enable_shared_from_this<Link> {
public:
    /// What a link needs around itself.
    struct Surroundings {
        BlueZService& service;
        EventLoop& loop;
        Discovery& discovery;
        BlueZNotifyPath notifyPath;
        GattSession::Diagnose diagnose;
        /// The link is over, or waits for the device to be found, or does so no more. Keeps a link that is
        /// over alive until what runs in it has returned.
        std::function<void(Link&)> changed;
    };

    /// `surroundings` must outlive the link.
    Link(const Surroundings& surroundings, std::string device);

    void want(std::shared_ptr<LinkListener> listener);
    void leave(const LinkListener& listener);

    const std::string& device() const { return device_; }
    bool waitsForDevice() const { return phase_ == Phase::waitingForDevice; }
    bool isOver() const { return phase_ == Phase::over; }
    GattSession* session() const { return session_.get(); }

    // What becomes of the device.
    void deviceAppeared(const DeviceNode& device);
    void deviceChanged(const DeviceNode& device, const ObjectTree::DeviceChange& change);
    void deviceVanished();
    void airIsQuiet();
    /// The adapter is off or gone: there is no link, and no attempt is made.
    void radioLost();

private:
    enum class Phase { waitingForDevice, waitingForAir, connecting, waitingToRetry, up, closing, over };

    using Listeners = std::vector<std::shared_ptr<LinkListener>>;

    void enter(Phase phase);
    void begin();
    void connect();
    void answered(const Reply& reply);
    void attemptFailed();
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
    std::unique_ptr<Timer> timer_;
    unsigned failures_ = 0;
    bool wasConnected_ = false;  // In this attempt, or when closing began.
    bool disconnectAnswered_ = false;
};

}  // namespace corvane::bluez
