// The air around the stand-in of CoreBluetooth: its adapter, the devices in reach, and what tests do to them.
//
// It imitates what the vendor documents. Where that leaves room, the stand-in takes the hardest course: an
// adapter's or a link's state is another at once, before the event that tells; a value's bytes are written
// over by the next value; an attempt that is cancelled ends with a disconnect event; a scan that is on
// already reports nothing again.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "corvane/platform/peripheral_device.h"

namespace standin {

/// What the documentation leaves open, for tests to choose.
struct StackBehaviour {
    /// Whether links that end with the adapter are reported one by one, and when.
    enum class PowerOff { silent, linksBeforeState, linksAfterState };

    PowerOff powerOff = PowerOff::silent;
    /// Reports a device for its advert, and again for its scan response.
    bool repeatsDiscoveries = false;
    /// A link that is cancelled shows as connected until its end is told.
    bool showsLinksToTheirEnd = false;
    /// What is on its way reaches the delegate that it was meant for, whatever has become of that since; a
    /// link stands before anything tells of it.
    bool deliversLate = false;
};

namespace radio {

/// A new air, empty, with the adapter in this state.
void reset(StackBehaviour behaviour = {}, corvane::CBManagerState state = corvane::CBManagerState::poweredOn);

/// A number, as later systems may have more states than are known now.
void setState(long state);
inline void setState(corvane::CBManagerState state) { setState(static_cast<long>(state)); }

using Device = corvane::PeripheralDevice;

void add(std::shared_ptr<Device> device);
void remove(const Device& device);
void loseLink(const Device& device);
void failNextConnect(const Device& device);
std::string identifier(const Device& device);

/// What the system says each time to an attempt to connect, a subscription, a write; absent, none is refused.
struct Refusals {
    std::optional<std::string> connection, subscription, write;
};
Refusals& refusals(const Device& device);

/// The device's name has changed, as its adverts show.
void nameChanged(const Device& device);
/// Instead of the device's own name: bytes that need be no valid UTF-8, or no name at all.
void setName(const Device& device, std::optional<std::string> name);

/// The device withdraws the service and offers it anew.
void changeService(const Device& device, const corvane::CBUUID& service);
/// From now on discovery on this device ends with an error and without a list.
void failDiscovery(const Device& device);
/// A value event as the stack would make it, with whatever a test wants in it.
void sendValue(const Device& device, const corvane::CBUUID& characteristic,
               std::optional<corvane::Bytes> value, std::optional<std::string> error);

/// Managers alive, managers that scan, and links and attempts that they hold.
std::size_t managers();
std::size_t scans();
std::size_t links();

/// How many operations managers and peripherals were asked for, those not counted that end a scan or a link.
std::size_t operations();

/// What the system would refuse or complain about in its log, since the last call.
std::vector<std::string> takeMisuses();

}  // namespace radio
}  // namespace standin
