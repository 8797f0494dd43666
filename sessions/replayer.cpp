#include "sessions/replayer.h"

#include <array>
#include <charconv>
#include <istream>
#include <map>
#include <ostream>

#include "sessions/script_line.h"
#include "sessions/scripted_platform.h"

namespace corvane::sessions {
namespace {

using std::chrono::nanoseconds;

/// What a line does, once nothing is wrong with it.
using Action = std::function<void()>;

constexpr double longestAdvance = 1'000'000;

/// Rounds the decimal that stands in the script, not the double next to it: 15 decimal digits survive the way
/// into a double and back.
nanoseconds wholeNanoseconds(double seconds) {
    std::array<char, 400> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), seconds, std::chars_format::fixed);
    const std::string_view decimal(text.data(), static_cast<std::size_t>(end.ptr - text.data()));
    const std::size_t point = std::min(decimal.find('.'), decimal.size());
    const auto fractionDigit = [&](std::size_t place) {
        return point + place < decimal.size() ? decimal[point + place] - '0' : 0;
    };
    std::int64_t count = 0;
    std::from_chars(decimal.data(), decimal.data() + point, count);
    for (std::size_t place = 1; place <= 9; ++place) count = count * 10 + fractionDigit(place);
    return nanoseconds(count + (fractionDigit(10) >= 5 ? 1 : 0));
}

bool isSkipped(std::string_view text) {
    return text.find_first_not_of(" \t\r\v\f") == text.npos || text.front() == '#';
}

class Replay {
public:
    explicit Replay(std::ostream& trace) : trace_(&trace), platform_(trace_) {}
    ~Replay() { trace_.mute(); }  // the end of a script is not the end of its driver

    /// Throws where something is wrong with the line; nothing of it has been applied then.
    void apply(ScriptLine line);

    bool hasDriver() const { return device_ != nullptr; }
    bool stopped() const { return platform_.stopped(); }

private:
    void create(ScriptLine& line);
    void hold(ScriptLine& line);
    void called(const HostReport& report);

    Action readAction(const std::string& kind, ScriptLine& line);
    Action readHostAction(const std::string& kind, ScriptLine& line);
    Action readAdvance(ScriptLine& line);
    Action readRun(ScriptLine& line);
    Action readEvent(ScriptLine& line);
    Action readDiscovered(ScriptLine& line);
    Action readServices(const std::shared_ptr<ScriptedPeripheral>& peripheral, ScriptLine& line);
    Action readCharacteristics(const std::shared_ptr<ScriptedPeripheral>& peripheral, ScriptLine& line);
    Action readValue(const std::shared_ptr<ScriptedPeripheral>& peripheral, ScriptLine& line);

    Trace trace_;
    ScriptedPlatform platform_;
    std::map<std::string, std::shared_ptr<ScriptedPeripheral>> peripherals_;

    using HeldActions = std::map<std::size_t, std::vector<Action>>;  // by number of the callback
    HeldActions held_;                                               // for the next line
    HeldActions applying_;                                           // of the line that is running
    std::size_t callbacks_ = 0;

    std::unique_ptr<HostDevice> device_;
};

std::size_t readIndex(ScriptLine& line, const std::string& key, std::size_t size) {
    const std::size_t index = line.count(key, 0);
    if (index >= size) throw ScriptError("\"" + key + "\" points past the last list");
    return index;
}

std::shared_ptr<const CBError> readError(ScriptLine& line) {
    if (!line.has("error")) return nullptr;
    const auto text = line.textOrNull("error");
    return text ? std::make_shared<const CBError>(CBError{*text}) : nullptr;
}

/// The one key that says what the line does.
std::string kindOf(const ScriptLine& line) {
    std::string found;
    for (const char* kind : {"call", "clear", "set", "destroy", "event", "advance", "run"}) {
        if (!line.has(kind)) continue;
        if (!found.empty()) throw ScriptError("has both \"" + found + "\" and \"" + kind + "\"");
        found = kind;
    }
    if (found.empty()) throw ScriptError("says nothing that can be done");
    return found;
}

