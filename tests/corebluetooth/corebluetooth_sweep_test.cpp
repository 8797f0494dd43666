#include "corvane/platform/corebluetooth/corebluetooth_platform.h"
#include "standin_test.h"
#include "tests/sweep/sweep.h"

namespace corvane::sweep {
namespace {

using namespace standin;
using namespace std::chrono_literals;

class CoreBluetoothSweepBackEnd final : public SweepBackEnd {
public:
    Platform& platform() override { return *platform_; }
    void add(std::shared_ptr<PeripheralDevice> device) override { radio::add(std::move(device)); }
    void setState(CBManagerState state) override { radio::setState(state); }
    bool step() override { return mainLoop::stepUntil(mainLoop::now() + 1h); }
    void settle() override { mainLoop::runFor(1min); }
    std::size_t operations() override { return radio::operations(); }
    std::string leftovers() override {
        if (radio::scans() > 0) return "a scan";
        if (radio::links() > 0) return "a link";
        if (radio::managers() > 0) return "a central";
        return mainLoop::nextDue() ? "a timer" : "";
    }

private:
    // The hardest of what a system may do.
    FreshAir air_{{.powerOff = StackBehaviour::PowerOff::linksAfterState, .deliversLate = true}};
    std::unique_ptr<Platform> platform_ = makeCoreBluetoothPlatform();
};

const bool registered =
    registerSweep("CoreBluetooth", [] { return std::make_unique<CoreBluetoothSweepBackEnd>(); });

}  // namespace
}  // namespace corvane::sweep
