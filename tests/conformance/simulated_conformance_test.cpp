#include "corvane/platform/simulated/simulated_radio.h"
#include "tests/conformance/contracts.h"

namespace corvane::conformance {
namespace {

class SimulatedBackEnd final : public BackEnd {
    Platform& platform() override { return radio_; }
    std::chrono::nanoseconds now() override { return radio_.now(); }
    void add(std::shared_ptr<PeripheralDevice> device) override { radio_.add(std::move(device)); }
    void remove(const PeripheralDevice& device) override { radio_.remove(device); }
    void nameChanged(const PeripheralDevice& device) override { radio_.nameChanged(device); }
    void setState(CBManagerState state) override { radio_.setState(state); }
    bool runUntil(const std::function<bool()>& done) override {
        return radio_.runUntil(done, std::chrono::minutes(1));
    }
    void settle() override { radio_.runFor(std::chrono::seconds(10)); }

    SimulatedRadio radio_;
};

const bool registered =
    registerConformance("SimulatedRadio", [] { return std::make_unique<SimulatedBackEnd>(); });

}  // namespace
}  // namespace corvane::conformance
