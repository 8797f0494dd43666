#include "corvane/platform/bluez/bus.h"

#include <poll.h>
#include <sys/epoll.h>

#include <cerrno>
#include <chrono>

namespace corvane::bluez {
namespace {

// sd-bus keeps a slot, and with it the handler, until a handler that releases it has returned.
template <class Handler>
void attachHandler(sd_bus_slot* slot, Handler* handler) {
    sd_bus_slot_set_destroy_callback(slot, [](void* attached) { delete static_cast<Handler*>(attached); });
    sd_bus_slot_set_userdata(slot, handler);
}

int onReply(sd_bus_message* message, void* handler, sd_bus_error*) noexcept {
    (*static_cast<Bus::ReplyHandler*>(handler))(Reply(message));
    return 1;
}

int onSignal(sd_bus_message* message, void* handler, sd_bus_error*) noexcept {
    (*static_cast<Bus::SignalHandler*>(handler))(message);
    return 0;
}

// How long a daemon that does not read may keep this process from ending.
constexpr std::chrono::seconds longestFlush{1};

int openBus(sd_bus** bus, const std::string& address) {
    if (address.empty()) return sd_bus_open_system(bus);
    int result = sd_bus_new(bus);
    if (result >= 0) result = sd_bus_set_address(*bus, address.c_str());
    if (result >= 0) result = sd_bus_set_bus_client(*bus, 1);
    if (result >= 0) result = sd_bus_negotiate_fds(*bus, 1);
    if (result >= 0) result = sd_bus_start(*bus);
    return result;
}

}  // namespace

void Message::append(const char* types, ...) {
    if (!message_) return;
    va_list arguments;
    va_start(arguments, types);
    sd_bus_message_appendv(get(), types, arguments);
    va_end(arguments);
}

void Message::appendBytes(const void* bytes, std::size_t size) {
    if (message_) sd_bus_message_append_array(get(), 'y', bytes, size);
}

void Message::appendOptions(const char* name, const char* text) {
    if (name) {
        append("a{sv}", 1, name, "s", text);
    } else {
        append("a{sv}", 0);
    }
}

std::string_view textOrEmpty(const char* text) { return text ? std::string_view(text) : std::string_view(); }

std::string_view senderOf(sd_bus_message* message) { return textOrEmpty(sd_bus_message_get_sender(message)); }

std::string_view Reply::errorName() const {
    const sd_bus_error* error = sd_bus_message_get_error(message_);
    return error ? textOrEmpty(error->name) : std::string_view();
}

std::string_view Reply::errorText() const {
    const sd_bus_error* error = sd_bus_message_get_error(message_);
    return error && error->message && *error->message ? std::string_view(error->message) : errorName();
}

std::string_view Reply::sender() const { return senderOf(message_); }

std::shared_ptr<Bus> Bus::open(const std::string& address, int& error) {
    sd_bus* bus = nullptr;
    error = openBus(&bus, address);
    if (error < 0) {
        sd_bus_unref(bus);
        return nullptr;
    }
    return std::shared_ptr<Bus>(new Bus(bus));
}

Bus::~Bus() {
    flush();
    sd_bus_close_unref(bus_);
}

void Bus::flush() {
    // What could not be sent at once is waiting for room; before the connection stands there is nothing that
    // matters. sd_bus_flush waits without bound. Nobody hears what is received here: the matches and the
    // calls have been released.
    const auto end = Clock::now() + longestFlush;
    while (!broken_ && sd_bus_is_ready(bus_) > 0 && (events() & EPOLLOUT)) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd room{.fd = descriptor(), .events = POLLOUT, .revents = 0};
        if (left <= 0 || ::poll(&room, 1, static_cast<int>(left)) <= 0 || sd_bus_process(bus_, nullptr) < 0)
            return;
    }
}

std::string Bus::uniqueName() const {
    const char* name = nullptr;
    return sd_bus_is_ready(bus_) > 0 && sd_bus_get_unique_name(bus_, &name) >= 0 ? name : "";
}

Message Bus::newCall(const std::string& destination, const std::string& path, const char* interface,
                     const char* member) {
    sd_bus_message* message = nullptr;
    sd_bus_message_new_method_call(bus_, &message, destination.c_str(), path.c_str(), interface, member);
    // A call must not start a service: whether there is one is for the system to decide.
    if (message) sd_bus_message_set_auto_start(message, 0);
    return Message(message);
}

Slot Bus::call(const Message& message, ReplyHandler handler) {
    sd_bus_slot* slot = nullptr;
    auto* kept = new ReplyHandler(std::move(handler));
    if (sd_bus_call_async(bus_, &slot, message.get(), onReply, kept, UINT64_MAX) < 0) {
        delete kept;
        return nullptr;
    }
    attachHandler(slot, kept);
    return Slot(slot);
}

void Bus::send(const Message& message) {
    sd_bus_message_set_expect_reply(message.get(), 0);
    sd_bus_send(bus_, message.get(), nullptr);
}

Slot Bus::match(const std::string& rule, SignalHandler handler) {
    sd_bus_slot* slot = nullptr;
    auto* kept = new SignalHandler(std::move(handler));
    if (sd_bus_add_match_async(bus_, &slot, rule.c_str(), onSignal, nullptr, kept) < 0) {
        delete kept;
        return nullptr;
    }
    attachHandler(slot, kept);
    return Slot(slot);
}

std::uint32_t Bus::events() const {
    const int events = sd_bus_get_events(bus_);
    // poll's and epoll's bits are the same for these.
    return events > 0 ? static_cast<std::uint32_t>(events) : 0;
}

std::optional<Clock::time_point> Bus::deadline() const {
    std::uint64_t due = UINT64_MAX;
    if (broken_ || sd_bus_get_timeout(bus_, &due) < 0 || due == UINT64_MAX) return std::nullopt;
    return Clock::time_point(std::chrono::microseconds(due));
}

bool Bus::dispatch() noexcept {
    if (broken_) return false;
    const int result = sd_bus_process(bus_, nullptr);
    if (result >= 0) return result > 0;
    broken_ = true;
    if (closed) closed();
    return false;
}

}  // namespace corvane::bluez
