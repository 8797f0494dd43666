// A platform whose events reach a driver even after its end.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "corvane/platform/platform.h"

namespace corvane::sweep {

/// Hands everything on to another platform, but keeps the sessions of its drivers alive, and repeats at will
/// what they have heard. A weak delegate does not excuse a driver: on a system, too, somebody may hold it for
/// an event that is under way.
class LateRadio final : public Platform {
public:
    explicit LateRadio(Platform& inner) : inner_(inner) {}

    std::shared_ptr<CBCentralManager>
    makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) override;
    MainQueue& mainQueue() override { return inner_.mainQueue(); }

    /// Delivers the last event of each kind once more.
    void repeatEverything();

private:
    class Echo;

    Platform& inner_;
    std::vector<std::shared_ptr<Echo>> echoes_;
};

}  // namespace corvane::sweep
