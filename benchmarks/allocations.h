#pragma once

#include <cstddef>

namespace corvane::benchmarks {

/// What this program has asked of the heap so far, through `new`.
struct Heap {
    std::size_t allocations = 0;
    std::size_t bytes = 0;  ///< Held now, as the allocator rounds them.
};
Heap heap();

}  // namespace corvane::benchmarks
