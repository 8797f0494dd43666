// The adapter in use, its state, and what all centrals of the process share on it: discovery and links.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "corvane/platform/bluez/bluez_platform.h"
#include "corvane/platform/bluez/bluez_service.h"
#include "corvane/platform/bluez/discovery.h"
#include "corvane/platform/bluez/link.h"

namespace corvane::bluez {

class Central;

class Radio final : private ObjectTree::Observer, private Discovery::Observer {
public:
    /// `diagnostics` is told what is refused, tried again or given up, a line each.
    using Diagnostics = std::function<void(std::string_view line)>;

    Radio(BlueZOptions options, EventLoop& loop, Diagnostics diagnostics);
    ~Radio();

    EventLoop& loop() { return loop_; }
    ObjectTree& tree() { return service_.tree(); }
    /// This process's own name on the bus; empty before it has one.
    std::string busName() const { return service_.ownName(); }

    /// As it is now; centrals learn of it by events.
    CBManagerState state() const;

    // A central tells when it comes and goes, and when it begins or ends to scan.
    void add(Central& central);
    void remove(Central& central);
    void scanStarted(Central& central);
    void scanStopped();

    /// The device's path on the adapter in use, whichever it was found on.
    std::string pathInUse(std::string_view device) const;

    /// Made when there is none.
    Link& linkTo(const std::string& device);
    /// Null when there is none.
    Link* findLink(std::string_view device);

    /// Tells the end of a link that nobody asked for: after the adapter's state event, where it was the
    /// adapter that went. BlueZ reports the end of the links before it reports the adapter.
    void tellLoss(std::function<void()> tell);
    /// Tells what is held back for that. A new link of the same device is told later.
    void tellLossesNow();

private:
    void adaptersChanged() override;
    void deviceAppeared(DeviceNode& device) override;
    void deviceChanged(DeviceNode& device, const ObjectTree::DeviceChange& change) override;
    void deviceVanished(const DeviceNode& device) override;
    void unknownDeviceSignalled(std::string_view path) override;
    void attributesAdded(std::string_view device) override;
    void valueChanged(std::string_view characteristic, Bytes value) override;

    void airIsQuiet() override;
    void discoveryEnded() override;
    void discoveryRefused() override;
    void diagnose(const char* call, const Reply& reply) override;

    void serviceChanged();
    void lookAgainSoon();
    void waitForRecovery();
    const AdapterNode* adapter() const;
    void publish();
    void loseLinks();
    void linkChanged(Link& link);
    void updateDiscovery();
    void heard(DeviceNode& device);
    bool isHeldByOthers(const DeviceNode& device);
    GattSession* sessionOf(std::string_view characteristic);

    const BlueZOptions options_;
    EventLoop& loop_;
    const Diagnostics diagnostics_;
    BlueZService service_;
    Discovery discovery_;
    std::map<std::string, unsigned, std::less<>> troubles_;
    const Link::Surroundings surroundings_;
    std::map<std::string, std::shared_ptr<Link>, std::less<>> links_;
    std::vector<Central*> centrals_;
    std::string adapter_;  // Path; empty for none.
    CBManagerState published_ = CBManagerState::unknown;
    bool refused_ = false;
    std::unique_ptr<Timer> recovery_;  // Runs while the service is expected to come back.
    std::unique_ptr<Timer> patrol_;    // Runs while devices are looked for.
    std::unique_ptr<Timer> doubt_;     // Runs until everything is read again.
    std::vector<std::function<void()>> losses_;
    std::unique_ptr<Timer> lossesDue_;
    // Grows with each scan that begins; a device that everybody who scans has been told of keeps the count.
    std::uint64_t scans_ = 0;
    std::ptrdiff_t scanners_ = 0;
};

}  // namespace corvane::bluez
