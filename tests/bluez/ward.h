// A thermometer in the air, and an application that reads it and notes what it hears.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "corvane/devices/temperature/temperature_aoj20a_device.h"
#include "tests/bluez/air.h"

namespace corvane::bluez {

/// Sends its reading at the very moment it is subscribed to, and no other.
class Thermometer : public PeripheralDevice {
public:
    std::string name() const override { return advertised; }
    std::vector<GattService> services() const override;
    void connected(PeripheralHost& newHost) override;
    void disconnected() override { host = nullptr; }
    void subscribed(const CBUUID& characteristic, bool enabled) override;
    void send();

    std::string advertised{TemperatureAOJ20ADevice::deviceName};
    PeripheralHost* host = nullptr;
    int subscriptions = 0;
    /// What goes wrong on this link, if anything: called at the step that is named.
    std::function<void()> whenConnected, whenSubscribed;
};

/// The application's side of one driver.
class Reader {
public:
    explicit Reader(Platform& platform);

    bool hasHeard(std::string_view what) const;
    /// What it heard since the last time it was asked, a word each.
    std::string news();

    std::unique_ptr<TemperatureAOJ20ADevice> driver;
    std::vector<std::string> heard;

private:
    std::size_t told_ = 0;
};

struct Ward {
    explicit Ward(BlueZOptions options = {});
    ~Ward();

    /// Until it has heard so, since it was last asked for news.
    bool waitFor(std::string_view what) { return waitFor(reader, what); }
    bool waitFor(const Reader& who, std::string_view what);
    /// Scans until there is a reading, ends the link, and returns what was heard.
    std::string measure();
    /// What this process has left at the service.
    std::string leftovers() { return air.service.leftovers(); }

    Air air;
    std::shared_ptr<Thermometer> thermometer = std::make_shared<Thermometer>();
    Reader reader;
};

}  // namespace corvane::bluez
