#pragma once

#include "corvane/platform/simulated/simulated_radio.h"
#include "tests/conformance/contracts.h"

namespace corvane::conformance {

class SimulatedBackEnd : public BackEnd {
public:
    explicit SimulatedBackEnd(SimulatedRadioOptions options = {}) : radio(std::move(options)) {}

    Platform& platform() override { return radio; }
    std::chrono::nanoseconds now() override { return radio.now(); }
    void add(std::shared_ptr<PeripheralDevice> device) override { radio.add(std::move(device)); }
    void remove(const PeripheralDevice& device) override { radio.remove(device); }
    void nameChanged(const PeripheralDevice& device) override { radio.nameChanged(device); }
    void setState(CBManagerState state) override { radio.setState(state); }
    bool runUntil(const std::function<bool()>& done) override {
        return radio.runUntil(done, std::chrono::minutes(1));
    }
    void settle() override { radio.runFor(std::chrono::seconds(10)); }

    SimulatedRadio radio;
};

}  // namespace corvane::conformance
