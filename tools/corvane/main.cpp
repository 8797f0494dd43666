#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>

#include "command_line.h"
#include "corvane/platform/platform.h"
#include "failure.h"

namespace corvane::tool {
namespace {

// A file that is opened later must not take the number of a standard stream that the caller has closed. What
// stands in cannot be written to, so that lost data is noticed.
void reserveStandardStreams() {
    for (int descriptor = 0; descriptor < 3; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) == -1) open("/dev/null", O_RDONLY);
    }
}

int report(const char* text, ExitStatus status) {
    std::fprintf(stderr, "corvane: %s\n", printable(text).c_str());
    return static_cast<int>(status);
}

int run(int argc, char** argv) {
    reserveStandardStreams();
    // A reader that went away is reported like any other failed write.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return static_cast<int>(parseCommandLine(argc, argv)());
    } catch (const Failure& failure) {
        return report(failure.what(), failure.status);
    } catch (const std::exception& error) {
        return report(error.what(), ExitStatus::internalError);
    }
}

}  // namespace
}  // namespace corvane::tool

int main(int argc, char** argv) { return corvane::tool::run(argc, argv); }
