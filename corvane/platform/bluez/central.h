// What the drivers hold: the central role and its devices.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "corvane/platform/bluez/radio.h"

namespace corvane::bluez {

class Peripheral;

class Central final : public CBCentralManager, public std::enable_shared_from_this<Central> {
public:
    static std::shared_ptr<Central> make(const std::shared_ptr<Radio>& radio,
                                         std::weak_ptr<CBCentralManagerDelegate> delegate);
    ~Central() override;

    CBManagerState state() const override { return state_; }
    void scanForPeripherals() override;
    void stopScan() override;
    void connect(const PeripheralRef& peripheral) override;
    void cancelPeripheralConnection(const PeripheralRef& peripheral) override;

    bool isScanning() const { return scanning_; }
    /// The radio has another state; the delegate learns of it from the queue.
    void radioIs(CBManagerState state);
    /// The device is in reach while this central scans.
    void heard(const DeviceNode& device);
    void vanished(const DeviceNode& device);

    /// Queues `event(central, delegate)`, to be called unless one of the two is gone by then.
    template <class Event>
    void deliver(Event event);

private:
    struct Acquaintance {
        std::shared_ptr<Peripheral> kept;  // While BlueZ knows the device.
        std::weak_ptr<Peripheral> peripheral;
        std::uint64_t toldInScan = 0;
        std::optional<std::string> toldName;
    };
    struct IdentifierHash {
        std::size_t operator()(const CBUUID& identifier) const;
    };

    Central(const std::shared_ptr<Radio>& radio, std::weak_ptr<CBCentralManagerDelegate> delegate);
    void forgetStrangers();
    std::shared_ptr<Peripheral> acquaint(Acquaintance& acquaintance, const DeviceNode& device);
    Peripheral* own(const PeripheralRef& peripheral);

    const std::weak_ptr<Radio> radio_;
    const std::weak_ptr<CBCentralManagerDelegate> delegate_;
    CBManagerState state_ = CBManagerState::unknown;
    bool scanning_ = false;
    std::uint64_t scan_ = 0;
    std::unordered_map<CBUUID, Acquaintance, IdentifierHash> acquaintances_;
    std::size_t mostAcquaintances_;
};

class Peripheral final : public CBPeripheral,
                         public LinkListener,
                         public std::enable_shared_from_this<Peripheral> {
public:
    Peripheral(std::weak_ptr<Radio> radio, std::weak_ptr<Central> central, const DeviceNode& device);

    std::optional<std::string> name() const override;
    const std::string& identifier() const override { return identifierText_; }
    void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override {
        delegate_ = std::move(delegate);
    }
    std::optional<std::vector<ServiceRef>> services() const override { return services_; }
    void discoverServices(std::span<const CBUUID> wanted) override;
    void discoverCharacteristics(std::span<const CBUUID> wanted, const CBService& service) override;
    void setNotifyValue(bool enabled, const CBCharacteristic& characteristic) override;
    void writeValue(Bytes value, const CBCharacteristic& characteristic,
                    CBCharacteristicWriteType type) override;

    const std::string& device() const { return device_; }
    bool belongsTo(const Central& central) const;
    /// The device may have another path on another adapter. A link is found again by the path for which it
    /// was asked.
    void follow(const DeviceNode& device) {
        if (!wantsLink_) device_ = device.path;
    }

    void connect(Radio& radio);
    void cancel(Radio& radio);

private:
    void linkStands(const std::shared_ptr<GattSession>& session) override;
    bool servicesResolved(bool last) override;
    bool isOutdated() const override;
    void linkEnded(const CBError* error) override;
    void attemptEnded() override;
    void valueArrived(std::string_view characteristic, Bytes value) override;

    void forgetLink();
    bool isCurrent(const std::weak_ptr<GattSession>& foundOn) const {
        return session_ && foundOn.lock() == session_;
    }
    template <class Event>
    void deliver(Event event);
    Link* link() const;
    bool offers(const std::vector<CBUUID>& wanted) const;
    void tellServices(const std::vector<CBUUID>& wanted);
    void tellCharacteristics(const std::vector<CBUUID>& wanted, const std::string& service);
    CharacteristicRef findCharacteristic(std::string_view path) const;

    const std::weak_ptr<Radio> radio_;
    const std::weak_ptr<Central> central_;
    const CBUUID identifier_;
    const std::string identifierText_;
    std::string device_;
    mutable std::optional<std::string> name_;
    std::weak_ptr<CBPeripheralDelegate> delegate_;
    bool wantsLink_ = false;
    bool told_ = false;                     // Of a link whose end is still to be told.
    std::uint64_t attempt_ = 0;             // Another one after each cancellation.
    std::shared_ptr<GattSession> session_;  // While the link stands and is wanted.
    std::vector<std::vector<CBUUID>> servicesAsked_;
    std::optional<std::vector<ServiceRef>> services_;
};

}  // namespace corvane::bluez
