#include "tests/bluez/air.h"
#include "tests/conformance/contracts.h"

namespace corvane::bluez {
namespace {

class BlueZBackEnd final : public conformance::BackEnd {
public:
    BlueZBackEnd(BlueZNotifyPath notifyPath, const StandInHabits& habits) : air_({.notifyPath = notifyPath}) {
        air_.service.habits = habits;
    }

    Platform& platform() override { return air_.platform; }
    std::chrono::nanoseconds now() override { return air_.loop.now().time_since_epoch(); }
    void add(std::shared_ptr<PeripheralDevice> device) override { air_.service.add(std::move(device)); }
    void remove(const PeripheralDevice& device) override { air_.service.remove(device); }
    void nameChanged(const PeripheralDevice& device) override { air_.service.nameChanged(device); }
    void setState(CBManagerState state) override {
        air_.service.setPowered(state == CBManagerState::poweredOn);
    }
    bool runUntil(const std::function<bool()>& done) override { return air_.runUntil(done); }
    void settle() override { air_.runFor(std::chrono::seconds(10)); }

private:
    Air air_;
};

bool check(const char* name, BlueZNotifyPath notifyPath, const StandInHabits& habits = {}) {
    const auto make = [=] { return std::make_unique<BlueZBackEnd>(notifyPath, habits); };
    // A client of BlueZ that is subscribed cannot make it tell the device once more: it would have to
    // unsubscribe first, and lose values.
    return conformance::registerConformance(name, make, {"ADeviceIsToldOfEverySubscription"});
}

const bool registered = check("BlueZ", BlueZNotifyPath::automatic) &&
                        check("BlueZBySocket", BlueZNotifyPath::socket, {.keepsEarlyValuesOnSocket = true}) &&
                        check("BlueZWithOtherHabits", BlueZNotifyPath::busSignals,
                              {.cachesObjects = false,
                               .resolvesBeforeReply = true,
                               .disconnectTime = std::chrono::milliseconds(30)});

}  // namespace
}  // namespace corvane::bluez
