// Every emulated device under its real driver.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <set>

#include "tests/emulators/watched_driver.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using Kind = EmulatorFault::Kind;

/// What a living person's values lie within. A number that has no line here is a gap in this test.
const std::map<std::string_view, std::pair<double, double>> plausibleRanges = {
    {"glucose", {60, 450}}, {"pluse", {45, 130}},   {"sys", {90, 180}},        {"dia", {40, 140}},
    {"oxygen", {90, 100}},  {"bpm", {45, 130}},     {"temperature", {35, 41}}, {"weight", {35, 130}},
    {"fat", {5, 55}},       {"bone", {1, 6}},       {"water", {30, 72}},       {"muscle", {20, 110}},
    {"bmi", {16, 35}},      {"height", {170, 170}}, {"age", {40, 40}},         {"measure", {8, 140}},
    {"pulse", {45, 150}},   {"value", {25, 300}}};

void expectPlausible(std::string_view field, double value) {
    const auto range = plausibleRanges.find(field);
    ASSERT_NE(range, plausibleRanges.end()) << field;
    EXPECT_GE(value, range->second.first) << field;
    EXPECT_LE(value, range->second.second) << field;
}

template <class Info>
void expectPlausible(const Info& info, const std::string& identifier) {
    visitFields(info, [&](std::string_view field, const auto& value) {
        using Value = std::decay_t<decltype(value)>;
        if constexpr (std::is_arithmetic_v<Value>) {
            expectPlausible(field, static_cast<double>(value));
        } else if constexpr (std::is_same_v<Value, std::string>) {
            if (field == "uuid") {
                EXPECT_EQ(value, identifier);
            } else {
                expectPlausible(field, std::strtod(value.c_str(), nullptr));
            }
        }
    });
}

TEST(Emulators, GiveAPlausibleRecordForEverySeed) {
    forEachDriver([]<class Driver>() {
        std::set<std::string> different;
        for (std::uint64_t seed = 1; seed <= 20; ++seed) {
            SCOPED_TRACE(std::string(Driver::model.id) + " seed " + std::to_string(seed));
            Bench<Driver> bench({.seed = seed});
            ASSERT_TRUE(bench.runUntilRecords(1)) << bench.watched->transcript;
            expectPlausible(bench.watched->records[0], bench.radio.identifier(*bench.device));
            EXPECT_TRUE(bench.watched->errors.empty());
            EXPECT_EQ(bench.droppedValues, 0u);
            different.insert(describe(bench.watched->records[0]));
        }
        EXPECT_GT(different.size(), 10u) << Driver::model.id;
    });
}

TEST(Emulators, MisbehaveTheSameForTheSameSeedAndBreakNothing) {
    forEachDriver([]<class Driver>() {
        for (const EmulatorFault& fault : emulatorFaults()) {
            for (std::uint64_t seed = 1; seed <= 5; ++seed) {
                SCOPED_TRACE(std::string(Driver::model.id) + ' ' + emulatorFaultText(fault) + " seed " +
                             std::to_string(seed));
                Bench<Driver> bench({.seed = seed, .fault = fault});
                Bench<Driver> again({.seed = seed, .fault = fault});
                bench.radio.runFor(60s);
                again.radio.runFor(60s);
                EXPECT_EQ(bench.watched->transcript, again.watched->transcript);

                const bool measures =
                    fault.kind == Kind::none || fault.kind == Kind::duplicate || fault.kind == Kind::late;
                EXPECT_TRUE(!measures || !bench.watched->records.empty());
                EXPECT_TRUE(fault.kind != Kind::silent || bench.watched->records.empty());
                EXPECT_EQ(bench.watched->disconnects, fault.kind == Kind::linkLost ? 1u : 0u);
            }
        }
    });
}

TEST(Emulators, RecoverFromALinkLostAtAnyStep) {
    forEachDriver([]<class Driver>() {
        // The last ones are in the midst of what the devices that stream send.
        for (const unsigned step : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 12u, 14u, 50u, 100u}) {
            SCOPED_TRACE(std::string(Driver::model.id) + " step " + std::to_string(step));
            Bench<Driver> bench({.seed = step, .fault = {Kind::linkLost, step}});
            const bool lost = bench.radio.runUntil([&] { return bench.watched->disconnects > 0; }, patience);
            ASSERT_TRUE(lost || step > 10) << "each device goes through at least ten steps";
            if (!lost) continue;
            bench.watched->driver->startScan();
            EXPECT_TRUE(bench.radio.runUntil([&] { return bench.watched->connects == 2; }, 10s));
            // A driver of the scale asks once in its life, so the record is a new one's.
            bench.watch();
            ASSERT_TRUE(bench.runUntilRecords(1)) << bench.watched->transcript;
            expectPlausible(bench.watched->records[0], bench.radio.identifier(*bench.device));
            EXPECT_EQ(bench.watched->disconnects, 0u);
        }
    });
}

