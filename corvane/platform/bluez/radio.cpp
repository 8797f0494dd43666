#include "corvane/platform/bluez/radio.h"

#include <algorithm>

#include "corvane/platform/bluez/bluez_names.h"
#include "corvane/platform/bluez/central.h"

namespace corvane::bluez {
namespace {

// BlueZ reports an adapter that is switched off 30 ms after its links.
constexpr auto lossesWait = std::chrono::milliseconds(100);
// While devices are looked for, one whose appearance was not signalled is found by a read.
constexpr auto patrolInterval = std::chrono::seconds(20);
// What has to be read again is read at most this often.
constexpr auto doubtDelay = std::chrono::seconds(1);
// How long a service that went away may take until it and its adapter are back.
constexpr auto recoveryTime = std::chrono::seconds(10);

}  // namespace

Radio::Radio(BlueZOptions options, EventLoop& loop, Diagnostics diagnostics)
    : options_(std::move(options)), loop_(loop), diagnostics_(std::move(diagnostics)),
      service_(
          options_.busAddress, loop, *this, [this] { serviceChanged(); }, diagnostics_),
      discovery_(service_, loop, *this), surroundings_{.service = service_,
                                                       .loop = loop,
                                                       .discovery = discovery_,
                                                       .notifyPath = options_.notifyPath,
                                                       .diagnose = diagnostics_,
                                                       .troubles = troubles_,
                                                       .changed = [this](Link& link) { linkChanged(link); }} {
}

Radio::~Radio() {
    // Nothing is started any more while the parts go.
    discovery_.useAdapter({});
}

void Radio::diagnose(const char* call, const Reply& reply) {
    std::string line = std::string(call) + ": ";
    line += reply.errorText();
    diagnostics_(line);
    // The adapter went off without a signal.
    if (reply.is(errorNotReady)) lookAgainSoon();
}

const AdapterNode* Radio::adapter() const {
    const auto& adapters = service_.tree().adapters();
    const auto found = adapters.find(adapter_);
    return found == adapters.end() ? nullptr : &found->second;
}

CBManagerState Radio::state() const {
    using Presence = BlueZService::Presence;
    if (service_.presence() == Presence::unknown) return CBManagerState::unknown;
    if (service_.presence() == Presence::refused || refused_) return CBManagerState::unauthorized;
    if (const AdapterNode* used = adapter())
        return used->powered ? CBManagerState::poweredOn : CBManagerState::poweredOff;
    return recovery_ ? CBManagerState::resetting : CBManagerState::unsupported;
}

void Radio::publish() {
    const CBManagerState now = state();
    if (now == CBManagerState::unknown || now == published_) return;
    const bool wasOn = published_ == CBManagerState::poweredOn;
    published_ = now;
    for (Central* central : centrals_) central->radioIs(now);
    tellLossesNow();
    if (wasOn) loseLinks();
    discovery_.useAdapter(now == CBManagerState::poweredOn ? adapter_ : std::string());
    updateDiscovery();
}

void Radio::loseLinks() {
    // Values that still come may make their receivers ask for new links.
    for (const auto& [device, link] : std::map(links_)) link->radioLost();
}

void Radio::serviceChanged() {
    refused_ = false;
    if (service_.presence() == BlueZService::Presence::absent && !adapter_.empty()) waitForRecovery();
    adaptersChanged();
}

void Radio::waitForRecovery() {
    recovery_ = loop_.after(recoveryTime, [this] {
        recovery_.reset();
        publish();
    });
}

void Radio::adaptersChanged() {
    const AdapterNode* used = adapter();
    if (used && used->powered) return publish();
    // The loss of one adapter is told before another one takes its place.
    if (published_ == CBManagerState::poweredOn) publish();
    const AdapterNode* chosen = tree().chooseAdapter(options_.adapter);
    adapter_ = chosen ? chosen->path : std::string();
    if (chosen) recovery_.reset();
    publish();
}

void Radio::tellLoss(std::function<void()> tell) {
    if (published_ != CBManagerState::poweredOn) return tell();
    losses_.push_back(std::move(tell));
    if (!lossesDue_) lossesDue_ = loop_.after(lossesWait, [this] { tellLossesNow(); });
}

void Radio::tellLossesNow() {
    lossesDue_.reset();
    for (const auto& tell : std::exchange(losses_, {})) tell();
}

void Radio::lookAgainSoon() {
    if (doubt_) return;
    doubt_ = loop_.after(doubtDelay, [this] {
        doubt_.reset();
        service_.refresh();
    });
}

void Radio::add(Central& central) {
    centrals_.push_back(&central);
    if (published_ == CBManagerState::unknown) {
        service_.open();
    } else {
        central.radioIs(published_);
    }
}

void Radio::remove(Central& central) {
    std::erase(centrals_, &central);
    updateDiscovery();
}

void Radio::scanStarted(Central& central) {
    ++scans_;
    updateDiscovery();
    tree().forEachDevice(adapter_, [&](const DeviceNode& device) {
        if (device.inReach || isHeldByOthers(device)) central.heard(device);
    });
}

// Somebody else's link, or one that an earlier run of this program has left, keeps the device from
// advertising; it would never be heard.
bool Radio::isHeldByOthers(const DeviceNode& device) { return device.connected && !findLink(device.path); }

void Radio::scanStopped() { updateDiscovery(); }

void Radio::updateDiscovery() {
    scanners_ = std::count_if(centrals_.begin(), centrals_.end(),
                              [](const Central* central) { return central->isScanning(); });
    const bool sought = std::any_of(links_.begin(), links_.end(),
                                    [](const auto& entry) { return entry.second->waitsForDevice(); });
    discovery_.want(scanners_ > 0 || sought);
    if (!discovery_.isWanted()) {
        patrol_.reset();
    } else if (!patrol_) {
        patrol_ = loop_.scheduleTimer(patrolInterval, [this] { service_.refresh(); });
    }
}

void Radio::deviceAppeared(DeviceNode& device) {
    if (Link* link = findLink(device.path)) link->deviceAppeared(device);
    // BlueZ makes an object of what it hears, also where it does not say how loud that was.
    heard(device);
}

void Radio::deviceChanged(DeviceNode& device, const ObjectTree::DeviceChange& change) {
    // A device speaks on an adapter that was said to be off.
    if (change.heard && state() == CBManagerState::poweredOff && device.adapterPath() == adapter_)
        lookAgainSoon();
    if (change.renamed) device.toldAt = 0;
    if (change.heard || change.renamed || (change.connection && isHeldByOthers(device))) heard(device);
    if (!change.connection && !change.services) return;
    if (Link* link = findLink(device.path)) link->deviceChanged(device, change);
}

void Radio::heard(DeviceNode& device) {
    if (scanners_ == 0 || device.toldAt == scans_ || device.adapterPath() != adapter_) return;
    // A name may change while the device is linked, and does not advertise.
    if (device.connected && findLink(device.path)) return;
    device.toldAt = scans_;
    device.inReach = true;
    for (Central* central : centrals_) {
        if (central->isScanning()) central->heard(device);
    }
}

void Radio::deviceVanished(const DeviceNode& device) {
    for (Central* central : centrals_) central->vanished(device);
    if (Link* link = findLink(device.path)) link->deviceVanished();
}

void Radio::unknownDeviceSignalled(std::string_view /*path*/) {
    if (discovery_.isWanted()) lookAgainSoon();
}

void Radio::attributesAdded(std::string_view device) {
    if (Link* link = findLink(device)) link->attributesAdded();
}

void Radio::valueChanged(std::string_view characteristic, Bytes value) {
    if (GattSession* session = sessionOf(characteristic)) session->valueSignalled(characteristic, value);
}

GattSession* Radio::sessionOf(std::string_view characteristic) {
    const Link* link = findLink(parentOf(parentOf(characteristic)));
    return link ? link->session() : nullptr;
}

std::string Radio::pathInUse(std::string_view device) const {
    return adapter_ + std::string(device.substr(parentOf(device).size()));
}

Link& Radio::linkTo(const std::string& device) {
    auto& link = links_[device];
    if (!link) link = std::make_shared<Link>(surroundings_, device);
    return *link;
}

Link* Radio::findLink(std::string_view device) {
    const auto found = links_.find(device);
    return found == links_.end() ? nullptr : found->second.get();
}

void Radio::linkChanged(Link& link) {
    const auto found = links_.find(link.device());
    if (link.isOver() && found != links_.end() && found->second.get() == &link) {
        // It is in the middle of something.
        loop_.post([kept = found->second] {});
        links_.erase(found);
    }
    updateDiscovery();
}

void Radio::airIsQuiet() {
    for (const auto& [device, link] : links_) link->airIsQuiet();
}

void Radio::discoveryEnded() {
    tree().forEachDevice(adapter_, [](DeviceNode& device) { device.inReach = false; });
}

void Radio::discoveryRefused() {
    refused_ = true;
    publish();
}

}  // namespace corvane::bluez
