// The link lifecycle that all drivers share, and the points at which models differ.
//
// A driver derives a session from `Session<Info>`, states its facts in a `LinkProfile`, and overrides the
// hooks where its device departs from the common sequence:
//
//   scan -> name matches: connect, stop the scan -> discover the service -> discover its characteristics
//        -> keep the characteristic, post a task: report loading, subscribe -> values, each to a record
//
// The application's handle owns the session and may go at any moment, also in the middle of a step. Whoever
// calls into a session keeps it alive, and everything a driver can do goes through the protected operations
// below, which have no effect once the handle has gone: no driver tests its own life.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "corvane/framework/device_contract.h"
#include "corvane/framework/model.h"

namespace corvane {

struct LinkProfile {
    const Model& model;
    CBUUID characteristic;      ///< The one that the common steps keep and subscribe to.
    std::string_view notFound;  ///< Console line of `getResult` when there is no record.
    bool everyService = false;  ///< Looks into each service that matches, not only into the first.
};

/// A value that came, from whichever characteristic of the device.
struct ValueUpdate {
    const PeripheralRef& peripheral;
    const CharacteristicRef& characteristic;
    std::optional<Bytes> value;

    /// The value, an absent one being empty.
    Bytes bytes() const { return value.value_or(Bytes{}); }
    const std::string& uuid() const { return peripheral->identifier(); }
    bool isFrom(const CBUUID& wanted) const { return characteristic->uuid == wanted; }
};

/// What becomes of a platform error that came with a value.
enum class After { reportError, done };

class CentralLink : public CBCentralManagerDelegate,
                    public CBPeripheralDelegate,
                    public std::enable_shared_from_this<CentralLink> {
public:
    virtual ~CentralLink();
    CentralLink(const CentralLink&) = delete;
    CentralLink& operator=(const CentralLink&) = delete;

    void startScan();
    void stopScan();
    void disconnect();

    void attach(DeviceBase& owner) { owner_ = &owner; }

    /// The handle goes. From here on nothing has an effect, and the scan, the links and the timer end.
    void close();

protected:
    CentralLink(const LinkProfile& profile, Platform& platform) : profile_(profile), platform_(platform) {}

    // The points where models differ. The defaults are the common behaviour.

    /// A search begins, whoever asked for it.
    virtual void scanBegins() {}
    /// The application asked for the end of the link.
    virtual void disconnectRequested() {}
    /// The services of the device are known. Default: looks into the matching one, or ones.
    virtual void servicesFound(const PeripheralRef& from, const std::vector<ServiceRef>& services);
    /// Which characteristics to ask for; empty for all. The list must outlive the driver.
    virtual std::span<const CBUUID> wantedCharacteristics() const { return {}; }
    /// Called for each characteristic of the list. Default: keeps the matching one and posts `linkReady`.
    virtual void characteristicFound(const PeripheralRef& from, const CharacteristicRef& found);
    /// A task of its own, after the default of `characteristicFound`. Default: reports loading, subscribes.
    virtual void linkReady(const CharacteristicRef& found);
    /// A value came.
    virtual After valueArrived(const ValueUpdate& update) = 0;
    /// The link has ended; the application is told afterwards.
    virtual void linkEnded() {}

    virtual void reportLoading() = 0;
    virtual void reportError(const std::string& text) = 0;

    // What drivers can do.

    /// Subscribes on `on`, which may be absent.
    void subscribe(const PeripheralRef& on, const CharacteristicRef& to);
    void write(const PeripheralRef& on, const CharacteristicRef& to, Bytes value,
               CBCharacteristicWriteType type = CBCharacteristicWriteType::withResponse);
    /// Subscribes to the kept characteristic and writes the command to it; nothing while one is not there
    /// yet.
    void request(Bytes command);
    void log(std::string_view line);
    /// Runs the task once the main queue is free.
    void post(std::function<void()> task);
    /// Starts the driver's one timer; a timer that was running is invalidated first.
    void every(std::chrono::nanoseconds interval, std::function<void()> tick);
    void stopTimer() { timer_.reset(); }
    /// A documented precondition. Where it returns false, the handling of that one value must end.
    [[nodiscard]] bool require(bool holds, std::string_view what);

    /// Null once the handle has gone.
    DeviceBase* owner() const { return owner_; }
    const LinkProfile& linkProfile() const { return profile_; }

    PeripheralRef peripheral;          ///< The matched device; kept until the driver goes.
    CharacteristicRef characteristic;  ///< The characteristic that was found on it last.

private:
    void didUpdateState() final;
    void didDiscover(const PeripheralRef& found) final;
    void didConnect(const PeripheralRef& to) final;
    void didDisconnectPeripheral(const PeripheralRef& from, const CBError* error) final;
    void didDiscoverServices(const PeripheralRef& from, const CBError* error) final;
    void didDiscoverCharacteristicsFor(const PeripheralRef& from, const ServiceRef& service,
                                       const CBError* error) final;
    void didUpdateValueFor(const PeripheralRef& from, const CharacteristicRef& of, std::optional<Bytes> value,
                           const CBError* error) final;

    CBCentralManager& central();
    void cancelStoredLink();
    void nestedTooDeeply();

    const LinkProfile& profile_;
    Platform& platform_;
    DeviceBase* owner_ = nullptr;
    std::shared_ptr<CBCentralManager> centralManager_;
    std::unique_ptr<Timer> timer_;
    int scansRunning_ = 0;  ///< Calls of `startScan` that have not returned, each inside the one before.
};

/// A session that keeps its last record and reports records to a `Device<Info>`.
template <class Info>
class Session : public CentralLink {
public:
    std::optional<Info> getResult() {
        if (!result) log(linkProfile().notFound);
        return result ? std::optional<Info>(*result) : std::nullopt;
    }

protected:
    Session(const LinkProfile& profile, bool autoResult, Platform& platform)
        : CentralLink(profile, platform), autoResult(autoResult) {}

    /// Keeps the record as the result.
    void store(Info&& info) { result = std::make_shared<const Info>(std::move(info)); }

    /// Keeps the record as the result, and pushes it to the application if it wants that.
    void deliver(Info&& info) {
        store(std::move(info));
        if (autoResult) reportSuccess(result);
    }
    void reportSuccess(std::shared_ptr<const Info> info) {
        report(StateDeviceLoading<Info>::success(std::move(info)));
    }
    void report(const StateDeviceLoading<Info>& state) {
        if (auto* device = static_cast<Device<Info>*>(owner())) device->stateLoading(state);
    }
    void reportLoading() final { report(StateDeviceLoading<Info>::loading()); }
    void reportError(const std::string& text) final { report(StateDeviceLoading<Info>::error(text)); }

    const bool autoResult;
    std::shared_ptr<const Info> result;  ///< The last record; null before the first.
};

template <class Info>
Device<Info>::Device(std::shared_ptr<Session<Info>> session) : DeviceBase(std::move(session)) {}

template <class Info>
std::optional<Info> Device<Info>::getResult() {
    const auto running = session();
    return static_cast<Session<Info>&>(*running).getResult();
}

}  // namespace corvane
