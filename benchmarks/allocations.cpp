#include "benchmarks/allocations.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace {
corvane::benchmarks::Heap counted;
}

corvane::benchmarks::Heap corvane::benchmarks::heap() { return counted; }

void* operator new(std::size_t size) {
    void* block = std::malloc(size);
    if (!block) throw std::bad_alloc();
    ++counted.allocations;
    counted.bytes += malloc_usable_size(block);
    return block;
}
void operator delete(void* block) noexcept {
    counted.bytes -= malloc_usable_size(block);
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
