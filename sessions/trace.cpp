#include "sessions/trace.h"

#include <ostream>

#include "corvane/framework/hexadecimal_text.h"
#include "sessions/json.h"

namespace corvane::sessions {
namespace {

Json uuidList(std::span<const CBUUID> uuids) {
    Json list = Json::array();
    for (const CBUUID& uuid : uuids) list.push_back(uuid.uuidString());
    return list;
}

Json onPeripheral(std::string_view operation, const std::string& label) {
    return {{"platform", operation}, {"peripheral", label}};
}

Json onCharacteristic(std::string_view operation, const std::string& label,
                      const CBCharacteristic& characteristic) {
    const auto& handle = static_cast<const IndexedCharacteristic&>(characteristic);
    Json object = onPeripheral(operation, label);
    object["service"] = handle.service;
    object["characteristic"] = handle.index;
    return object;
}

}  // namespace

void Trace::line(const Json& object) {
    if (to_) *to_ << jsonText(object) << '\n';
}

void Trace::operation(std::string_view name) { line({{"platform", name}}); }
void Trace::operation(std::string_view name, const std::string& label) { line(onPeripheral(name, label)); }

void Trace::createCentral() { operation("createCentral"); }
void Trace::scan() { operation("scan"); }
void Trace::stopScan() { operation("stopScan"); }
void Trace::connect(const std::string& label) { operation("connect", label); }
void Trace::cancelConnection(const std::string& label) { operation("cancelConnection", label); }
void Trace::invalidateTimer() { operation("invalidateTimer"); }

void Trace::discoverServices(const std::string& label, std::span<const CBUUID> wanted) {
    Json object = onPeripheral("discoverServices", label);
    object["services"] = uuidList(wanted);
    line(object);
}

void Trace::discoverCharacteristics(const std::string& label, const CBService& service,
                                    std::span<const CBUUID> wanted) {
    Json object = onPeripheral("discoverCharacteristics", label);
    object["service"] = static_cast<const IndexedService&>(service).index;
    object["characteristics"] = wanted.empty() ? Json() : uuidList(wanted);
    line(object);
}

void Trace::setNotify(const std::string& label, const CBCharacteristic& characteristic, bool enabled) {
    Json object = onCharacteristic("setNotify", label, characteristic);
    object["enabled"] = enabled;
    line(object);
}

void Trace::write(const std::string& label, const CBCharacteristic& characteristic, Bytes value,
                  CBCharacteristicWriteType type) {
    Json object = onCharacteristic("write", label, characteristic);
    object["value"] = hexadecimalText(value);
    object["type"] = nameOf(type);
    line(object);
}

void Trace::startTimer(std::chrono::nanoseconds interval) {
    line({{"platform", "startTimer"},
          {"interval", std::chrono::duration<double>(interval).count()},
          {"repeats", true}});
}

void Trace::callback(const HostReport& report) {
    Json object{{"callback", nameOf(report.callback)}, {"state", report.state}};
    if (report.record) object["record"] = *report.record;
    if (report.state == "error") object["text"] = report.text;
    line(object);
}

void Trace::result(const Json& record) { line({{"result", record}}); }
void Trace::console(std::string_view text) { line({{"console", text}}); }
void Trace::fatal(std::string_view what) { line({{"fatal", what}}); }

}  // namespace corvane::sessions
