#pragma once

#include <functional>

namespace corvane::tool {

/// While one exists, Ctrl-C and a polite request to end are remembered instead of ending the program, so that
/// it can put things in order. A second one ends it at once.
class Interruption {
public:
    /// `wake` ends the program's wait, so that it looks; called from a signal handler.
    explicit Interruption(std::function<void()> wake);
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    bool requested() const;

private:
    const std::function<void()> wake_;
};

}  // namespace corvane::tool
