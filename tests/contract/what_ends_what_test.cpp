// The table of docs/what-ends-what.md, played on the simulated radio cell by cell.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>

#include "corvane/corvane.h"
#include "corvane/platform/simulated/simulated_radio.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;

/// The one model with a timer. Once it is renamed, no driver takes it.
class Oximeter final : public PeripheralDevice {
public:
    std::string name() const override { return advertised; }
    std::vector<GattService> services() const override {
        using Driver = OximeterTD8255Device;
        return {{Driver::serviceCBUUID, {{Driver::characteristicCBUUID, gatt::notify | gatt::write}}}};
    }
    void connected(PeripheralHost& to) override { host = &to; }
    void disconnected() override { host = nullptr; }

    std::string advertised{OximeterTD8255Device::deviceName};
    PeripheralHost* host = nullptr;
};

struct Scene {
    Scene() {
        radio.logSink = [](std::string_view) {};
        driver->stateCentralManager = [this](CBManagerState) { ++states; };
        driver->startScan();
        radio.runUntilIdle();
    }

    bool isLinked() const { return device->host != nullptr; }
    void link() {
        radio.add(device);
        radio.runFor(5s);
        ASSERT_TRUE(isLinked());
    }
    void attempt() {
        radio.add(device);
        while (radio.links() == 0 && radio.step()) {
        }
        radio.remove(*device);
        ASSERT_EQ(radio.links(), 1u);
    }
    void switchAdapter() {
        radio.setState(CBManagerState::poweredOff);
        radio.runFor(5s);
        radio.setState(CBManagerState::poweredOn);
        radio.runFor(5s);
    }

    SimulatedRadio radio;
    const std::shared_ptr<Oximeter> device = std::make_shared<Oximeter>();
    std::unique_ptr<OximeterTD8255Device> driver = std::make_unique<OximeterTD8255Device>(true, true, radio);
    int states = 0;
};

/// How a thing comes about, and whether it still goes on some time later.
struct Thing {
    std::function<void(Scene&)> begin;
    std::function<bool(Scene&)> goesOn;
};
const std::map<std::string, Thing> things{
    {"scan", {[](Scene&) {}, [](Scene& scene) { return scene.radio.scans() == 1; }}},
    {"attempt", {&Scene::attempt, [](Scene& scene) { return scene.radio.links() == 1; }}},
    {"link", {&Scene::link, &Scene::isLinked}},
    {"timer",
     {&Scene::link,
      [](Scene& scene) {
          const std::size_t before = scene.radio.operations();
          scene.radio.runFor(5s);
          return scene.radio.operations() > before;
      }}},
    {"search",
     {[](Scene&) {},
      [](Scene& scene) {
          scene.switchAdapter();
          return scene.radio.scans() == 1;
      }}},
    {"calling back",
     {[](Scene&) {},
      [](Scene& scene) {
          const int before = scene.states;
          scene.switchAdapter();
          return scene.states > before;
      }}},
};

const std::map<std::string, std::function<void(Scene&)>> happenings{
    {"`stopScan()`", [](Scene& scene) { scene.driver->stopScan(); }},
    {"`disconnect()`", [](Scene& scene) { scene.driver->disconnect(); }},
    {"`startScan()`", [](Scene& scene) { scene.driver->startScan(); }},
    {"the device goes out of reach", [](Scene& scene) { scene.radio.remove(*scene.device); }},
    {"the device ends the link",
     [](Scene& scene) {
         if (scene.isLinked()) scene.device->host->disconnect();
     }},
    {"the adapter goes off", [](Scene& scene) { scene.radio.setState(CBManagerState::poweredOff); }},
    {"the driver is destroyed", [](Scene& scene) { scene.driver.reset(); }},
};

/// The rows of the page's table, headings first.
std::vector<std::vector<std::string>> tableOf(const char* page) {
    std::vector<std::vector<std::string>> rows;
    std::ifstream file(page);
    for (std::string line; std::getline(file, line);) {
        if (!line.starts_with("| ")) continue;
        rows.emplace_back();
        for (std::size_t at = 2, end; (end = line.find(" |", at)) != line.npos; at = end + 3)
            rows.back().push_back(line.substr(at, end - at));
    }
    return rows;
}

TEST(WhatEndsWhat, IsAsThePageSays) {
    const auto rows = tableOf(CORVANE_ROOT "/docs/what-ends-what.md");
    ASSERT_EQ(rows.size(), 1 + happenings.size());
    for (std::size_t row = 1; row < rows.size(); ++row) {
        ASSERT_EQ(rows[row].size(), 1 + things.size());
        for (std::size_t column = 1; column < rows[row].size(); ++column) {
            SCOPED_TRACE(rows[0][column] + ", when " + rows[row][0]);
            const Thing& thing = things.at(rows[0][column]);
            Scene scene;
            thing.begin(scene);
            scene.device->advertised = "Another";
            happenings.at(rows[row][0])(scene);
            scene.radio.runFor(5s);
            EXPECT_EQ(thing.goesOn(scene) ? "goes on" : "ends", rows[row][column]);
        }
    }
}

}  // namespace
}  // namespace corvane
