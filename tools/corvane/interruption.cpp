#include "interruption.h"

#include <csignal>
#include <utility>

namespace corvane::tool {
namespace {

volatile std::sig_atomic_t interrupted = 0;
// Of the present Interruption. It changes only while the handlers are not installed.
const std::function<void()>* wake = nullptr;

constexpr int requests[] = {SIGINT, SIGTERM};

void handle(void (*handler)(int), int flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    for (const int signal : requests) sigaction(signal, &action, nullptr);
}

void noteRequest(int /*signal*/) {
    interrupted = 1;
    (*wake)();
}

}  // namespace

Interruption::Interruption(std::function<void()> toWake) : wake_(std::move(toWake)) {
    wake = &wake_;
    handle(noteRequest, static_cast<int>(SA_RESETHAND));
}

Interruption::~Interruption() { handle(SIG_DFL, 0); }

bool Interruption::requested() const { return interrupted != 0; }

}  // namespace corvane::tool
