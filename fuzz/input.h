#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "corvane/platform/central.h"

namespace corvane {

/// Takes a fuzzer's bytes apart. At the end there are zeros.
struct Input {
    Bytes rest;

    bool empty() const { return rest.empty(); }
    std::uint8_t byte() {
        const Bytes one = take(1);
        return one.empty() ? std::uint8_t{0} : one[0];
    }
    Bytes take(std::size_t count) {
        const Bytes taken = rest.first(std::min(count, rest.size()));
        rest = rest.subspan(taken.size());
        return taken;
    }
};

/// What must hold for every input; a fuzzer stops where it does not.
inline void must(bool holds) {
    if (!holds) std::abort();
}

}  // namespace corvane
