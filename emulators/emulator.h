// The device side of the models. An emulator derives from `Emulator`, says what it offers, and what it does
// when it is subscribed to, written to, or when time passes; faults are the base's business. It shares its
// advertised name and UUIDs with the driver and nothing else: frames are written here a second time, so that
// a mistake on one side shows.
//
// The class knows no radio. Whoever runs it (the simulated one, a stand-in in tests, the air) is its
// PeripheralHost.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/framework/model.h"
#include "corvane/platform/peripheral_device.h"
#include "emulators/emulator_fault.h"
#include "emulators/random.h"

namespace corvane {

struct EmulatorOptions {
    /// The same seed gives the same device, the same person and the same faults.
    std::uint64_t seed = 1;
    EmulatorFault fault{};
    /// Told in words what happens, a line each; may be absent. Called on the host's queue.
    std::function<void(std::string_view line)> onEvent{};
};

class Emulator : public PeripheralDevice {
public:
    void connected(PeripheralHost& host) final;
    void disconnected() final;
    void subscribed(const CBUUID& characteristic, bool enabled) final;
    void written(const CBUUID& characteristic, Bytes value, CBCharacteristicWriteType type) final;

protected:
    explicit Emulator(const EmulatorOptions& options);

    // What a model does. The defaults do nothing.

    /// A link is there. What belongs to one link starts anew.
    virtual void linked() {}
    /// The first subscription to this characteristic on this link.
    virtual void subscribedTo(const CBUUID& /*characteristic*/) {}
    virtual void received(const CBUUID& /*characteristic*/, Bytes /*value*/) {}
    /// The person takes a reading, and the device sends it. Called through `keepMeasuring`.
    virtual void measure() {}

    // What a model can do while it is linked.

    void send(const CBUUID& characteristic, Bytes value);
    /// Runs the task later, unless the link ends before.
    void after(std::chrono::milliseconds delay, std::function<void()> task);
    /// Calls `measure` after a time between these, and from then on every few seconds.
    void keepMeasuring(std::chrono::milliseconds earliest, std::chrono::milliseconds latest);

    /// The chance of the device and of the person who uses it. Faults have their own, so that the device
    /// measures the same with them as without.
    Random& random() { return random_; }
    bool failsFirstMeasurement() const { return fault_.kind == EmulatorFault::Kind::failedMeasurement; }

private:
    /// Counts what happens; false where it does not happen any more.
    bool step(std::string_view what, const CBUUID* characteristic = nullptr, Bytes value = {});
    void deliver(const CBUUID& characteristic, Bytes value);
    std::vector<std::uint8_t> distorted(Bytes value);
    void measureAgain();

    const EmulatorFault fault_;
    const std::function<void(std::string_view)> onEvent_;
    Random random_;
    Random faultRandom_;
    const unsigned lossStep_;
    const std::chrono::milliseconds lateness_;
    unsigned steps_ = 0;

    PeripheralHost* host_ = nullptr;  ///< Set while there is a link that this device has not dropped.
    std::vector<CBUUID> seenSubscriptions_;
    bool measuring_ = false;
};

/// An emulated device of this model; null when the model is not of the catalogue.
std::unique_ptr<Emulator> makeEmulator(const Model& model, const EmulatorOptions& options);

/// The emulator of the model with this driver. Each is defined in the source of that emulator: a model
/// without one does not link.
template <class Driver>
std::unique_ptr<Emulator> makeEmulatorOf(const EmulatorOptions& options);

}  // namespace corvane
