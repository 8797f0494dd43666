// What every driver offers to the application: its callbacks, its operations, and the states it reports.
#pragma once

#include <array>
#include <concepts>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include "corvane/framework/callback.h"
#include "corvane/platform/platform.h"

namespace corvane {

/// The link to the device has been established, or has been lost or closed.
enum class StateDeviceConnection { connect, disconnect };

/// By case, in order.
inline constexpr std::array<std::string_view, 2> connectionNames{"connect", "disconnect"};
/// "connect" or "disconnect".
constexpr std::string_view nameOf(StateDeviceConnection state) {
    return connectionNames[static_cast<std::size_t>(state)];
}

/// How a measurement stands: `success` with the complete record, `error` with a text for the user, or
/// `loading` while the device is linked and a measurement is awaited. Copies share one immutable record.
template <class Info>
class StateDeviceLoading {
public:
    static StateDeviceLoading success(Info info) {
        return success(std::make_shared<const Info>(std::move(info)));
    }
    /// `info` is not null. A template, so that `success({...})` makes a record.
    template <std::same_as<std::shared_ptr<const Info>> Shared>
    static StateDeviceLoading success(Shared info) {
        return StateDeviceLoading(std::in_place_index<0>, std::move(info));
    }
    static StateDeviceLoading error(std::string text) {
        return StateDeviceLoading(std::in_place_index<1>, std::move(text));
    }
    static StateDeviceLoading loading() { return StateDeviceLoading(std::in_place_index<2>); }

    /// The record, or null in another case. Valid as long as this state or a copy of it.
    const Info* success() const {
        const auto* info = std::get_if<0>(&value_);
        return info ? info->get() : nullptr;
    }
    /// The text, or null in another case.
    const std::string* error() const { return std::get_if<1>(&value_); }
    bool isLoading() const { return value_.index() == 2; }

    /// Calls the function of the case that this is, and returns what it returns.
    template <class OnSuccess, class OnError, class OnLoading>
    decltype(auto) match(OnSuccess&& onSuccess, OnError&& onError, OnLoading&& onLoading) const {
        if (const Info* info = success()) return std::forward<OnSuccess>(onSuccess)(*info);
        if (const std::string* text = error()) return std::forward<OnError>(onError)(*text);
        return std::forward<OnLoading>(onLoading)();
    }

    friend bool operator==(const StateDeviceLoading& a, const StateDeviceLoading& b) {
        if (a.success() && b.success()) return *a.success() == *b.success();
        return a.value_ == b.value_;
    }

private:
    // Built in place: GCC 12 warns about a variant that is moved into a class.
    template <std::size_t Case, class... Args>
    explicit StateDeviceLoading(std::in_place_index_t<Case> which, Args&&... args)
        : value_(which, std::forward<Args>(args)...) {}

    std::variant<std::shared_ptr<const Info>, std::string, std::monostate> value_;
};

class CentralLink;
template <class Info>
class Session;

/// The part of a driver that does not depend on what it measures. Everything is called on the platform's main
/// queue, and callbacks come there. Callbacks must not throw: below them may be frames of a C library or of
/// the system, through which no exception passes. Inside any callback the application may replace or clear
/// any callback, call any operation, or destroy the driver; nothing of the driver runs after its destructor
/// has returned. `startScan` calls back, so a callback that always calls it would never end: that has a
/// bound.
class DeviceBase {
public:
    /// Set the callbacks before `startScan`. An absent one is not called.
    Callback<StateDeviceConnection> stateConnection;

    /// The adapter's state: on every `startScan`, and whenever it changes.
    Callback<CBManagerState> stateCentralManager;

    /// Begins the search: drops the link to a device that was found before, reports the adapter's state, and
    /// scans if the adapter is on. If it is not, the scan starts by itself once it is. There is no time
    /// limit, and only the driver's destruction ends the search.
    ///
    /// Calls may be nested 32 deep, by a callback that this one calls. A deeper one does nothing and is a
    /// failed precondition.
    void startScan();

    /// Stops a scan that is going on. Reports nothing. The search is not over: the driver scans again when
    /// the adapter's state changes to on. Destroy the driver to end it.
    void stopScan();

    /// Ends the link or the attempt to connect, if there is one; `stateConnection(disconnect)` follows once
    /// a link has ended. The search is not over, as with `stopScan`.
    void disconnect();

    DeviceBase(const DeviceBase&) = delete;
    DeviceBase& operator=(const DeviceBase&) = delete;

protected:
    explicit DeviceBase(std::shared_ptr<CentralLink> session);
    ~DeviceBase();

    /// What runs. Hold it while calling it: the application may destroy the handle meanwhile.
    std::shared_ptr<CentralLink> session() const { return session_; }

private:
    std::shared_ptr<CentralLink> session_;
};

/// A driver of a model that measures an `Info`. It is the application's handle: it cannot be copied or moved,
/// and what it started ends with it.
template <class Info>
class Device : public DeviceBase {
public:
    using InfoType = Info;

    /// A measurement: awaited, decoded, or failed.
    Callback<const StateDeviceLoading<Info>&> stateLoading;

    /// The last decoded record; a disconnect or a new scan does not clear it. Where there is none, also
    /// writes the model's line for that to the console.
    std::optional<Info> getResult();

protected:
    explicit Device(std::shared_ptr<Session<Info>> session);
    ~Device() = default;
};

/// Has no members and no behaviour.
class Setting {};

/// A class that presents itself as one measured value of a device. No driver is one; it is there for hosts
/// that keep devices of their own beside the drivers.
template <class T>
concept ProtocalDevice = std::is_class_v<T> && requires(T& device, typename T::BaseValue value) {
    typename T::BaseValue;
    { device.name } -> std::same_as<std::string&>;
    { device.uuid } -> std::same_as<std::string&>;
    { device.autoResult } -> std::same_as<bool&>;
    { device.isConnected } -> std::same_as<bool&>;
    { device.value } -> std::same_as<std::optional<typename T::BaseValue>&>;
};

}  // namespace corvane
