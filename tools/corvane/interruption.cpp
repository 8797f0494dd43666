#include "interruption.h"

#include <csignal>

namespace corvane::tool {
namespace {

volatile std::sig_atomic_t interrupted = 0;

constexpr int signals[] = {SIGINT, SIGTERM};

void handle(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    // Without SA_RESTART: whoever waits in a system call wakes up and looks.
    action.sa_flags = SA_RESETHAND;
    for (const int signal : signals) sigaction(signal, &action, nullptr);
}

}  // namespace

Interruption::Interruption() {
    handle([](int) { interrupted = 1; });
}

Interruption::~Interruption() { handle(SIG_DFL); }

bool Interruption::requested() const { return interrupted != 0; }

}  // namespace corvane::tool
