// The faults, on a small device of the test's own under a host that the test plays.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "emulators/emulator.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using Kind = EmulatorFault::Kind;
using Value = std::vector<std::uint8_t>;

constexpr CBUUID channel{"ffe1"};

/// Answers each write with ten values in which every byte is the number of the value, from 1.
class Answerer final : public Emulator {
public:
    explicit Answerer(const EmulatorOptions& options) : Emulator(options) {}
    std::string name() const override { return "Answerer"; }
    std::vector<GattService> services() const override { return {}; }
    void received(const CBUUID&, Bytes) override {
        for (std::uint8_t i = 1; i <= 10; ++i) send(channel, Value(8, i));
    }
};

class TestHost : public PeripheralHost {
public:
    virtual ~TestHost() = default;
    void notify(const CBUUID&, Bytes value) override { values.emplace_back(value.begin(), value.end()); }
    void after(std::chrono::nanoseconds delay, std::function<void()> task) override {
        tasks.emplace(delay, std::move(task));
    }
    void disconnect() override { ++disconnects; }

    std::vector<Value> values;
    std::multimap<std::chrono::nanoseconds, std::function<void()>> tasks;
    int disconnects = 0;
};

/// One link: connect, subscribe, write. What is left waiting is in `host.tasks`.
void link(Answerer& device, TestHost& host) {
    device.connected(host);
    device.subscribed(channel, true);
    device.written(channel, Value{1}, CBCharacteristicWriteType::withResponse);
}

std::vector<Value> valuesWith(const EmulatorFault& fault, std::uint64_t seed = 1) {
    Answerer device({.seed = seed, .fault = fault});
    TestHost host;
    link(device, host);
    for (const auto& [due, task] : host.tasks) task();
    return host.values;
}

const std::vector<Value> right = [] {
    std::vector<Value> values;
    for (std::uint8_t i = 1; i <= 10; ++i) values.emplace_back(8, i);
    return values;
}();

TEST(EmulatorFaults, HaveNamesThatReadBack) {
    for (const EmulatorFault& fault : emulatorFaults())
        EXPECT_EQ(parseEmulatorFault(emulatorFaultText(fault)), fault) << emulatorFaultText(fault);
    EXPECT_EQ(parseEmulatorFault("link-lost@12"), (EmulatorFault{Kind::linkLost, 12}));
    EXPECT_EQ(emulatorFaultText({Kind::linkLost, 12}), "link-lost@12");
    for (const char* wrong : {"", "Short", "link-lost@", "link-lost@0", "link-lost@-1", "link-lost@1x",
                              "link-lost@99999999999", "late@3", "link-lost3"})
        EXPECT_EQ(parseEmulatorFault(wrong), std::nullopt) << wrong;
}

TEST(EmulatorFaults, ChangeTheValuesInTheirOwnWay) {
    EXPECT_EQ(valuesWith({Kind::none}), right);
    EXPECT_EQ(valuesWith({Kind::failedMeasurement}), right);
    EXPECT_EQ(valuesWith({Kind::late}), right);
    EXPECT_TRUE(valuesWith({Kind::silent}).empty());

    std::vector<Value> twice;
    for (const Value& value : right) twice.insert(twice.end(), 2, value);
    EXPECT_EQ(valuesWith({Kind::duplicate}), twice);

    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
        const std::vector<Value> cut = valuesWith({Kind::shortValue}, seed);
        const std::vector<Value> corrupt = valuesWith({Kind::corrupt}, seed);
        ASSERT_EQ(cut.size(), right.size());
        ASSERT_EQ(corrupt.size(), right.size());
        EXPECT_NE(cut, right);
        EXPECT_NE(corrupt, right);
        for (std::size_t i = 0; i < right.size(); ++i) {
            EXPECT_EQ(cut[i], Value(cut[i].size(), right[i][0]));
            EXPECT_LE(cut[i].size(), right[i].size());
            EXPECT_EQ(corrupt[i].size(), right[i].size());
        }
        EXPECT_EQ(cut, valuesWith({Kind::shortValue}, seed)) << "the seed decides";
        EXPECT_EQ(corrupt, valuesWith({Kind::corrupt}, seed)) << "the seed decides";
    }
}

TEST(EmulatorFaults, LateValuesComeSecondsLater) {
    Answerer device({.seed = 1, .fault = {Kind::late}});
    TestHost host;
    link(device, host);
    EXPECT_TRUE(host.values.empty());
    ASSERT_EQ(host.tasks.size(), right.size());
    EXPECT_GE(host.tasks.begin()->first, 1s);
}

TEST(EmulatorFaults, TheLinkIsLostOnceAtTheStep) {
    constexpr unsigned stepsBeforeValues = 3;
    for (unsigned step = 1; step <= stepsBeforeValues + 10; ++step) {
        std::vector<std::string> events;
        Answerer device({.seed = 1, .fault = {Kind::linkLost, step}, .onEvent = [&](std::string_view line) {
                             events.emplace_back(line);
                         }});
        TestHost host;
        link(device, host);
        EXPECT_EQ(host.disconnects, 1) << step;
        EXPECT_EQ(host.values.size(), step <= stepsBeforeValues ? 0 : step - stepsBeforeValues - 1) << step;
        EXPECT_EQ(events.size(), step) << "nothing happens after the loss";
        EXPECT_THAT(events.back(), testing::StartsWith("link lost"));

        device.disconnected();
        TestHost next;
        link(device, next);
        EXPECT_EQ(next.disconnects, 0) << step;
        EXPECT_EQ(next.values, right) << step;
    }
    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
        Answerer device({.seed = seed, .fault = {Kind::linkLost}});
        TestHost host;
        link(device, host);
        EXPECT_EQ(host.disconnects, 1) << "left to the seed " << seed;
    }
}

}  // namespace
}  // namespace corvane
