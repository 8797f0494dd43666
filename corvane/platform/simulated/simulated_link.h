// The link of a device of the simulated radio: what its centrals share, and what the device calls.
#pragma once

#include "corvane/platform/simulated/simulated_air.h"

namespace corvane::simulated {

class Peripheral;

class Link final : public PeripheralHost, public std::enable_shared_from_this<Link> {
public:
    Link(Air& air, Station& station) : air_(air), station_(station) {}

    void notify(const CBUUID& characteristic, Bytes value) override;
    void after(Duration delay, std::function<void()> task) override;
    void disconnect() override;

    /// Each belongs to another central. They leave before they go.
    struct Member {
        Peripheral* peripheral;
        std::vector<CBUUID> subscriptions;
    };
    /// Null for a peripheral that has no part in the link.
    Member* find(const Peripheral& peripheral);

    /// From now on nothing that the device asks for has an effect.
    void close() { open_ = false; }
    bool isOpen() const { return open_; }

    /// Calls the device, and what it wanted to do some time after that at once.
    template <class Call>
    void hurry(Call call) {
        std::vector<std::function<void()>> tasks;
        hurried_ = &tasks;
        call();
        hurried_ = nullptr;
        for (const auto& task : tasks) task();
    }

    std::vector<Member> members;  ///< In the order of joining.

private:
    Air& air_;
    Station& station_;
    bool open_ = true;
    std::vector<std::function<void()>>* hurried_ = nullptr;
};

}  // namespace corvane::simulated
