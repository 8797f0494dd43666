#include "corvane/platform/corebluetooth/corebluetooth_platform.h"
#include "standin_test.h"
#include "tests/conformance/contracts.h"

namespace corvane::conformance {
namespace {

using namespace standin;

class CoreBluetoothBackEnd final : public BackEnd {
public:
    explicit CoreBluetoothBackEnd(StackBehaviour behaviour) : air_(behaviour) {}

    Platform& platform() override { return *platform_; }
    std::chrono::nanoseconds now() override { return mainLoop::now(); }
    void add(std::shared_ptr<PeripheralDevice> device) override { radio::add(std::move(device)); }
    void remove(const PeripheralDevice& device) override { radio::remove(device); }
    void nameChanged(const PeripheralDevice& device) override { radio::nameChanged(device); }
    void setState(CBManagerState state) override { radio::setState(state); }
    bool runUntil(const std::function<bool()>& done) override {
        const auto limit = mainLoop::now() + std::chrono::minutes(1);
        while (!done()) {
            if (!mainLoop::stepUntil(limit)) return false;
        }
        return true;
    }
    void settle() override { mainLoop::runFor(std::chrono::seconds(10)); }

private:
    FreshAir air_;
    std::unique_ptr<Platform> platform_ = makeCoreBluetoothPlatform();
};

bool registerStack(const char* name, StackBehaviour behaviour) {
    return registerConformance(name, [=] { return std::make_unique<CoreBluetoothBackEnd>(behaviour); });
}

using PowerOff = StackBehaviour::PowerOff;
const bool registered =
    registerStack("CoreBluetooth", {}) &&
    registerStack(
        "CoreBluetoothTalkative",
        {.powerOff = PowerOff::linksBeforeState, .repeatsDiscoveries = true, .showsLinksToTheirEnd = true}) &&
    registerStack("CoreBluetoothLate", {.powerOff = PowerOff::linksAfterState, .deliversLate = true});

}  // namespace
}  // namespace corvane::conformance
