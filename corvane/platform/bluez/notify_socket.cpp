#include "corvane/platform/bluez/notify_socket.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "corvane/platform/bluez/bluez_names.h"

namespace corvane::bluez {
namespace {

bool isSequencedPacketSocket(int descriptor) {
    int type = 0;
    socklen_t size = sizeof type;
    return ::getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_SEQPACKET;
}

}  // namespace

std::shared_ptr<NotifySocket> NotifySocket::make(Descriptor descriptor, ValueHandler value,
                                                 std::function<void()> hungUp) {
    if (!descriptor || !isSequencedPacketSocket(descriptor.get())) return nullptr;
    return std::shared_ptr<NotifySocket>(
        new NotifySocket(std::move(descriptor), std::move(value), std::move(hungUp)));
}

std::uint32_t NotifySocket::events() const { return EPOLLIN; }

bool NotifySocket::dispatch() noexcept {
    if (closed_) return false;
    std::array<std::uint8_t, longestValue> buffer;
    const ssize_t size = ::recv(descriptor_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_TRUNC);
    const auto length = static_cast<std::size_t>(size);
    if (size > 0 && length <= buffer.size()) value_(Bytes(buffer.data(), length));
    if (size > 0) return true;
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return false;
    // A value without bytes reads like the end.
    if (size == 0 && !isAtEnd()) {
        value_(Bytes{});
        return true;
    }
    close();
    hungUp_();
    return false;
}

bool NotifySocket::isAtEnd() const {
    pollfd state{.fd = descriptor_.get(), .events = POLLRDHUP, .revents = 0};
    int waiting = 0;
    return ::poll(&state, 1, 0) > 0 && ::ioctl(descriptor_.get(), FIONREAD, &waiting) == 0 && waiting == 0;
}

}  // namespace corvane::bluez
