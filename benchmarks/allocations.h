#pragma once

#include <cstddef>

namespace corvane::benchmarks {

/// How often this program has asked the heap for memory so far, through `new`.
std::size_t allocations();

/// From here on the heap is weighed, which takes time of its own.
void startWeighing();
/// Bytes that are held beyond those at the start, as the allocator rounds them.
std::ptrdiff_t stopWeighing();

}  // namespace corvane::benchmarks
