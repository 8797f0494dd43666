#include "tests/bluez/private_bus.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace corvane::bluez {
namespace {

constexpr int secondsToStart = 20;

// Lets every process own every name and say everything, as strangers on a bus might.
constexpr const char* configuration = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=%s/bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

}  // namespace

PrivateBus::PrivateBus() {
    char folder[] = "/tmp/corvane-bus-XXXXXX";
    if (!::mkdtemp(folder)) {
        failure_ = "no temporary folder";
        return;
    }
    folder_ = folder;
    if (writeConfiguration()) start();
}

PrivateBus::~PrivateBus() {
    if (daemon_ > 0) {
        ::kill(daemon_, SIGKILL);
        ::waitpid(daemon_, nullptr, 0);
    }
    std::error_code ignored;
    if (!folder_.empty()) std::filesystem::remove_all(folder_, ignored);
}

bool PrivateBus::writeConfiguration() {
    std::string text(2048, '\0');
    const int length = std::snprintf(text.data(), text.size(), configuration, folder_.c_str());
    std::ofstream file(folder_ + "/configuration");
    file.write(text.data(), length);
    if (!file.flush()) failure_ = "the configuration cannot be written";
    return failure_.empty();
}

void PrivateBus::start() {
    int pipe[2];
    if (::pipe2(pipe, O_CLOEXEC) < 0) {
        failure_ = "no pipe";
        return;
    }
    const std::string file = "--config-file=" + folder_ + "/configuration";
    daemon_ = ::fork();
    if (daemon_ == 0) {
        // It must not outlive a test that is killed.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::dup2(pipe[1], 3);
        ::dup2(::open("/dev/null", O_WRONLY), STDERR_FILENO);
        ::execlp("dbus-daemon", "dbus-daemon", file.c_str(), "--print-address=3", "--nofork", "--nopidfile",
                 "--nosyslog", nullptr);
        ::_exit(127);
    }
    ::close(pipe[1]);
    address_ = readAddress(pipe[0]);
    ::close(pipe[0]);
    if (address_.empty()) failure_ = "dbus-daemon does not start; is it installed?";
}

std::string PrivateBus::readAddress(int descriptor) {
    std::string text;
    pollfd waiting{.fd = descriptor, .events = POLLIN, .revents = 0};
    while (::poll(&waiting, 1, secondsToStart * 1000) > 0) {
        char buffer[256];
        const ssize_t size = ::read(descriptor, buffer, sizeof buffer);
        if (size <= 0) return {};
        text.append(buffer, static_cast<std::size_t>(size));
        if (text.back() == '\n') return text.substr(0, text.size() - 1);
    }
    return {};
}

}  // namespace corvane::bluez
