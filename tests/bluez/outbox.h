// The way on which everything that the service says goes to the bus: signals and replies, one after another.
// Any single message can be lost, come late, or be overtaken by the next one.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "corvane/platform/bluez/bus.h"

namespace corvane::bluez {

struct Mishap {
    enum class Kind { loss, delay, swapWithNext } kind;
    std::uint64_t message;  // Its number; the first one of an outbox is 1.
    std::chrono::nanoseconds delay{0};
};

class Outbox {
public:
    explicit Outbox(EventLoop& loop) : loop_(loop) {}

    /// Null while there is none. What is still held belongs to the former bus, and is dropped.
    void useBus(sd_bus* bus);
    /// `name` says which message it is: "PropertiesChanged hci0 Powered", "reply Connect".
    void send(const Message& message, const std::string& name);

    std::optional<Mishap> mishap;
    /// Told of every message, also of those that do not arrive. May be absent.
    std::function<void(std::uint64_t number, const std::string& name)> whenSent;

private:
    void passOn(const Message& message);

    EventLoop& loop_;
    sd_bus* bus_ = nullptr;
    std::uint64_t sent_ = 0;
    std::unique_ptr<Timer> late_;
    std::optional<Message> overtaken_;
};

}  // namespace corvane::bluez
