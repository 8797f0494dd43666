// The device side on the air: any PeripheralDevice, through BlueZ's GATT and advertising managers.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "corvane/platform/peripheral_device.h"

namespace corvane {

struct BlueZPeripheralOptions {
    std::string adapter = "hci0";
    /// A D-Bus address. Empty: the system bus.
    std::string busAddress;
    /// Told, a line each, how the registration stands; of its links the device hears itself. May be absent.
    /// Must not throw, nor let the peripheral go. The texts can hold what another process sends: use
    /// `printable` before they reach a terminal.
    std::function<void(std::string_view line)> onChange;
};

/// Puts one device on the air of one adapter: its name (advertised, and as the adapter's Alias, which is the
/// device name that a central reads), its services, its values. An adapter holds one device at a time.
///
/// It waits for the service and for the adapter, registers anew whenever they come back, and ends the link,
/// withdraws everything and restores the Alias when it is let go. One thread: everything happens inside
/// `runUntil`.
class BlueZPeripheral {
public:
    enum class State {
        waiting,  ///< For the service, for the adapter, or for the adapter to be switched on.
        registering,
        advertising,
        linked,
        refused,  ///< By the service, tried again when it or the adapter changes; or there is no bus.
    };

    /// The device is not null.
    BlueZPeripheral(std::shared_ptr<PeripheralDevice> device, BlueZPeripheralOptions options);
    ~BlueZPeripheral();
    BlueZPeripheral(const BlueZPeripheral&) = delete;
    BlueZPeripheral& operator=(const BlueZPeripheral&) = delete;

    State state() const;

    /// Has `runUntil` ask `done` again. Any thread and any signal handler may call it while the peripheral
    /// lives: it takes no lock and allocates nothing.
    void wake() noexcept;

    /// Runs until `done` returns true or the time is over, and returns what `done` returned last. `done` is
    /// asked before each wait. Not to be called from inside itself. `std::chrono::nanoseconds::max()` is for
    /// ever.
    bool runUntil(const std::function<bool()>& done, std::chrono::nanoseconds limit);

private:
    class Registration;
    std::unique_ptr<Registration> registration_;
};

}  // namespace corvane
