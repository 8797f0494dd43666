// The central and the peripherals that a recorded driver sees. Each stands before one of the real platform
// and is its delegate.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sessions/recording_platform.h"

namespace corvane::sessions {

class RecordingPeripheral final : public CBPeripheral,
                                  public CBPeripheralDelegate,
                                  public std::enable_shared_from_this<RecordingPeripheral> {
public:
    RecordingPeripheral(std::shared_ptr<RecordingPlatform> platform, PeripheralRef inner, std::string label)
        : platform_(std::move(platform)), inner_(std::move(inner)), label_(std::move(label)) {}

    const std::string& label() const { return label_; }
    const PeripheralRef& inner() const { return inner_; }
    void rename(std::optional<std::string> name) { name_ = std::move(name); }
    void linkChanged() { earlyValues_.clear(); }

    std::optional<std::string> name() const override { return name_; }
    const std::string& identifier() const override { return inner_->identifier(); }

private:
    struct Characteristic;
    struct Service;
    /// A value of a service whose characteristics are about to be discovered anew.
    struct EarlyValue {
        CharacteristicRef characteristic;
        std::optional<std::vector<std::uint8_t>> value;
        std::optional<CBError> error;
    };

    void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override;
    std::optional<std::vector<ServiceRef>> services() const override { return services_; }
    void discoverServices(std::span<const CBUUID> wanted) override;
    void discoverCharacteristics(std::span<const CBUUID> wanted, const CBService& service) override;
    void setNotifyValue(bool enabled, const CBCharacteristic& characteristic) override;
    void writeValue(Bytes value, const CBCharacteristic& characteristic,
                    CBCharacteristicWriteType type) override;

    void didDiscoverServices(const PeripheralRef& peripheral, const CBError* error) override;
    void didDiscoverCharacteristicsFor(const PeripheralRef& peripheral, const ServiceRef& service,
                                       const CBError* error) override;
    void didUpdateValueFor(const PeripheralRef& peripheral, const CharacteristicRef& characteristic,
                           std::optional<Bytes> value, const CBError* error) override;

    Json eventLine(std::string_view event) const { return {{"event", event}, {"peripheral", label_}}; }
    std::optional<std::size_t> placeOf(const ServiceRef& service) const;
    CharacteristicRef wrapperOf(const CharacteristicRef& characteristic) const;
    void deliverEarlyValues();

    const std::shared_ptr<RecordingPlatform> platform_;
    const PeripheralRef inner_;
    const std::string label_;
    std::optional<std::string> name_;
    std::optional<std::vector<ServiceRef>> services_;
    std::weak_ptr<CBPeripheralDelegate> delegate_;
    std::vector<EarlyValue> earlyValues_;
};

class RecordingCentral final : public CBCentralManager, public CBCentralManagerDelegate {
public:
    static std::shared_ptr<CBCentralManager> make(std::shared_ptr<RecordingPlatform> platform,
                                                  Platform& inner,
                                                  std::weak_ptr<CBCentralManagerDelegate> delegate);

    RecordingCentral(std::shared_ptr<RecordingPlatform> platform,
                     std::weak_ptr<CBCentralManagerDelegate> delegate)
        : platform_(std::move(platform)), delegate_(std::move(delegate)) {}

private:
    CBManagerState state() const override { return state_; }
    void scanForPeripherals() override;
    void stopScan() override;
    void connect(const PeripheralRef& peripheral) override;
    void cancelPeripheralConnection(const PeripheralRef& peripheral) override;

    void didUpdateState() override;
    void didDiscover(const PeripheralRef& peripheral) override;
    void didConnect(const PeripheralRef& peripheral) override;
    void didDisconnectPeripheral(const PeripheralRef& peripheral, const CBError* error) override;

    std::shared_ptr<RecordingPeripheral> wrapperOf(const PeripheralRef& peripheral);

    const std::shared_ptr<RecordingPlatform> platform_;
    const std::weak_ptr<CBCentralManagerDelegate> delegate_;
    std::shared_ptr<CBCentralManager> inner_;
    CBManagerState state_ = CBManagerState::unknown;  ///< What the script's last state event says.
    std::map<CBPeripheral*, std::shared_ptr<RecordingPeripheral>> peripherals_;
};

}  // namespace corvane::sessions
