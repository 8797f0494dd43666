// A D-Bus daemon of the test's own.
#pragma once

#include <string>

#include <sys/types.h>

namespace corvane::bluez {

/// Starts a daemon, and ends it. There is none when `address` is empty: `failure` then says why.
class PrivateBus {
public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& address() const { return address_; }
    const std::string& failure() const { return failure_; }

private:
    bool writeConfiguration();
    void start();
    std::string readAddress(int descriptor);

    std::string folder_;
    std::string address_;
    std::string failure_;
    pid_t daemon_ = -1;
};

}  // namespace corvane::bluez
