#include "corvane/platform/simulated/simulated_radio.h"
#include "tests/sweep/sweep.h"

namespace corvane::sweep {
namespace {

class SimulatedSweepBackEnd final : public SweepBackEnd {
public:
    Platform& platform() override { return radio_; }
    void add(std::shared_ptr<PeripheralDevice> device) override { radio_.add(std::move(device)); }
    void setState(CBManagerState state) override { radio_.setState(state); }
    bool step() override { return radio_.step(); }
    void settle() override { radio_.runUntilIdle(); }
    std::size_t operations() override { return radio_.operations(); }
    std::string leftovers() override {
        if (radio_.scans() > 0) return "a scan";
        if (radio_.links() > 0) return "a link";
        if (radio_.centrals() > 0) return "a central";
        return radio_.pendingTasks() > 0 ? "a timer" : "";
    }

private:
    SimulatedRadio radio_;
};

const bool registered =
    registerSweep("SimulatedRadio", [] { return std::make_unique<SimulatedSweepBackEnd>(); });

}  // namespace
}  // namespace corvane::sweep
