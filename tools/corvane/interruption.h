#pragma once

namespace corvane::tool {

/// While one exists, Ctrl-C and a polite request to end are remembered instead of ending the program, so that
/// it can put things in order. A second one ends it at once.
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    bool requested() const;
};

}  // namespace corvane::tool
