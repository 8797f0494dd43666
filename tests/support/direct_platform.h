// A platform on which nothing happens by itself: whoever holds it is the radio, and each event is a plain
// call.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "corvane/platform/peripheral_device.h"
#include "corvane/platform/platform.h"

namespace corvane {

/// The one device in reach.
class DirectPeripheral final : public CBPeripheral {
public:
    DirectPeripheral(std::string name, const std::vector<GattService>& offered) : name_(std::move(name)) {
        for (const GattService& service : offered) {
            std::vector<CharacteristicRef> list;
            for (const GattCharacteristic& characteristic : service.characteristics) {
                list.push_back(std::make_shared<CBCharacteristic>(CBCharacteristic{characteristic.uuid}));
            }
            characteristics.insert(characteristics.end(), list.begin(), list.end());
            services_.push_back(std::make_shared<CBService>(CBService{service.uuid, std::move(list)}));
        }
    }

    std::optional<std::string> name() const override { return name_; }
    const std::string& identifier() const override { return identifier_; }
    void setDelegate(std::weak_ptr<CBPeripheralDelegate> to) override { delegate = std::move(to); }
    std::optional<std::vector<ServiceRef>> services() const override { return services_; }
    void discoverServices(std::span<const CBUUID>) override {}
    void discoverCharacteristics(std::span<const CBUUID>, const CBService&) override {}
    void setNotifyValue(bool, const CBCharacteristic&) override {}
    void writeValue(Bytes, const CBCharacteristic&, CBCharacteristicWriteType) override {}

    std::weak_ptr<CBPeripheralDelegate> delegate;
    std::vector<CharacteristicRef> characteristics;  ///< Of all services, in order.

private:
    std::string name_;
    std::string identifier_ = "6E400001-B5A3-F393-E0A9-E50E24DCCA9E";
    std::vector<ServiceRef> services_;
};

class DirectPlatform final : public Platform, private MainQueue {
public:
    explicit DirectPlatform(const PeripheralDevice& device)
        : peripheral(std::make_shared<DirectPeripheral>(device.name(), device.services())) {
        logSink = [](std::string_view) {};
    }

    std::shared_ptr<CBCentralManager>
    makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) override {
        delegate_ = std::move(delegate);
        return std::make_shared<Central>();
    }
    MainQueue& mainQueue() override { return *this; }

    /// Takes a driver that is scanning to where values arrive.
    void link() {
        const auto central = delegate_.lock();
        if (!central) return;
        central->didUpdateState();
        central->didDiscover(peripheral);
        central->didConnect(peripheral);
        if (const auto link = peripheral->delegate.lock()) {
            link->didDiscoverServices(peripheral, nullptr);
            const auto services = peripheral->services();
            for (const ServiceRef& service : *services) {
                link->didDiscoverCharacteristicsFor(peripheral, service, nullptr);
            }
        }
        runTasks();
    }

    void unlink() {
        if (const auto central = delegate_.lock()) central->didDisconnectPeripheral(peripheral, nullptr);
    }

    void runTasks() {
        while (!tasks_.empty()) {
            const std::function<void()> task = std::move(tasks_.front());
            tasks_.pop_front();
            task();
        }
    }

    /// Fires the timer that was scheduled last, if it is still held.
    void tick() {
        if (const auto last = tick_.lock()) (*last)();
    }

    const std::shared_ptr<DirectPeripheral> peripheral;

private:
    struct Central final : CBCentralManager {
        CBManagerState state() const override { return CBManagerState::poweredOn; }
        void scanForPeripherals() override {}
        void stopScan() override {}
        void connect(const PeripheralRef&) override {}
        void cancelPeripheralConnection(const PeripheralRef&) override {}
    };
    struct DirectTimer final : Timer {
        explicit DirectTimer(std::function<void()> tick)
            : tick(std::make_shared<std::function<void()>>(std::move(tick))) {}
        const std::shared_ptr<std::function<void()>> tick;
    };

    void post(std::function<void()> task) override { tasks_.push_back(std::move(task)); }
    std::unique_ptr<Timer> scheduleTimer(std::chrono::nanoseconds, std::function<void()> tick) override {
        auto timer = std::make_unique<DirectTimer>(std::move(tick));
        tick_ = timer->tick;
        return timer;
    }

    std::weak_ptr<CBCentralManagerDelegate> delegate_;
    std::deque<std::function<void()>> tasks_;
    std::weak_ptr<std::function<void()>> tick_;
};

}  // namespace corvane
