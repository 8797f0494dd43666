// The trace: everything that comes from a driver, one JSON object a line, in the order in which it happens.
#pragma once

#include <chrono>
#include <cstddef>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>

#include "corvane/platform/central.h"
#include "sessions/host_device.h"

namespace corvane::sessions {

/// A service as a script knows it: by its place in the list with which it was discovered. It keeps that
/// place when a later list replaces its own.
struct IndexedService : CBService {
    std::size_t index = 0;
};

struct IndexedCharacteristic : CBCharacteristic {
    std::size_t service = 0;
    std::size_t index = 0;
};

/// What it is given as CBService or CBCharacteristic has to be one of the above.
class Trace {
public:
    /// `to` may be null: nothing is written then.
    explicit Trace(std::ostream* to) : to_(to) {}

    /// Writes nothing any more.
    void mute() { to_ = nullptr; }

    void createCentral();
    void scan();
    void stopScan();
    void connect(const std::string& label);
    void cancelConnection(const std::string& label);
    void discoverServices(const std::string& label, std::span<const CBUUID> wanted);
    void discoverCharacteristics(const std::string& label, const CBService& service,
                                 std::span<const CBUUID> wanted);
    void setNotify(const std::string& label, const CBCharacteristic& characteristic, bool enabled);
    void write(const std::string& label, const CBCharacteristic& characteristic, Bytes value,
               CBCharacteristicWriteType type);
    void startTimer(std::chrono::nanoseconds interval);
    void invalidateTimer();

    void callback(const HostReport& report);
    /// A record, or null.
    void result(const Json& record);
    void console(std::string_view line);
    void fatal(std::string_view what);

private:
    void operation(std::string_view name);
    void operation(std::string_view name, const std::string& label);
    void line(const Json& object);

    std::ostream* to_;
};

}  // namespace corvane::sessions
