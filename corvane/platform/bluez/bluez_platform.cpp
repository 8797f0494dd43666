#include "corvane/platform/bluez/bluez_platform.h"

#include <poll.h>

#include <atomic>

#include "corvane/platform/bluez/central.h"
#include "corvane/platform/bluez/event_loop.h"
#include "corvane/platform/bluez/radio.h"

namespace corvane {

struct BlueZPlatform::Parts {
    bluez::EventLoop loop;
    std::shared_ptr<bluez::Radio> radio;
    std::atomic<bool> stopAsked = false;
    static_assert(std::atomic<bool>::is_always_lock_free);
};

BlueZPlatform::BlueZPlatform(BlueZOptions options) : parts_(std::make_unique<Parts>()) {
    const auto tell = [this](std::string_view line) {
        if (diagnostics) diagnostics(line);
    };
    parts_->loop.diagnostics = tell;
    parts_->radio = std::make_shared<bluez::Radio>(std::move(options), parts_->loop, tell);
}

BlueZPlatform::~BlueZPlatform() { parts_->loop.discardTasks(); }

std::shared_ptr<CBCentralManager>
BlueZPlatform::makeCentralManager(std::weak_ptr<CBCentralManagerDelegate> delegate) {
    return bluez::Central::make(parts_->radio, std::move(delegate));
}

MainQueue& BlueZPlatform::mainQueue() { return parts_->loop; }

void BlueZPlatform::run() {
    while (!parts_->stopAsked.exchange(false)) parts_->loop.step();
}

void BlueZPlatform::stop() noexcept {
    parts_->stopAsked = true;
    wake();
}

void BlueZPlatform::wake() noexcept { parts_->loop.wake(); }

bool BlueZPlatform::runUntil(const std::function<bool()>& done, std::chrono::nanoseconds limit) {
    return parts_->loop.runUntil(done, limit);
}

int BlueZPlatform::descriptor() const { return parts_->loop.descriptor(); }

short BlueZPlatform::events() const { return POLLIN; }

std::optional<std::chrono::nanoseconds> BlueZPlatform::timeout() { return parts_->loop.timeout(); }

void BlueZPlatform::process() { parts_->loop.step(std::chrono::nanoseconds::zero()); }

}  // namespace corvane
