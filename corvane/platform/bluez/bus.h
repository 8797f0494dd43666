// A connection to a message bus: sd-bus, with what it hands out released by itself.
//
// Nothing here blocks. Handlers run while the bus is dispatched, never from inside a call. They must not
// throw: an exception cannot pass through sd-bus.
#pragma once

#include <chrono>
#include <cstdarg>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "corvane/platform/bluez/event_loop.h"
#include "corvane/platform/bluez/sd_bus.h"

namespace corvane::bluez {

struct ReleaseSlot {
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};
/// A match, a registered object or a call that waits for its reply. Letting go of it withdraws it, also from
/// inside its own handler.
using Slot = std::unique_ptr<sd_bus_slot, ReleaseSlot>;

/// A message, or none, to which nothing can be appended; copies share it.
class Message {
public:
    /// Takes over the reference.
    explicit Message(sd_bus_message* message = nullptr) : message_(message, sd_bus_message_unref) {}

    sd_bus_message* get() const { return message_.get(); }

    /// Appends arguments as sd_bus_message_append takes them.
    void append(const char* types, ...);
    void appendBytes(const void* bytes, std::size_t size);
    /// One a{sv} with a text, or an empty one.
    void appendOptions(const char* name = nullptr, const char* text = nullptr);

private:
    std::shared_ptr<sd_bus_message> message_;
};

/// Empty for null.
std::string_view textOrEmpty(const char* text);
/// The unique name of who has sent the message; empty where it says none.
std::string_view senderOf(sd_bus_message* message);

/// What came back from a call; valid while the handler runs.
class Reply {
public:
    explicit Reply(sd_bus_message* message) : message_(message) {}

    bool failed() const { return sd_bus_message_is_method_error(message_, nullptr) > 0; }
    /// Name of the error; empty when the call succeeded.
    std::string_view errorName() const;
    /// The text that came with the error, or its name.
    std::string_view errorText() const;
    bool is(std::string_view error) const { return errorName() == error; }
    /// The unique name of who answered.
    std::string_view sender() const;
    sd_bus_message* message() const { return message_; }

private:
    sd_bus_message* message_;
};

class Bus final : public EventSource {
public:
    using ReplyHandler = std::function<void(const Reply&)>;
    using SignalHandler = std::function<void(sd_bus_message*)>;

    /// An empty address means the system bus. Null and a negative errno when there is none.
    static std::shared_ptr<Bus> open(const std::string& address, int& error);
    /// Sends what is still waiting, for a second at most.
    ~Bus() override;

    bool canPassDescriptors() const { return sd_bus_can_send(bus_, SD_BUS_TYPE_UNIX_FD) > 0; }

    /// The library's own handle, for what has no wrapper here.
    sd_bus* handle() const { return bus_; }

    /// Empty until the bus has given one.
    std::string uniqueName() const;

    Message newCall(const std::string& destination, const std::string& path, const char* interface,
                    const char* member);
    /// Sends; the handler is called with the reply, however late it comes, unless the slot is released
    /// before.
    [[nodiscard]] Slot call(const Message& message, ReplyHandler handler);
    /// Sends, and wants no reply.
    void send(const Message& message);
    /// Asks the bus for what matches, and hands it over. A rule that names a sender by its well-known name
    /// lets through what another process addresses to this connection: handlers check who sent it.
    [[nodiscard]] Slot match(const std::string& rule, SignalHandler handler);

    /// Called once when the connection has broken.
    std::function<void()> closed;

    int descriptor() const override { return sd_bus_get_fd(bus_); }
    std::uint32_t events() const override;
    std::optional<Clock::time_point> deadline() const override;
    bool dispatch() noexcept override;

private:
    explicit Bus(sd_bus* bus) : bus_(bus) {}
    void flush();

    sd_bus* bus_;
    bool broken_ = false;
};

}  // namespace corvane::bluez
