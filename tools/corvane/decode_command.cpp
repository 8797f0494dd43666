// Values are decoded by the driver itself: it is led through a session in which the device is found, linked
// to and sends them.
#include "decode_command.h"

#include <optional>
#include <sstream>

#include "console.h"
#include "data_output.h"
#include "emulators/emulator.h"
#include "failure.h"
#include "record_text.h"
#include "sessions/json.h"
#include "sessions/replayer.h"

namespace corvane::tool {
namespace {

using sessions::Json;

/// Where a value comes from, as scripts count.
struct Source {
    std::size_t service;
    std::size_t characteristic;
};

std::vector<CBUUID> uuidsOf(const auto& items) {
    std::vector<CBUUID> uuids;
    uuids.reserve(items.size());
    for (const auto& item : items) uuids.push_back(item.uuid);
    return uuids;
}

class Session {
public:
    explicit Session(const DecodeOptions& options)
        : emulator_(makeEmulator(*options.model, {})), services_(emulator_->services()) {
        line(sessions::deviceLine({.model = options.model, .arguments = options.arguments}));
        line({{"event", "state"}, {"state", "poweredOn"}});
        line({{"call", "startScan"}});
        event("discovered", {{"identifier", CBUUID().uuidString()}, {"name", emulator_->name()}});
        event("connected", Json::object());
        event("services", {{"services", texts(uuidsOf(services_))}});
        for (std::size_t i = 0; i < services_.size(); ++i)
            event("characteristics",
                  {{"service", i}, {"characteristics", texts(uuidsOf(services_[i].characteristics))}});
        line({{"advance", 0}});
        for (const std::string& value : options.values) add(value);
    }

    const std::string& script() const { return script_; }

private:
    void line(const Json& object) { script_ += jsonLine(object) + '\n'; }

    void event(std::string_view name, const Json& facts) {
        Json object = {{"event", name}, {"peripheral", "device"}};
        object.update(facts);
        line(object);
    }

    void add(const std::string& value) {
        const std::size_t colon = value.find(':');
        const bool named = colon != std::string::npos;
        const Source from = named ? sourceNamed(value.substr(0, colon)) : usualSource();
        event("value", {{"service", from.service},
                        {"characteristic", from.characteristic},
                        {"value", checkedHexadecimal(named ? value.substr(colon + 1) : value)}});
    }

    Source usualSource() const {
        return find([](const GattCharacteristic& characteristic) {
                   return (characteristic.properties & (gatt::notify | gatt::indicate)) != 0;
               })
            .value();
    }

    Source sourceNamed(const std::string& text) const {
        const std::optional<CBUUID> uuid = CBUUID::parse(text);
        const auto found = find([&](const GattCharacteristic& each) { return each.uuid == uuid; });
        if (!found) throw Failure(ExitStatus::wrongUsage, "the model has no characteristic \"" + text + '"');
        return *found;
    }

    std::optional<Source> find(const auto& wanted) const {
        for (std::size_t i = 0; i < services_.size(); ++i) {
            const auto& list = services_[i].characteristics;
            for (std::size_t k = 0; k < list.size(); ++k) {
                if (wanted(list[k])) return Source{i, k};
            }
        }
        return std::nullopt;
    }

    static const std::string& checkedHexadecimal(const std::string& text) {
        const bool digits = text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
        if (!digits || text.size() % 2 != 0)
            throw Failure(ExitStatus::wrongUsage, '"' + text + "\" is not pairs of hexadecimal digits");
        return text;
    }

    static Json texts(const std::vector<CBUUID>& uuids) {
        Json list = Json::array();
        for (const CBUUID& uuid : uuids) list.push_back(uuid.uuidString());
        return list;
    }

    const std::unique_ptr<Emulator> emulator_;  ///< For what the device offers.
    const std::vector<GattService> services_;
    std::string script_;
};

}  // namespace

ExitStatus decode(const DecodeOptions& options) {
    std::istringstream script(Session(options).script());
    std::stringstream trace;
    std::ostringstream messages;
    const sessions::ReplayStatus replayed = sessions::replay(script, trace, messages);
    if (replayed == sessions::ReplayStatus::faultyScript)
        throw Failure(ExitStatus::internalError, messages.str());

    DataOutput out;
    Console console;
    ExitStatus status = ExitStatus::done;
    std::size_t records = 0;
    for (std::string text; std::getline(trace, text);) {
        const Json line = Json::parse(text);
        if (const auto record = line.find("record"); record != line.end()) {
            out.line(options.json ? jsonLine(*record) : recordText(*record));
            ++records;
        } else if (const auto error = line.find("text"); error != line.end()) {
            console.message(error->get<std::string>());
            status = ExitStatus::deviceError;
        } else if (const auto fatal = line.find("fatal"); fatal != line.end()) {
            console.message("precondition failed: " + fatal->get<std::string>());
            status = ExitStatus::preconditionFailed;
        }
    }
    if (records == 0 && status == ExitStatus::done) console.message("no record");
    out.close();
    return status;
}

}  // namespace corvane::tool