void Replay::apply(ScriptLine line) {
    if (!device_) return create(line);
    if (line.has("during")) return hold(line);
    const Action action = readAction(kindOf(line), line);
    line.finish();
    applying_ = std::exchange(held_, {});
    callbacks_ = 0;
    action();
}

void Replay::create(ScriptLine& line) {
    const DeviceSetup setup = readDeviceSetup(line);
    if (line.has("onPrecondition")) {
        const std::string what = line.text("onPrecondition");
        if (what != "stop" && what != "ignore")
            throw ScriptError("\"onPrecondition\" is neither stop nor ignore");
        platform_.stopsOnPrecondition = what == "stop";
    }
    line.finish();
    device_ = makeHostDevice(setup, platform_, [this](const HostReport& report) { called(report); });
}

void Replay::hold(ScriptLine& line) {
    const std::size_t callback = line.count("during", 1);
    Action action = readHostAction(kindOf(line), line);
    line.finish();
    held_[callback].push_back(std::move(action));
}

void Replay::called(const HostReport& report) {
    if (platform_.stopped()) return;
    trace_.callback(report);
    const auto held = applying_.find(++callbacks_);
    if (held == applying_.end()) return;
    for (const Action& action : held->second) {
        if (!platform_.stopped()) action();
    }
}

Action Replay::readAction(const std::string& kind, ScriptLine& line) {
    if (kind == "event") return readEvent(line);
    if (kind == "advance") return readAdvance(line);
    if (kind == "run") return readRun(line);
    return readHostAction(kind, line);
}

Action Replay::readHostAction(const std::string& kind, ScriptLine& line) {
    if (kind != "call" && kind != "set" && kind != "clear" && kind != "destroy")
        throw ScriptError("\"" + kind + "\" cannot happen inside a callback");
    if (!device_->alive()) throw ScriptError("the driver has been destroyed");
    if (kind == "destroy") {
        if (!line.flag("destroy")) throw ScriptError("\"destroy\" is not true");
        return [this] { device_->destroy(); };
    }
    const std::string name = line.text(kind);
    if (kind == "call") {
        if (!device_->has(name)) throw ScriptError("the model has no operation \"" + name + "\"");
        return [this, name] {
            if (const auto result = device_->call(name)) trace_.result(*result);
        };
    }
    const auto callback = caseNamed<HostCallback>(name);
    if (!callback) throw ScriptError("there is no callback \"" + name + "\"");
    return [this, callback = *callback, present = kind == "set"] { device_->setCallback(callback, present); };
}

Action Replay::readAdvance(ScriptLine& line) {
    const double seconds = line.number("advance");
    if (seconds < 0 || seconds > longestAdvance)
        throw ScriptError("\"advance\" is not within 0 and 1,000,000 s");
    return [this, time = wholeNanoseconds(std::abs(seconds))] { platform_.advance(time); };
}

Action Replay::readRun(ScriptLine& line) {
    const std::size_t count = line.count("run", 0);
    if (count > platform_.waitingTasks())
        throw ScriptError("\"run\" is more than the " + std::to_string(platform_.waitingTasks()) +
                          " tasks that wait");
    return [this, count] { platform_.runTasks(count); };
}

