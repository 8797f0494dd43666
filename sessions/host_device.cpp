#include "sessions/host_device.h"

#include <type_traits>

#include "sessions/script_line.h"

namespace corvane::sessions {
namespace {

template <class Driver>
DriverArguments readArguments(ScriptLine& line) {
    DriverArguments arguments;
    if (line.has("autoResult")) arguments.autoResult = line.flag("autoResult");
    if constexpr (takesRepeatResult<Driver>) {
        if (line.has("repeatResult")) arguments.repeatResult = line.flag("repeatResult");
    }
    if constexpr (takesProfile<Driver>) {
        using Gender = BodyCompositionADFB885TDeviceGender;
        arguments.height = line.number("height");
        arguments.age = line.wholeNumber("age");
        const std::string gender = line.text("gender");
        arguments.gender = gender == caseName(Gender::female) ? Gender::female : Gender::male;
        if (gender != caseName(arguments.gender)) throw ScriptError("\"gender\" is neither female nor male");
    }
    return arguments;
}

template <class Driver>
void writeArguments(const DriverArguments& arguments, Json& line) {
    line["autoResult"] = arguments.autoResult;
    if constexpr (takesRepeatResult<Driver>) line["repeatResult"] = arguments.repeatResult;
    if constexpr (takesProfile<Driver>) {
        line["height"] = arguments.height;
        line["age"] = arguments.age;
        line["gender"] = caseName(arguments.gender);
    }
}

template <class Visitor>
void withDriverOf(const Model& model, Visitor&& visit) {
    forEachDriver([&]<class Driver>() {
        if (&model == &Driver::model) visit.template operator()<Driver>();
    });
}

template <class Value>
Json fieldJson(const Value& value) {
    if constexpr (std::is_enum_v<Value>)
        return caseName(value);
    else
        return value;
}

template <class Info>
Json recordJson(const Info& info) {
    Json record = Json::object();
    visitFields(info, [&](const char* field, const auto& value) { record[field] = fieldJson(value); });
    return record;
}

/// Null when the driver has no operation of that name. `getResult`, the one that returns something, is not
/// among them.
template <class Driver>
void (*findOperation(std::string_view name))(Driver&) {
    if (name == "startScan") return [](Driver& driver) { driver.startScan(); };
    if (name == "stopScan") return [](Driver& driver) { driver.stopScan(); };
    if (name == "disconnect") return [](Driver& driver) { driver.disconnect(); };
    if constexpr (requires(Driver & driver) { driver.start(); })
        if (name == "start") return [](Driver& driver) { driver.start(); };
    if constexpr (requires(Driver & driver) { driver.startResult(); })
        if (name == "startResult") return [](Driver& driver) { driver.startResult(); };
    if constexpr (requires(Driver & driver) { driver.requestPayload(); })
        if (name == "requestPayload") return [](Driver& driver) { driver.requestPayload(); };
    return nullptr;
}

template <class Driver>
class DriverAdapter final : public HostDevice {
public:
    DriverAdapter(const DeviceSetup& setup, Platform& platform, HostListener listener)
        : listener_(std::make_shared<const HostListener>(std::move(listener))),
          driver_(makeDriver<Driver>(setup.arguments, platform)) {
        for (const HostCallback callback : setup.callbacks) setCallback(callback, true);
    }

    const Model& model() const override { return Driver::model; }
    bool alive() const override { return driver_ != nullptr; }
    bool has(std::string_view operation) const override {
        return operation == "getResult" || findOperation<Driver>(operation) != nullptr;
    }

    std::optional<Json> call(std::string_view operation) override {
        if (!driver_) return std::nullopt;
        if (operation == "getResult") return result();
        if (const auto run = findOperation<Driver>(operation)) run(*driver_);
        return std::nullopt;
    }

    // The closures share the listener and nothing else: the driver may go while one of them runs.
    void setCallback(HostCallback callback, bool present) override {
        if (!driver_) return;
        switch (callback) {
        case HostCallback::stateConnection:
            driver_->stateConnection = nullptr;
            if (present)
                driver_->stateConnection = [to = listener_](StateDeviceConnection state) {
                    (*to)({HostCallback::stateConnection, nameOf(state)});
                };
            break;
        case HostCallback::stateLoading:
            driver_->stateLoading = nullptr;
            if (present)
                driver_->stateLoading = [to = listener_](const LoadingState& state) {
                    reportLoading(*to, state);
                };
            break;
        case HostCallback::stateCentralManager:
            driver_->stateCentralManager = nullptr;
            if (present)
                driver_->stateCentralManager = [to = listener_](CBManagerState state) {
                    (*to)({HostCallback::stateCentralManager, nameOf(state)});
                };
            break;
        }
    }

    void destroy() override { driver_.reset(); }

private:
    using Info = typename Driver::InfoType;
    using LoadingState = StateDeviceLoading<Info>;

    std::optional<Json> result() {
        const std::optional<Info> info = driver_->getResult();
        return info ? recordJson(*info) : Json();
    }

    static void reportLoading(const HostListener& to, const LoadingState& state) {
        state.match(
            [&](const Info& info) {
                const Json record = recordJson(info);
                to({HostCallback::stateLoading, "success", {}, &record});
            },
            [&](const std::string& text) {
                to({HostCallback::stateLoading, "error", text});
            },
            [&] {
                to({HostCallback::stateLoading, "loading"});
            });
    }

    std::shared_ptr<const HostListener> listener_;
    std::unique_ptr<Driver> driver_;
};

std::set<HostCallback> readCallbacks(const Json& list) {
    if (!list.is_array()) throw ScriptError("\"callbacks\" is no list");
    std::set<HostCallback> callbacks;
    for (const Json& name : list) {
        const auto callback =
            name.is_string() ? caseNamed<HostCallback>(name.get_ref<const std::string&>()) : std::nullopt;
        if (!callback) throw ScriptError("\"callbacks\" names an unknown callback");
        callbacks.insert(*callback);
    }
    return callbacks;
}

}  // namespace

DeviceSetup readDeviceSetup(ScriptLine& line) {
    DeviceSetup setup{.model = findModel(line.text("device"))};
    if (!setup.model) throw ScriptError("\"device\" is unknown");
    withDriverOf(*setup.model, [&]<class Driver>() { setup.arguments = readArguments<Driver>(line); });
    if (const Json* callbacks = line.find("callbacks")) setup.callbacks = readCallbacks(*callbacks);
    return setup;
}

Json deviceLine(const DeviceSetup& setup) {
    Json line{{"device", setup.model->driver}};
    withDriverOf(*setup.model, [&]<class Driver>() { writeArguments<Driver>(setup.arguments, line); });
    if (setup.callbacks.size() < caseNames<HostCallback>.size()) {
        line["callbacks"] = Json::array();
        for (const HostCallback callback : setup.callbacks) line["callbacks"].push_back(nameOf(callback));
    }
    return line;
}

std::unique_ptr<HostDevice> makeHostDevice(const DeviceSetup& setup, Platform& platform,
                                           HostListener listener) {
    std::unique_ptr<HostDevice> device;
    withDriverOf(*setup.model, [&]<class Driver>() {
        device = std::make_unique<DriverAdapter<Driver>>(setup, platform, std::move(listener));
    });
    return device;
}

}  // namespace corvane::sessions
