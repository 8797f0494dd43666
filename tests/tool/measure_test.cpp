#include <gmock/gmock.h>

#include "corvane/devices/catalogue.h"
#include "shell.h"

namespace corvane {
namespace {

using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string all = "corvane measure --all --platform simulated ";

std::vector<std::string> modelsIn(const std::string& jsonLines) {
    std::vector<std::string> found;
    for (const Json& line : jsonLinesOf(jsonLines)) {
        EXPECT_TRUE(line["record"].contains("uuid"));
        found.push_back(line["model"]);
    }
    return found;
}

std::vector<std::string> everyModel(std::size_t times) {
    std::vector<std::string> ids;
    for (const Model* model : models()) ids.insert(ids.end(), times, std::string(model->id));
    return ids;
}

TEST(Measure, ReadsEveryModelAtOnceIntoOneTable) {
    const Ran ran = sh(all);
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.err, "");  // no terminal, no progress
    const std::vector<std::string> lines = linesOf(ran.out);
    ASSERT_EQ(lines.size(), models().size() + 1);
    for (std::size_t i = 0; i < models().size(); ++i)
        EXPECT_THAT(lines[i + 1], StartsWith(std::string(models()[i]->id) + ' '));
    EXPECT_EQ(sh(all).out, ran.out);
    EXPECT_NE(sh(all + "--seed 2").out, ran.out);
}

TEST(Measure, TakesAsManyReadingsOfEachModelAsItIsAskedFor) {
    const Ran ran = sh(all + "--json --count 3");
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_THAT(modelsIn(ran.out), testing::UnorderedElementsAreArray(everyModel(3)));
}

// Whatever breaks on the way and mends again, each model still comes to its reading.
TEST(Measure, ComesToItsReadingsThroughPassingFaults) {
    for (const char* fault : {"link-lost", "radio:link-lost", "adapter-cycle", "early-value", "asleep",
                              "duplicate", "late", "none"}) {
        const Ran ran = sh(all + "--json --fault " + fault);
        EXPECT_EQ(ran.status, 0) << fault << '\n' << ran.err;
        EXPECT_THAT(modelsIn(ran.out), testing::UnorderedElementsAreArray(everyModel(1))) << fault;
    }
}

TEST(Measure, SaysWhyThereIsNoReading) {
    struct Case {
        const char* arguments;
        int status;
        const char* text;
    };
    const Case cases[] = {
        {"temperature-aoj20a --fault silent", 4, "timed out"},
        {"temperature-aoj20a --timeout 0.5", 4, "timed out"},
        {"oximeter-adfb05 --fault failed-measurement", 6, "device proccess error"},
        {"body-composition-adfb885t --fault failed-measurement", 6, "process error"},
    };
    for (const Case& c : cases) {
        const Ran ran = sh(std::string("corvane measure --platform simulated ") + c.arguments);
        EXPECT_EQ(ran.status, c.status) << c.arguments;
        EXPECT_EQ(ran.out, "") << c.arguments;
        EXPECT_THAT(ran.err, HasSubstr(c.text)) << c.arguments;
    }
    // The worst of all counts, and the table says which device is meant.
    const Ran both = sh("corvane measure --platform simulated --fault failed-measurement --timeout 10 "
                        "oximeter-adfb05 blood-pressure-td3140");
    EXPECT_EQ(both.status, 6);
    EXPECT_THAT(linesOf(both.out),
                Contains(testing::ContainsRegex("^oximeter-adfb05 +device proccess error")));
    EXPECT_THAT(linesOf(both.out), Contains(testing::ContainsRegex("^blood-pressure-td3140 +timed out")));
}

TEST(Measure, AFrameThatBreaksAPreconditionIsDroppedWithAWarning) {
    const Ran ran = sh("corvane measure temperature-aoj20a --platform simulated --fault short --count 20");
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(linesOf(ran.out).size(), 20u);
    EXPECT_THAT(linesOf(ran.err), Contains(HasSubstr("shorter than 6 bytes")));
    EXPECT_THAT(linesOf(ran.err), Each(StartsWith("warning: temperature-aoj20a: ")));
}

TEST(Measure, GivesTheScaleItsUser) {
    const Ran ran = sh("corvane measure body-composition-adfb885t --platform simulated --json "
                       "--height 181.5 --age 35 --gender male");
    ASSERT_EQ(ran.status, 0);
    const Json record = jsonLinesOf(ran.out)[0]["record"];
    EXPECT_EQ(record["height"], 181.5);
    EXPECT_EQ(record["age"], 35);
    EXPECT_EQ(record["gender"], "male");
}

TEST(Measure, ShowsTheConsoleLinesOfTheDriversOnlyWhenAsked) {
    const std::string command = "corvane measure glucose-td4257 ecg-td4257 --platform simulated ";
    const Ran ran = sh(command + "--verbose");
    EXPECT_EQ(ran.out, sh(command).out);
    EXPECT_THAT(linesOf(ran.err), Contains("glucose-td4257: TAIDOC TD4257"));
    EXPECT_THAT(linesOf(ran.err), Contains(StartsWith("ecg-td4257: PM10")));
}

TEST(Measure, NobodyLooksForTheDeviceOfAMeasurementThatHasEnded) {
    const Ran ran = sh("corvane measure body-tape temperature-aoj20a --platform simulated --fault asleep "
                       "--timeout 8 --count 40 --verbose");
    EXPECT_THAT(ran.out, HasSubstr("body-tape           timed out while searching"));
    // The tape wakes up after that, while the thermometer is measured.
    EXPECT_EQ(linesOf(ran.err).back(), "temperature-aoj20a: AOJ-20A");
}

TEST(Measure, ProgressAndColourAreForTerminals) {
    const std::string escape = "\x1b";
    const auto onTerminal = [](const std::string& environment) {
        return sh(environment + " script -qec 'corvane measure temperature-aoj20a --platform simulated "
                                "--fault short --count 9' /dev/null")
            .out;
    };
    const std::string coloured = onTerminal("TERM=xterm NO_COLOR=");
    EXPECT_THAT(coloured, HasSubstr("[0/1] temperature-aoj20a: measuring"));
    EXPECT_THAT(coloured, HasSubstr(escape + "[33mwarning:"));
    const std::string plain = onTerminal("TERM=xterm NO_COLOR=1");
    EXPECT_THAT(plain, HasSubstr("warning:"));
    EXPECT_THAT(plain, Not(HasSubstr(escape + "[33m")));
}

TEST(Measure, WithoutARadioItSaysSo) {
    const Ran ran = sh("DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nowhere corvane measure body-tape");
    EXPECT_EQ(ran.status, 5);
    EXPECT_THAT(ran.err, HasSubstr("--platform simulated"));
}

}  // namespace
}  // namespace corvane
