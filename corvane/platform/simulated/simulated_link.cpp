#include "corvane/platform/simulated/simulated_link.h"

#include "corvane/platform/simulated/simulated_peripheral.h"
#include "corvane/platform/simulated/simulated_station.h"

namespace corvane::simulated {

Link::Member* Link::find(const Peripheral& peripheral) {
    for (Member& member : members) {
        if (member.peripheral == &peripheral) return &member;
    }
    return nullptr;
}

void Link::notify(const CBUUID& characteristic, Bytes value) {
    if (!open_ || station_.isAsleep()) return;
    std::vector<std::uint8_t> bytes(value.begin(), value.end());
    air_.faults.damage(bytes);
    const auto shared = std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes));
    for (const Member& member : members) {
        if (std::find(member.subscriptions.begin(), member.subscriptions.end(), characteristic) !=
            member.subscriptions.end()) {
            member.peripheral->valueCame(characteristic, shared);
        }
    }
}

void Link::after(Duration delay, std::function<void()> task) {
    if (!open_) return;
    if (hurried_) return hurried_->push_back(std::move(task));
    air_.queue.at(air_.queue.now() + std::max(delay, Duration(0)),
                  [weak = weak_from_this(), task = std::move(task)] {
                      const auto self = weak.lock();
                      if (self && self->open_ && !self->station_.isAsleep()) task();
                  });
}

void Link::disconnect() {
    if (open_) station_.loseLink("the device has ended the link");
}

}  // namespace corvane::simulated
