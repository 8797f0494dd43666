// The device side of a link: what is advertised, what is offered, and what is done when a central asks.
// One class of this kind runs on the simulated radio, on a stand-in of a system's Bluetooth service, and on
// the air through a real one; the host of each is a PeripheralHost.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/platform/central.h"

namespace corvane {

/// How a characteristic may be used; the values are the property bits of GATT.
namespace gatt {
inline constexpr unsigned read = 0x02;
inline constexpr unsigned writeWithoutResponse = 0x04;
inline constexpr unsigned write = 0x08;
inline constexpr unsigned notify = 0x10;
inline constexpr unsigned indicate = 0x20;
}  // namespace gatt

struct GattCharacteristic {
    CBUUID uuid;
    unsigned properties = 0;  ///< Bits of `gatt`.
};

struct GattService {
    CBUUID uuid;
    std::vector<GattCharacteristic> characteristics;
};

/// What a device can do while a central is linked to it. Valid from `connected` until `disconnected` returns.
class PeripheralHost {
public:
    /// Sends a value to the central, if it has subscribed; otherwise the value is lost, as on the air.
    virtual void notify(const CBUUID& characteristic, Bytes value) = 0;

    /// Runs a task later, on the host's queue. Tasks that are still waiting when the link ends are dropped.
    virtual void after(std::chrono::nanoseconds delay, std::function<void()> task) = 0;

    /// Ends the link from the device's side. `disconnected` follows, not from inside this call.
    virtual void disconnect() = 0;

protected:
    ~PeripheralHost() = default;
};

/// A device is a description and what it does; the defaults do nothing, so that a small one is twenty lines.
/// It advertises whenever no central is linked. Calls come one at a time, on the host's queue; the host keeps
/// the device alive while it calls. Characteristics of one device have different UUIDs.
class PeripheralDevice {
public:
    virtual ~PeripheralDevice() = default;

    virtual std::string name() const = 0;
    virtual std::vector<GattService> services() const = 0;

    /// `host` stays valid until `disconnected` has returned.
    virtual void connected(PeripheralHost& /*host*/) {}
    virtual void disconnected() {}

    /// The central turned notifications or indications on or off. Also called when it asks again.
    virtual void subscribed(const CBUUID& /*characteristic*/, bool /*enabled*/) {}

    virtual void written(const CBUUID& /*characteristic*/, Bytes /*value*/,
                         CBCharacteristicWriteType /*type*/) {}
};

}  // namespace corvane
