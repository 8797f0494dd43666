#include "interruption.h"

#include <unistd.h>

#include <csignal>

namespace corvane::tool {
namespace {

volatile std::sig_atomic_t interrupted = 0;

constexpr int requests[] = {SIGINT, SIGTERM};

// Without SA_RESTART: whoever waits in a system call wakes up and looks.
void handle(int signal, void (*handler)(int), int flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigaction(signal, &action, nullptr);
}

// Whoever looked just before the signal and began to wait just after it is woken once more.
void wakeSoon(int /*signal*/) { alarm(1); }

void noteRequest(int signal) {
    interrupted = 1;
    wakeSoon(signal);
}

}  // namespace

Interruption::Interruption() {
    handle(SIGALRM, wakeSoon, 0);
    for (const int signal : requests) handle(signal, noteRequest, static_cast<int>(SA_RESETHAND));
}

Interruption::~Interruption() {
    alarm(0);
    for (const int signal : requests) handle(signal, SIG_DFL, 0);
}

bool Interruption::requested() const { return interrupted != 0; }

}  // namespace corvane::tool
