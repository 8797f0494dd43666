// The radio as a driver sees it: the BLE central role, under CoreBluetooth's names.
//
// Rules that every back end keeps, and that the conformance suite checks:
//
//  * Everything happens on the platform's main queue. Operations are called there, and events are delivered
//    there, one at a time, never from inside the call that asked for them.
//  * Delegates are held weakly. While an event is delivered the back end keeps the delegate, the central and
//    the peripheral alive, so any of them may be let go by whoever handles the event.
//  * Service and characteristic lists are immutable snapshots. A new discovery makes new objects; what was
//    handed out before keeps its contents and may still be used for operations.
//  * The service and the characteristic that an event carries are elements of the peripheral's list at that
//    moment.
//  * A peripheral object belongs to one central. One device is one peripheral object for the life of that
//  central.
//  * Operations on something that is gone (link lost, adapter off, list replaced) do nothing and are
//  harmless.
//  * An adapter that goes off tells its new state first, and then the end of each link that stood, each once.
//  Inside the latter `state()` is the new one already, so nobody begins a search in vain.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/platform/cb_uuid.h"

namespace corvane {

using Bytes = std::span<const std::uint8_t>;

inline bool isSame(Bytes a, Bytes b) { return std::equal(a.begin(), a.end(), b.begin(), b.end()); }

/// State of the Bluetooth adapter. A new central says `unknown` until its first state event.
enum class CBManagerState { unknown, resetting, unsupported, unauthorized, poweredOff, poweredOn };

/// By case, in order.
inline constexpr std::array<std::string_view, 6> managerStateNames{
    "unknown", "resetting", "unsupported", "unauthorized", "poweredOff", "poweredOn"};
/// "poweredOn", ...
constexpr std::string_view nameOf(CBManagerState state) {
    return managerStateNames[static_cast<std::size_t>(state)];
}

enum class CBCharacteristicWriteType { withResponse, withoutResponse };

/// A platform error; the drivers use its text and nothing else.
struct CBError {
    std::string localizedDescription;  ///< Valid UTF-8; a back end replaces what is not.
};

/// A discovered characteristic. Back ends derive from it to find their own handle again.
struct CBCharacteristic {
    CBUUID uuid;
};
using CharacteristicRef = std::shared_ptr<const CBCharacteristic>;

/// A discovered service. Back ends derive from it to find their own handle again.
struct CBService {
    CBUUID uuid;
    /// Absent until the service's characteristics have been discovered, or where the platform has no list.
    std::optional<std::vector<CharacteristicRef>> characteristics;
};
using ServiceRef = std::shared_ptr<const CBService>;

class CBPeripheral;
using PeripheralRef = std::shared_ptr<CBPeripheral>;

/// Receives what happens on one peripheral. Events come on the main queue.
/// Derive publicly: `std::weak_ptr` to this base must be convertible from the derived class.
class CBPeripheralDelegate {
public:
    /// `services()` of the peripheral has been set. `error` may be null.
    virtual void didDiscoverServices(const PeripheralRef& peripheral, const CBError* error) = 0;

    /// `service` is the new snapshot, with its characteristics. `error` may be null.
    virtual void didDiscoverCharacteristicsFor(const PeripheralRef& peripheral, const ServiceRef& service,
                                               const CBError* error) = 0;

    /// A notified or indicated value. The bytes are valid during the call only. An absent value and an empty
    /// one are different things.
    virtual void didUpdateValueFor(const PeripheralRef& peripheral, const CharacteristicRef& characteristic,
                                   std::optional<Bytes> value, const CBError* error) = 0;

protected:
    ~CBPeripheralDelegate() = default;
};

/// A device that was discovered, and the link to it.
class CBPeripheral {
public:
    virtual ~CBPeripheral() = default;

    /// The advertised name as it is known now; absent when the device sends none. Valid UTF-8, but otherwise
    /// whatever the neighbour chose to send: escape it before it reaches a terminal.
    virtual std::optional<std::string> name() const = 0;

    /// Upper-case UUID text that the platform assigned; the same for one device for as long as the platform
    /// says.
    virtual const std::string& identifier() const = 0;

    /// Held weakly. An empty pointer detaches.
    virtual void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) = 0;

    /// The last discovered list; absent when services were not discovered on this link.
    virtual std::optional<std::vector<ServiceRef>> services() const = 0;

    /// Answered by `didDiscoverServices`. An empty list of wanted UUIDs means all services.
    virtual void discoverServices(std::span<const CBUUID> wanted) = 0;

    /// Answered by `didDiscoverCharacteristicsFor`. An empty list of wanted UUIDs means all characteristics.
    virtual void discoverCharacteristics(std::span<const CBUUID> wanted, const CBService& service) = 0;

    /// Turns notifications or indications on or off. No value that the device sends after it saw the
    /// subscription is lost.
    virtual void setNotifyValue(bool enabled, const CBCharacteristic& characteristic) = 0;

    /// The bytes are copied before the call returns. Writes reach the device in the order of the calls.
    virtual void writeValue(Bytes value, const CBCharacteristic& characteristic,
                            CBCharacteristicWriteType type) = 0;
};

/// Receives what happens to the adapter and to links. Events come on the main queue.
class CBCentralManagerDelegate {
public:
    /// The adapter's state is known for the first time, or has changed; ask `state()`. Links that ended with
    /// the adapter are told after it.
    virtual void didUpdateState() = 0;

    /// Once per device and scan, and again when its name comes or changes during the scan.
    virtual void didDiscover(const PeripheralRef& peripheral) = 0;

    virtual void didConnect(const PeripheralRef& peripheral) = 0;

    /// The link was there and is gone, whoever ended it. `error` is null when this side asked for it.
    virtual void didDisconnectPeripheral(const PeripheralRef& peripheral, const CBError* error) = 0;

protected:
    ~CBCentralManagerDelegate() = default;
};

/// The central role. Letting go of a central ends its scan and its links; none of its events follow.
class CBCentralManager {
public:
    virtual ~CBCentralManager() = default;

    /// What the last delivered state event said; `unknown` before the first one.
    virtual CBManagerState state() const = 0;

    /// Reports every advertiser, with no filter. Scanning while scanning starts the scan anew: every device
    /// in reach is reported again.
    virtual void scanForPeripherals() = 0;
    virtual void stopScan() = 0;

    /// Has no time limit: the attempt lasts until the link stands, it is cancelled, or the adapter goes off.
    virtual void connect(const PeripheralRef& peripheral) = 0;

    /// Ends the link or the attempt. `didDisconnectPeripheral` follows where there was a link.
    virtual void cancelPeripheralConnection(const PeripheralRef& peripheral) = 0;
};

}  // namespace corvane
