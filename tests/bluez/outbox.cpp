#include "tests/bluez/outbox.h"

#include <utility>

namespace corvane::bluez {

void Outbox::useBus(sd_bus* bus) {
    bus_ = bus;
    late_.reset();
    overtaken_.reset();
}

void Outbox::send(const Message& message, const std::string& name) {
    if (!bus_) return;
    ++sent_;
    if (whenSent) whenSent(sent_, name);
    if (!mishap || mishap->message != sent_) return passOn(message);
    switch (mishap->kind) {
    case Mishap::Kind::loss:
        return;
    case Mishap::Kind::delay:
        late_ = loop_.after(mishap->delay, [this, message] { passOn(message); });
        return;
    case Mishap::Kind::swapWithNext:
        overtaken_ = message;
        return;
    }
}

void Outbox::passOn(const Message& message) {
    sd_bus_send(bus_, message.get(), nullptr);
    if (const auto overtaken = std::exchange(overtaken_, std::nullopt))
        sd_bus_send(bus_, overtaken->get(), nullptr);
}

}  // namespace corvane::bluez