Action Replay::readEvent(ScriptLine& line) {
    const std::string event = line.text("event");
    if (event == "state") {
        const auto state = caseNamed<CBManagerState>(line.text("state"));
        if (!state) throw ScriptError("\"state\" is unknown");
        return [this, state = *state] { platform_.setState(state); };
    }
    if (!platform_.hadCentral()) throw ScriptError("the driver has no central that could see a peripheral");
    if (event == "discovered") return readDiscovered(line);

    const auto known = peripherals_.find(line.text("peripheral"));
    if (known == peripherals_.end()) throw ScriptError("\"peripheral\" has not been discovered");
    const std::shared_ptr<ScriptedPeripheral> peripheral = known->second;
    if (event == "services") return readServices(peripheral, line);
    if (event == "characteristics") return readCharacteristics(peripheral, line);
    if (event == "value") return readValue(peripheral, line);
    if (event == "connected")
        return [this, peripheral] {
            if (const auto delegate = platform_.centralDelegate()) delegate->didConnect(peripheral);
        };
    if (event == "disconnected")
        return [this, peripheral, error = readError(line)] {
            if (const auto delegate = platform_.centralDelegate())
                delegate->didDisconnectPeripheral(peripheral, error.get());
        };
    throw ScriptError("\"event\" is unknown");
}

Action Replay::readDiscovered(ScriptLine& line) {
    const std::string label = line.text("peripheral");
    const auto known = peripherals_.find(label);
    const bool isNew = known == peripherals_.end();
    auto peripheral = isNew ? nullptr : known->second;
    if (isNew || line.has("identifier")) {
        const std::string identifier = line.uuid("identifier").uuidString();
        if (isNew) peripheral = std::make_shared<ScriptedPeripheral>(trace_, label, identifier);
        if (identifier != peripheral->identifier()) throw ScriptError("\"identifier\" is another one");
    }
    auto name = isNew || line.has("name") ? line.textOrNull("name") : peripheral->name();
    return [this, peripheral, name = std::move(name)] {
        peripherals_[peripheral->label()] = peripheral;
        peripheral->rename(name);
        if (const auto delegate = platform_.centralDelegate()) delegate->didDiscover(peripheral);
    };
}

Action Replay::readServices(const std::shared_ptr<ScriptedPeripheral>& peripheral, ScriptLine& line) {
    return [peripheral, services = line.uuids("services"), error = readError(line)] {
        peripheral->servicesDiscovered(services, error.get());
    };
}

Action Replay::readCharacteristics(const std::shared_ptr<ScriptedPeripheral>& peripheral, ScriptLine& line) {
    const std::size_t service = readIndex(line, "service", peripheral->serviceCount());
    return [peripheral, service, characteristics = line.uuids("characteristics"), error = readError(line)] {
        peripheral->characteristicsDiscovered(service, characteristics, error.get());
    };
}

Action Replay::readValue(const std::shared_ptr<ScriptedPeripheral>& peripheral, ScriptLine& line) {
    const std::size_t service = readIndex(line, "service", peripheral->serviceCount());
    const std::size_t characteristic =
        readIndex(line, "characteristic", peripheral->characteristicCount(service));
    return [peripheral, service, characteristic, value = line.bytes("value"), error = readError(line)] {
        peripheral->valueUpdated(service, characteristic, value ? std::optional<Bytes>(*value) : std::nullopt,
                                 error.get());
    };
}

/// Applies the lines one after another, up to the one that ends the replay. `number` is that of the last
/// line that was read.
ReplayStatus run(std::istream& script, Replay& replay, std::size_t& number) {
    for (std::string text; std::getline(script, text);) {
        ++number;
        if (isSkipped(text)) continue;
        replay.apply(ScriptLine::parse(text));
        if (replay.stopped()) return ReplayStatus::preconditionFailed;
    }
    if (script.bad()) throw ScriptError("the script cannot be read further");
    if (!replay.hasDriver()) throw ScriptError("the script creates no driver");
    return ReplayStatus::done;
}

}  // namespace

ReplayStatus replay(std::istream& script, std::ostream& trace, std::ostream& messages) {
    Replay replay(trace);
    std::size_t number = 0;
    ReplayStatus status = ReplayStatus::faultyScript;
    std::string fault;
    try {
        status = run(script, replay, number);
    } catch (const ScriptError& error) {
        fault = printable(error.what());
    }
    trace.flush();
    if (status == ReplayStatus::faultyScript)
        messages << "line " << std::max<std::size_t>(number, 1) << ": " << fault << std::endl;
    return status;
}

}  // namespace corvane::sessions
