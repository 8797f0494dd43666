#include "tests/bluez/ward.h"

#include <algorithm>

namespace corvane::bluez {
std::vector<GattService> Thermometer::services() const {
    return {{TemperatureAOJ20ADevice::serviceCBUUID,
             {{TemperatureAOJ20ADevice::characteristicCBUUID, gatt::notify | gatt::write}}}};
}

void Thermometer::connected(PeripheralHost& newHost) {
    host = &newHost;
    if (whenConnected) whenConnected();
}

void Thermometer::subscribed(const CBUUID&, bool enabled) {
    if (!enabled) return;
    ++subscriptions;
    send();
    if (whenSubscribed) whenSubscribed();
}

void Thermometer::send() {
    constexpr std::uint8_t frame[] = {0x01, 0x02, 0x03, 0x04, 0x0E, 0x4C};
    if (host) host->notify(TemperatureAOJ20ADevice::characteristicCBUUID, frame);
}

Reader::Reader(Platform& platform) : driver(std::make_unique<TemperatureAOJ20ADevice>(true, platform)) {
    driver->stateCentralManager = [this](CBManagerState state) { heard.emplace_back(nameOf(state)); };
    driver->stateConnection = [this](StateDeviceConnection state) {
        heard.emplace_back(state == StateDeviceConnection::connect ? "connect" : "disconnect");
    };
    driver->stateLoading = [this](const StateDeviceLoading<TemperatureInfo>& state) {
        heard.push_back(state.match([](const TemperatureInfo& info) { return info.temperature; },
                                    [](const std::string& error) { return error; },
                                    [] { return std::string("loading"); }));
    };
}

bool Reader::hasHeard(std::string_view what) const {
    return std::find(heard.begin() + static_cast<std::ptrdiff_t>(told_), heard.end(), what) != heard.end();
}

std::string Reader::news() {
    std::string text;
    for (; told_ < heard.size(); ++told_) text += (text.empty() ? "" : " ") + heard[told_];
    return text;
}

Ward::Ward(BlueZOptions options) : air(std::move(options)), reader(air.platform) {
    air.platform.logSink = [](std::string_view) {};
    air.service.add(thermometer);
}

Ward::~Ward() {
    thermometer->whenConnected = thermometer->whenSubscribed = nullptr;
    reader.driver.reset();
}

bool Ward::waitFor(const Reader& who, std::string_view what) {
    return air.runUntil([&] { return who.hasHeard(what); });
}

std::string Ward::measure() {
    reader.driver->startScan();
    waitFor("36.6");
    reader.driver->disconnect();
    waitFor("disconnect");
    air.runFor(std::chrono::seconds(10));
    return reader.news();
}

}  // namespace corvane::bluez
