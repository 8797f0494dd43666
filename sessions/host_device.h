// Drivers for programs that choose the model at run time: made from a description, called by name, their
// callbacks and records as texts and JSON. The replayer, the recorder and the command-line tool share it.
#pragma once

#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <string_view>

#include "corvane/devices/catalogue.h"
#include "sessions/case_names.h"

namespace corvane::sessions {

using Json = nlohmann::ordered_json;  // "sessions/json.h" has the whole type.
class ScriptLine;

/// One call of a callback. What it points to is valid during the call only.
struct HostReport {
    HostCallback callback;
    std::string_view state;        ///< Name of the case: "connect", "loading", "poweredOn", ...
    std::string_view text = {};    ///< Of the state "error".
    const Json* record = nullptr;  ///< Of the state "success"; the record's fields in their order.
};

/// Is told every callback that the driver makes, after what a recording has to say about it. It may do to the
/// device whatever a callback may, `destroy` included, but not delete the `HostDevice`.
using HostListener = std::function<void(const HostReport&)>;

/// What a driver is made from.
struct DeviceSetup {
    const Model* model;  ///< Of the catalogue; not null.
    DriverArguments arguments = {};
    /// The callbacks that are set; the others stay absent.
    std::set<HostCallback> callbacks = {HostCallback::stateConnection, HostCallback::stateLoading,
                                        HostCallback::stateCentralManager};
};

/// The setup that a script's first line describes. Reads the keys that the model's constructor takes, and
/// throws `ScriptError` where one is missing or is wrong; the others are left to the caller.
DeviceSetup readDeviceSetup(ScriptLine& line);

/// The line that `readDeviceSetup` reads.
Json deviceLine(const DeviceSetup& setup);

/// A driver without its types. After `destroy` everything is harmless and does nothing.
class HostDevice {
public:
    HostDevice() = default;
    /// Destroys the driver, if it is still there.
    virtual ~HostDevice() = default;
    HostDevice(const HostDevice&) = delete;
    HostDevice& operator=(const HostDevice&) = delete;

    virtual const Model& model() const = 0;

    /// False once the driver has been destroyed.
    virtual bool alive() const = 0;

    /// Whether the model has the operation: "startScan", "stopScan", "disconnect" and "getResult" always,
    /// "start", "startResult" and "requestPayload" where its class has them.
    virtual bool has(std::string_view operation) const = 0;

    /// Calls an operation that the model has; another one does nothing. "getResult" returns the record, or
    /// null where there is none; the others return nothing.
    virtual std::optional<Json> call(std::string_view operation) = 0;

    /// Sets a callback, or takes it away.
    virtual void setCallback(HostCallback callback, bool present) = 0;

    /// Destroys the driver. Nothing is reported afterwards.
    virtual void destroy() = 0;
};

/// The platform must outlive the device.
std::unique_ptr<HostDevice> makeHostDevice(const DeviceSetup& setup, Platform& platform,
                                           HostListener listener);

}  // namespace corvane::sessions