TEST(Catalogue, EveryDriverClaimsItsOwnAdvertisementAndNoOther) {
    for (const Model* claimant : models()) {
        for (const Model* advertiser : models()) {
            const std::string name = makeEmulator(*advertiser, {})->name();
            EXPECT_EQ(claimant->recognises(name), claimant == advertiser) << claimant->id << " and " << name;
        }
    }
}

// What single models promise beyond a record.

TEST(BloodPressureCuff, InflatesBeforeItsReading) {
    Bench<BloodPressureTD3140Device> bench({}, {.repeatResult = true});
    bench.radio.runFor(60s);
    const auto& records = bench.watched->records;
    ASSERT_GT(records.size(), 5u);
    for (std::size_t i = 0; i + 1 < records.size(); ++i) {
        EXPECT_EQ(records[i].dia, 0);
        EXPECT_EQ(records[i].pluse, 0);
        EXPECT_GT(records[i].sys, i == 0 ? 0 : records[i - 1].sys);
    }
    EXPECT_GT(records[records.size() - 2].sys, records.back().sys) << "tight beyond the systolic pressure";
    EXPECT_GT(records.back().sys, records.back().dia);
    EXPECT_GT(records.back().pluse, 0);
    EXPECT_EQ(bench.watched->driver->getResult()->sys, 0) << "closed";
}

TEST(PollingOximeter, AnswersZerosUntilItFindsTheFinger) {
    Bench<OximeterTD8255Device> bench({}, {.repeatResult = true});
    ASSERT_TRUE(bench.runUntilRecords(10));
    const auto& records = bench.watched->records;
    const auto found =
        std::find_if(records.begin(), records.end(), [](const OximeterInfo& info) { return info.bpm != 0; });
    EXPECT_GE(found - records.begin(), 2);
    EXPECT_TRUE(std::all_of(records.begin(), found, [](const auto& info) { return info.oxygen == 0; }));
    EXPECT_TRUE(std::all_of(found, records.end(), [](const auto& info) { return info.oxygen >= 90; }));
}

TEST(Emulators, FailTheirFirstMeasurementOnRequest) {
    const EmulatorOptions failing{.seed = 3, .fault = {Kind::failedMeasurement}};
    Bench<OximeterADFB05Device> oximeter(failing);
    ASSERT_TRUE(oximeter.runUntilRecords(1));
    EXPECT_THAT(oximeter.watched->errors, testing::ElementsAre("device proccess error"));

    Bench<BodyTapeDevice> tape(failing);
    ASSERT_TRUE(tape.runUntilRecords(1));
    EXPECT_THAT(tape.watched->errors, testing::ElementsAre("BodyTapeInfo not found"));

    Bench<BodyCompositionADFB885TDevice> scale(failing);
    scale.radio.runFor(patience);
    EXPECT_THAT(scale.watched->errors, testing::ElementsAre("process error"));
    EXPECT_TRUE(scale.watched->records.empty());
}

TEST(Scale, WeighsThePersonOfTheProfile) {
    using Gender = BodyCompositionADFB885TDeviceGender;
    const auto record = [](double height, std::int64_t age, Gender gender) {
        Bench<BodyCompositionADFB885TDevice> bench({.seed = 5},
                                                   {.height = height, .age = age, .gender = gender});
        EXPECT_TRUE(bench.runUntilRecords(1));
        return bench.watched->records.at(0);
    };
    const BodyCompositionInfo woman = record(158, 30, Gender::female);
    const BodyCompositionInfo man = record(190, 30, Gender::male);
    const BodyCompositionInfo oldMan = record(190, 70, Gender::male);
    for (const BodyCompositionInfo& info : {woman, man, oldMan}) {
        const double metres = info.height / 100;
        EXPECT_NEAR(info.weight, info.bmi * metres * metres, 0.2);
        EXPECT_LT(info.muscle + info.bone + info.weight * info.fat / 100, info.weight + 0.5);
    }
    EXPECT_EQ(woman.bmi, man.bmi) << "the same seed is the same build";
    EXPECT_GT(man.weight, woman.weight);
    EXPECT_LT(man.fat, woman.fat);
    EXPECT_GT(oldMan.fat, man.fat);
}

TEST(Meters, ChangeWhatTheyMeasure) {
    Bench<BodyTapeDevice> tape;
    ASSERT_TRUE(tape.runUntilRecords(2));
    EXPECT_NE(tape.watched->records[0].unit, tape.watched->records[1].unit);

    Bench<MultiMonitoringBeneCheckDevice> meter;
    ASSERT_TRUE(meter.runUntilRecords(3));
    std::set<MultiMonitoringBeneCheckType> measured;
    for (const auto& info : meter.watched->records) measured.insert(info.type);
    EXPECT_EQ(measured.size(), 3u);
}

}  // namespace
}  // namespace corvane
