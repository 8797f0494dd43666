// The public surface, name by name. Most of it is checked by compiling: an application written against these
// names must go on compiling.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "corvane/corvane.h"
#include "corvane/platform/simulated/simulated_radio.h"

namespace corvane {
namespace {

template <class Enum>
constexpr bool numbered(std::initializer_list<Enum> cases, int first = 0, int step = 1) {
    for (const Enum each : cases) {
        if (static_cast<int>(each) != first) return false;
        first += step;
    }
    return true;
}

using State = CBManagerState;
static_assert(numbered({State::unknown, State::resetting, State::unsupported, State::unauthorized,
                        State::poweredOff, State::poweredOn}));
static_assert(numbered({StateDeviceConnection::connect, StateDeviceConnection::disconnect}));

using Gender = BodyCompositionADFB885TDeviceGender;
static_assert(numbered({Gender::female, Gender::male}));
static_assert(bodyCompositionADFB885TDeviceGender(0) == Gender::female);
static_assert(bodyCompositionADFB885TDeviceGender(1) == Gender::male);
static_assert(!bodyCompositionADFB885TDeviceGender(2) && !bodyCompositionADFB885TDeviceGender(-1));

using Header = BodyCompositionADFB885TDeviceHeader;
static_assert(numbered({Header::header_00, Header::header_01, Header::header_41, Header::header_42,
                        Header::header_81}));
static_assert(rawValue(Header::header_00) == "00" && rawValue(Header::header_01) == "01" &&
              rawValue(Header::header_41) == "41" && rawValue(Header::header_42) == "42" &&
              rawValue(Header::header_81) == "81");
static_assert(bodyCompositionADFB885TDeviceHeader("42") == Header::header_42);
static_assert(!bodyCompositionADFB885TDeviceHeader("43") && !bodyCompositionADFB885TDeviceHeader(""));

static_assert(numbered({BodyTapeUnitType::inch, BodyTapeUnitType::cm, BodyTapeUnitType::none}));

using Monitored = MultiMonitoringBeneCheckType;
static_assert(numbered({Monitored::glucose, Monitored::uric, Monitored::cholesterol}, 41, 10));
static_assert(multiMonitoringBeneCheckType(51) == Monitored::uric && !multiMonitoringBeneCheckType(42));

TEST(Contract, AUnitThatNoSessionHasIsNamedToo) { EXPECT_EQ(caseName(BodyTapeUnitType::none), "none"); }

// Named initialisers compile in the order of the fields only.
[[maybe_unused]] const GlucoseInfo glucose{.glucose = 1, .uuid = ""};
[[maybe_unused]] const BloodPressureInfo bloodPressure{.pluse = 1, .sys = 1, .dia = 1, .uuid = ""};
[[maybe_unused]] const OximeterInfo oximeter{.oxygen = 1, .bpm = 1, .uuid = ""};
[[maybe_unused]] const TemperatureInfo temperature{.temperature = "", .uuid = ""};
[[maybe_unused]] const BodyCompositionInfo bodyComposition{.weight = 1.0,
                                                           .fat = 1.0,
                                                           .bone = 1.0,
                                                           .water = 1.0,
                                                           .muscle = 1.0,
                                                           .bmi = 1.0,
                                                           .height = 1.0,
                                                           .age = 1,
                                                           .gender = Gender::male,
                                                           .uuid = ""};
[[maybe_unused]] const BodyTapeInfo bodyTape{.measure = 1.0, .unit = BodyTapeUnitType::cm, .uuid = ""};
[[maybe_unused]] const MultiMonitoringBeneCheckInfo monitoring{
    .type = Monitored::uric, .value = 1, .uuid = ""};
[[maybe_unused]] const ECGInfo ecg{.graph = {1}, .pulse = "", .uuid = ""};

std::string typeName(std::int64_t) { return "integer"; }
std::string typeName(double) { return "number"; }
std::string typeName(const std::string&) { return "text"; }
std::string typeName(const std::vector<std::int64_t>&) { return "integers"; }
std::string typeName(Gender) { return "gender"; }
std::string typeName(BodyTapeUnitType) { return "unit"; }
std::string typeName(Monitored) { return "type"; }

template <class Info>
std::string fieldsOf(const Info& info) {
    std::string fields;
    visitFields(info, [&](std::string_view name, const auto& value) {
        fields += std::string(name) + ' ' + typeName(value) + ' ';
    });
    return fields;
}

TEST(Contract, RecordsAreVisitedFieldByFieldInOrder) {
    EXPECT_EQ(fieldsOf(glucose), "glucose integer uuid text ");
    EXPECT_EQ(fieldsOf(bloodPressure), "pluse integer sys integer dia integer uuid text ");
    EXPECT_EQ(fieldsOf(oximeter), "oxygen integer bpm integer uuid text ");
    EXPECT_EQ(fieldsOf(temperature), "temperature text uuid text ");
    EXPECT_EQ(fieldsOf(bodyComposition), "weight number fat number bone number water number muscle number "
                                         "bmi number height number age integer gender gender uuid text ");
    EXPECT_EQ(fieldsOf(bodyTape), "measure number unit unit uuid text ");
    EXPECT_EQ(fieldsOf(monitoring), "type type value integer uuid text ");
    EXPECT_EQ(fieldsOf(ecg), "graph integers pulse text uuid text ");
}

// Made from these arguments, with the platform or without, never by a conversion.
template <class Driver, class... Arguments>
constexpr bool madeFrom =
    std::is_constructible_v<Driver, Arguments...>&& std::is_constructible_v<Driver, Arguments..., Platform&>;

template <class Driver, class Info, class... Arguments>
constexpr bool isDriver() {
    static_assert(madeFrom<Driver, Arguments...>);
    static_assert(!std::is_default_constructible_v<Driver> && !std::is_constructible_v<Driver, Platform&>);
    static_assert(!std::is_convertible_v<bool, Driver>);
    static_assert(!std::is_copy_constructible_v<Driver> && !std::is_move_constructible_v<Driver>);
    static_assert(!std::is_copy_assignable_v<Driver> && !std::is_move_assignable_v<Driver>);
    static_assert(std::is_base_of_v<Device<Info>, Driver> && std::is_base_of_v<DeviceBase, Driver>);
    return requires(Driver & driver) {
        driver.stateConnection = [](StateDeviceConnection) {};
        driver.stateLoading = [](const StateDeviceLoading<Info>&) {};
        driver.stateCentralManager = [](CBManagerState) {};
        driver.startScan();
        driver.stopScan();
        driver.disconnect();
        { driver.getResult() } -> std::same_as<std::optional<Info>>;
        { Driver::serviceCBUUID } -> std::same_as<const CBUUID&>;
    };
}

template <class Driver>
constexpr bool isPlain = requires {
    { Driver::deviceName } -> std::same_as<const std::string_view&>;
    { Driver::characteristicCBUUID } -> std::same_as<const CBUUID&>;
};

static_assert(isDriver<GlucoseTD4257Device, GlucoseInfo, bool>() && isPlain<GlucoseTD4257Device>);
static_assert(isDriver<GlucoseTGHGLC01Device, GlucoseInfo, bool>() && isPlain<GlucoseTGHGLC01Device>);
static_assert(isDriver<BloodPressureTD3140Device, BloodPressureInfo, bool, bool>() &&
              isPlain<BloodPressureTD3140Device>);
static_assert(isDriver<OximeterADFB05Device, OximeterInfo, bool, bool>() && isPlain<OximeterADFB05Device>);
static_assert(isDriver<OximeterTD8255Device, OximeterInfo, bool, bool>() && isPlain<OximeterTD8255Device>);
static_assert(isDriver<TemperatureAOJ20ADevice, TemperatureInfo, bool>() && isPlain<TemperatureAOJ20ADevice>);
static_assert(isDriver<TemperatureTD1241Device, TemperatureInfo, bool>() && isPlain<TemperatureTD1241Device>);
static_assert(
    isDriver<BodyCompositionADFB885TDevice, BodyCompositionInfo, bool, double, std::int64_t, Gender>());
static_assert(isDriver<BodyTapeDevice, BodyTapeInfo, bool>() && isPlain<BodyTapeDevice>);
static_assert(isDriver<MultiMonitoringBeneCheckDevice, MultiMonitoringBeneCheckInfo, bool>() &&
              isPlain<MultiMonitoringBeneCheckDevice>);
static_assert(isDriver<ECGTD4257Device, ECGInfo, bool>());
static_assert(!std::is_constructible_v<BloodPressureTD3140Device, bool> &&
              !std::is_constructible_v<OximeterADFB05Device, bool> &&
              !std::is_constructible_v<OximeterTD8255Device, bool> &&
              !std::is_constructible_v<BodyCompositionADFB885TDevice, bool>);

static_assert(BodyCompositionADFB885TDevice::deviceName == "SDIC" && ECGTD4257Device::ecgName == "PM10");
[[maybe_unused]] constexpr CBUUID named[] = {BodyCompositionADFB885TDevice::characteristicCBUUIDReadWrite,
                                             BodyCompositionADFB885TDevice::characteristicCBUUIDIndicateWrite,
                                             ECGTD4257Device::characteristicCBUUIDread,
                                             ECGTD4257Device::characteristicCBUUIDwrite};

// The operations beyond the common ones, and who has them.
constexpr int operationsBeyond = [] {
    int count = 0;
    forEachDriver([&]<class Driver>() {
        if constexpr (requires(Driver & driver) { driver.start(); }) ++count;
        if constexpr (requires(Driver & driver) { driver.startResult(); }) count += 10;
        if constexpr (requires(Driver & driver) { driver.requestPayload(); }) count += 100;
    });
    return count;
}();
static_assert(operationsBeyond == 121);
static_assert(requires(BloodPressureTD3140Device & monitor, OximeterADFB05Device& streaming,
                       OximeterTD8255Device& polled) {
    monitor.start();
    streaming.startResult();
    polled.startResult();
    polled.requestPayload();
});

static_assert(std::is_empty_v<Setting> && std::is_class_v<Setting>);

struct Wristband {
    using BaseValue = int;
    std::string name, uuid;
    bool autoResult = true, isConnected = false;
    std::optional<int> value;
};
struct Unfit : Wristband {
    using BaseValue = double;
};
static_assert(ProtocalDevice<Wristband> && !ProtocalDevice<Unfit> && !ProtocalDevice<int>);

template <class Loading>
constexpr bool isLoadingState = requires(const Loading& state) {
    { Loading::error("text") } -> std::same_as<Loading>;
    { Loading::loading() } -> std::same_as<Loading>;
    { Loading::success(GlucoseInfo{}) } -> std::same_as<Loading>;
    { state == state } -> std::convertible_to<bool>;
};
static_assert(isLoadingState<StateDeviceLoading<GlucoseInfo>>);

TEST(Contract, LoadingStatesCompareAndMatchByCase) {
    using Loading = StateDeviceLoading<GlucoseInfo>;
    const Loading states[] = {Loading::success({.glucose = 7, .uuid = "U"}), Loading::error("text"),
                              Loading::loading()};
    for (int i = 0; i < 3; ++i) {
        const auto which = [](const Loading& state) {
            return state.match([](const GlucoseInfo& info) { return info.glucose == 7 ? 0 : -1; },
                               [](const std::string& text) { return text == "text" ? 1 : -1; },
                               [] { return 2; });
        };
        EXPECT_EQ(which(states[i]), i);
        for (int j = 0; j < 3; ++j) EXPECT_EQ(states[i] == states[j], i == j);
    }
    EXPECT_EQ(states[0], Loading::success({.glucose = 7, .uuid = "U"}));
    EXPECT_EQ(Loading::success({}), Loading::success(GlucoseInfo{}));
    EXPECT_NE(states[0], Loading::success({.glucose = 8, .uuid = "U"}));
    EXPECT_NE(states[1], Loading::error(""));
}

TEST(Contract, ScansNestToTheirBoundAndNoDeeper) {
    SimulatedRadio radio;
    TemperatureAOJ20ADevice thermometer(true, radio);
    std::vector<std::string> violations;
    radio.onPreconditionFailed = [&](std::string_view, std::string_view what) {
        violations.emplace_back(what);
        thermometer.startScan();  // which is too deep as well
    };
    int states = 0;
    thermometer.stateCentralManager = [&](CBManagerState state) {
        ++states;
        if (state == CBManagerState::poweredOn) thermometer.startScan();
    };
    thermometer.startScan();
    radio.runUntilIdle();
    EXPECT_EQ(states, 1 + 32);  // the adapter's state is unknown at first
    EXPECT_EQ(radio.operations(), 32u);
    ASSERT_EQ(violations.size(), 1u);
    EXPECT_NE(violations[0].find("posted to the main queue"), std::string::npos);
    thermometer.startScan();
    EXPECT_EQ(states, 1 + 2 * 32);
}

// Commands and flags that no exchange uses are part of what is known of a device; they stay on record.
TEST(Contract, WhatIsDeclaredAndNotUsedStays) {
    const std::pair<const char*, std::vector<const char*>> declared[] = {
        {"ecg/ecg_td4257_device.cpp",
         {"payload_setDevice", "payload_set_date_time", "payload_handCheck", "payload_delete", "checking"}},
        {"body_composition/body_composition_adfb885t_device.cpp",
         {"isGetUserRequest", "isGetUserReceive", "isBodyCompositionRequestReceive"}},
    };
    for (const auto& [file, names] : declared) {
        std::ostringstream source;
        source << std::ifstream(std::string(CORVANE_DEVICES_DIR "/") + file).rdbuf();
        for (const char* name : names) {
            EXPECT_NE(source.str().find(' ' + std::string(name)), std::string::npos) << file << ' ' << name;
        }
    }
}

}  // namespace
}  // namespace corvane
