#include "benchmarks/allocations.h"

#include <malloc.h>

#include <cstdlib>
#include <new>
#include <utility>

namespace {

std::size_t allocations = 0;
bool weighing = false;
std::ptrdiff_t weight = 0;

std::ptrdiff_t weightOf(void* block) { return static_cast<std::ptrdiff_t>(malloc_usable_size(block)); }

}  // namespace

std::size_t corvane::benchmarks::allocations() { return ::allocations; }
void corvane::benchmarks::startWeighing() { weighing = true; }
std::ptrdiff_t corvane::benchmarks::stopWeighing() {
    weighing = false;
    return std::exchange(weight, 0);
}

void* operator new(std::size_t size) {
    void* block = std::malloc(size);
    if (!block) throw std::bad_alloc();
    ++allocations;
    if (weighing) weight += weightOf(block);
    return block;
}
void operator delete(void* block) noexcept {
    if (weighing) weight -= weightOf(block);
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
