// Any driver, with a device for it.
#pragma once

#include "corvane/devices/catalogue.h"
#include "corvane/platform/peripheral_device.h"

namespace corvane::sweep {

enum class Heard { loading, success, other };

/// A driver of which only is known what all have: callbacks, and operations without parameters.
class AnyDriver {
public:
    virtual ~AnyDriver() = default;
    virtual void startScan() = 0;
    virtual void disconnect() = 0;
    /// Asks for a measurement, where the model waits for that.
    virtual void askForMeasurement() = 0;
    virtual void callEverything() = 0;
    /// Sets every callback to one that calls `heard`.
    virtual void setCallbacks(std::function<void(Heard)> heard) = 0;
    virtual void clearCallbacks() = 0;
};

struct Subject {
    std::string name;
    std::function<std::unique_ptr<AnyDriver>(Platform&)> makeDriver;
    std::function<std::shared_ptr<PeripheralDevice>()> makeDevice;
};

/// Every driver of the catalogue, and the awkward one.
std::vector<Subject> subjects();

/// Does what no model does, but what the framework lets a driver do.
Subject awkwardSubject();

template <class Driver>
class AnyDriverOf final : public AnyDriver {
public:
    explicit AnyDriverOf(std::unique_ptr<Driver> driver) : driver_(std::move(driver)) {}

    void startScan() override { driver_->startScan(); }
    void disconnect() override { driver_->disconnect(); }
    void askForMeasurement() override {
        if constexpr (requires { driver_->start(); }) driver_->start();
    }
    void callEverything() override {
        driver_->getResult();
        driver_->disconnect();
        driver_->stopScan();
        driver_->disconnect();
        driver_->stopScan();
        driver_->startScan();
        driver_->startScan();
        askForMeasurement();
        if constexpr (requires { driver_->startResult(); }) driver_->startResult();
        if constexpr (requires { driver_->requestPayload(); }) driver_->requestPayload();
        driver_->getResult();
    }
    void setCallbacks(std::function<void(Heard)> heard) override {
        // A closure that is freed while it runs shows when it reads what it has captured.
        const auto call = [heard,
                           captured = std::string("too long to be kept inside of the string")](Heard what) {
            heard(what);
            if (captured.front() != 't') heard(what);
        };
        driver_->stateConnection = [call](StateDeviceConnection) { call(Heard::other); };
        driver_->stateCentralManager = [call](CBManagerState) { call(Heard::other); };
        driver_->stateLoading = [call](const auto& state) {
            call(state.success() ? Heard::success : state.isLoading() ? Heard::loading : Heard::other);
            // Still the state that it was, whatever happened meanwhile.
            if (const auto* info = state.success(); info && info->uuid.empty()) call(Heard::other);
        };
    }
    void clearCallbacks() override {
        driver_->stateConnection = nullptr;
        driver_->stateCentralManager = nullptr;
        driver_->stateLoading = nullptr;
    }

private:
    const std::unique_ptr<Driver> driver_;
};

}  // namespace corvane::sweep
