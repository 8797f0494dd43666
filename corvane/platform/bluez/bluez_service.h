// The service org.bluez on the bus: whether it is there, who it is, and its objects.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "corvane/platform/bluez/bus.h"
#include "corvane/platform/bluez/object_tree.h"

namespace corvane::bluez {

/// A call that waits for its reply. Letting go of it withdraws it, also from inside its own handler.
struct PendingCall {
    Slot slot;
    std::unique_ptr<Timer> limit;
};
using Call = std::unique_ptr<PendingCall>;

class BlueZService {
public:
    enum class Presence {
        unknown,  ///< Not yet answered.
        absent,   ///< No bus, or nobody has the name.
        refused,  ///< It may not be called from here.
        present,  ///< Its objects are known.
    };

    /// `changed` is called after the presence has changed; the tree is empty unless the service is present.
    BlueZService(std::string busAddress, EventLoop& loop, ObjectTree::Observer& observer,
                 std::function<void()> changed, std::function<void(std::string_view)> diagnostics);
    ~BlueZService();
    BlueZService(const BlueZService&) = delete;
    BlueZService& operator=(const BlueZService&) = delete;

    /// Connects to the bus, now or once there is one. Nothing happens before.
    void open();

    Presence presence() const { return presence_; }
    /// Null while there is none.
    const std::shared_ptr<Bus>& bus() const { return bus_; }
    /// Whether the very process that was found to be the service has sent it.
    bool fromService(sd_bus_message* message) const;
    ObjectTree& tree() { return tree_; }
    const ObjectTree& tree() const { return tree_; }

    std::string ownName() const { return bus_ ? bus_->uniqueName() : std::string(); }

    /// A call to the very process that was found to be the service. Null when it is not present.
    Message newCall(std::string_view path, const char* interface, const char* member);
    /// Sends; the handler is called once: with the reply, or with an error `NoReply` after `timeout` without
    /// one. Null when nothing could be sent.
    [[nodiscard]] Call call(const Message& message, Bus::ReplyHandler handler,
                            std::chrono::nanoseconds timeout = std::chrono::seconds(25));
    void send(const Message& message);

    /// Whether replies can hold descriptors: not where the bus is another machine's.
    bool canPassDescriptors() const;
    /// Reads all objects again, since signals about them may have been left out. `done` is called after the
    /// tree has taken them over, or when they cannot be had.
    void refresh(std::function<void()> done = nullptr);
    /// Reads one property that is true or false; nothing where it cannot be had.
    [[nodiscard]] Call readFlag(std::string_view path, const char* interface, const char* property,
                                std::function<void(std::optional<bool>)> done);

private:
    bool connect();
    void reconnectLater();
    void busClosed();
    void listen();
    void requestObjects();
    void objectsArrived(const Reply& reply);
    void refreshed(const Reply& reply);
    void ownerChanged(sd_bus_message* signal);
    void setPresence(Presence presence);

    const std::string address_;
    EventLoop& loop_;
    const std::function<void()> changed_;
    const std::function<void(std::string_view)> diagnostics_;
    ObjectTree tree_;
    Presence presence_ = Presence::unknown;
    std::shared_ptr<Bus> bus_;
    std::string owner_;  // The service's unique name.
    Slot ownerMatch_, objectsMatch_, propertiesMatch_;
    Call objectsCall_;
    Call refreshCall_;
    std::vector<std::function<void()>> waitingForRefresh_;
    std::unique_ptr<Timer> retry_;
    unsigned reconnections_ = 0;  // Since the service was last present.
};

}  // namespace corvane::bluez
