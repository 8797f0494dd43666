// The socket on which bluetoothd hands over the notifications of one characteristic.
#pragma once

#include <functional>
#include <memory>

#include "corvane/platform/bluez/event_loop.h"
#include "corvane/platform/central.h"

namespace corvane::bluez {

class NotifySocket final : public EventSource {
public:
    using ValueHandler = std::function<void(Bytes)>;

    /// Null when the descriptor is no socket that keeps values apart. `hungUp` is called once, after the last
    /// value.
    static std::shared_ptr<NotifySocket> make(Descriptor descriptor, ValueHandler value,
                                              std::function<void()> hungUp);

    /// Nothing is handed over any more; from inside a handler as well.
    void close() { closed_ = true; }

    int descriptor() const override { return descriptor_.get(); }
    std::uint32_t events() const override;
    bool dispatch() noexcept override;

private:
    NotifySocket(Descriptor descriptor, ValueHandler value, std::function<void()> hungUp)
        : descriptor_(std::move(descriptor)), value_(std::move(value)), hungUp_(std::move(hungUp)) {}
    bool isAtEnd() const;

    Descriptor descriptor_;
    const ValueHandler value_;
    const std::function<void()> hungUp_;
    bool closed_ = false;
};

}  // namespace corvane::bluez
