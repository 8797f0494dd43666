#include "console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "corvane/platform/platform.h"

namespace corvane::tool {
namespace {

bool wantsColour() {
    const char* noColour = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return !(noColour && *noColour) && terminal && std::string_view(terminal) != "dumb";
}

std::size_t terminalWidth() {
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col : 80;
}

}  // namespace

Console::Console() : terminal_(isatty(STDERR_FILENO)), colour_(terminal_ && wantsColour()) {}

Console::~Console() { clearProgress(); }

void Console::message(std::string_view text) { print(printable(text)); }

void Console::warning(std::string_view text) {
    print((colour_ ? "\x1b[33mwarning:\x1b[0m " : "warning: ") + printable(text));
}

void Console::progress(std::string_view text) {
    if (!terminal_) return;
    // A line that wraps could not be replaced.
    const std::string line = printable(text).substr(0, terminalWidth() - 1);
    std::fprintf(stderr, "\r\x1b[K%s", line.c_str());
    std::fflush(stderr);
    progressShown_ = true;
}

void Console::clearProgress() {
    if (!progressShown_) return;
    std::fputs("\r\x1b[K", stderr);
    std::fflush(stderr);
    progressShown_ = false;
}

void Console::print(std::string_view text) {
    clearProgress();
    std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
}

}  // namespace corvane::tool
