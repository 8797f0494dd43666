// Bluetooth on Linux: BlueZ, over D-Bus.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "corvane/platform/platform.h"

namespace corvane {

/// The way on which notified values come from bluetoothd.
enum class BlueZNotifyPath {
    /// `busSignals`: on the socket's way bluetoothd drops what a device notifies between the moment it is
    /// subscribed to and the moment it says so, and some devices send their only reading there.
    automatic,
    /// A socket of its own for each characteristic, which costs a third of the processor time; where it is
    /// refused, signals.
    socket,
    /// A bus message for each value. (Qt's headers make a macro of the plain word "signals".)
    busSignals,
};

struct BlueZOptions {
    /// "hci1". Empty: the first adapter that is powered on, or else the first.
    std::string adapter{};
    /// A D-Bus address. Empty: the system bus.
    std::string busAddress{};
    BlueZNotifyPath notifyPath = BlueZNotifyPath::automatic;
};

/// The radio of this computer. One thread: everything happens inside `run`, `runUntil` or `process`, which
/// must not be called from inside each other. What is called from there must not throw.
///
/// A host with a loop of its own waits until `descriptor` is ready for `events`, or `timeout` is over, and
/// calls `process`; it asks for `timeout`, and then for `descriptor`, before each wait. With nothing to do
/// there is no timeout and no wake-up.
///
/// Identifiers are made from a device's address. A device that uses private addresses has another identifier
/// after it has changed its address.
class BlueZPlatform final : public Platform {
public:
    /// Does not fail, and opens nothing: the first central opens the bus. States that are BlueZ's own:
    /// `unsupported` without a bus, a service or such an adapter; `unauthorized` where the bus refuses, until
    /// the service is restarted; `resetting` for the ten seconds after the service has gone. A bus that is
    /// not there yet is looked for again, every 30 seconds in the end.
    explicit BlueZPlatform(BlueZOptions options = {});
    ~BlueZPlatform() override;

    std::shared_ptr<CBCentralManager>
    makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) override;
    MainQueue& mainQueue() override;

    /// Runs until `stop`.
    void run();
    /// Ends `run`; where none is running, the next one, as soon as it begins. Any thread and any signal
    /// handler may call it while the platform lives: it takes no lock and allocates nothing.
    void stop() noexcept;
    /// Has `runUntil` ask `done` again, or the host's own wait end. From wherever `stop` may be called.
    void wake() noexcept;
    /// Runs until `done` returns true or the time is over, and returns what `done` returned last. `done` is
    /// asked before each wait. `std::chrono::nanoseconds::max()` is for ever.
    bool runUntil(const std::function<bool()>& done, std::chrono::nanoseconds limit);

    /// -1 while the process has no descriptor left to give, which poll(2) passes over: `diagnostics` is told,
    /// `timeout` is a second at most, and `process` asks for one again.
    int descriptor() const;
    /// For poll(2); does not change.
    short events() const;
    /// How long to wait at most; none means for ever.
    std::optional<std::chrono::nanoseconds> timeout();
    /// Handles what is due, and does not wait.
    void process();

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace corvane
