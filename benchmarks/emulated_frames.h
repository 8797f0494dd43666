#pragma once

#include "benchmarks/measuring.h"
#include "corvane/platform/simulated/simulated_radio.h"

namespace corvane::benchmarks {

/// Passes everything on, and keeps what the device notifies.
class Tap final : public PeripheralDevice, private PeripheralHost {
public:
    explicit Tap(std::unique_ptr<PeripheralDevice> device) : device_(std::move(device)) {}

    std::string name() const override { return device_->name(); }
    std::vector<GattService> services() const override { return device_->services(); }
    void connected(PeripheralHost& host) override {
        host_ = &host;
        device_->connected(*this);
    }
    void disconnected() override { device_->disconnected(); }
    void subscribed(const CBUUID& characteristic, bool enabled) override {
        device_->subscribed(characteristic, enabled);
    }
    void written(const CBUUID& characteristic, Bytes value, CBCharacteristicWriteType type) override {
        device_->written(characteristic, value, type);
    }

    std::vector<Frame> frames;

private:
    void notify(const CBUUID& characteristic, Bytes value) override {
        frames.push_back({characteristic, {value.begin(), value.end()}});
        host_->notify(characteristic, value);
    }
    void after(std::chrono::nanoseconds delay, std::function<void()> task) override {
        host_->after(delay, std::move(task));
    }
    void disconnect() override { host_->disconnect(); }

    std::unique_ptr<PeripheralDevice> device_;
    PeripheralHost* host_ = nullptr;
};

/// What the emulated device notifies to its driver in the first minute.
template <class Driver>
std::vector<Frame> emulatedFrames() {
    SimulatedRadio radio;
    radio.logSink = [](std::string_view) {};
    const auto tap = std::make_shared<Tap>(makeEmulatorOf<Driver>({}));
    radio.add(tap);
    const auto driver = makeDriver<Driver>({}, radio);
    if constexpr (requires { driver->start(); }) {
        driver->stateLoading = [&](const auto& state) {
            if (state.isLoading()) driver->start();
        };
    }
    driver->startScan();
    radio.runFor(std::chrono::minutes(1));
    return tap->frames;
}

}  // namespace corvane::benchmarks
