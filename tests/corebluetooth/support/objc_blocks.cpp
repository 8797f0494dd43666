// Blocks: closures that start out on the stack and move to the heap when someone keeps them.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "objc_runtime.h"

using namespace standin::objc;

extern "C" {
Class _NSConcreteStackBlock, _NSConcreteMallocBlock, _NSConcreteGlobalBlock;
}

namespace {

struct Descriptor {
    unsigned long reserved, size;
    void (*copy)(void* to, const void* from);
    void (*dispose)(const void* block);
};

struct Block {
    Class* isa;
    std::int32_t flags, reserved;
    void (*invoke)();
    Descriptor* descriptor;

    static constexpr std::int32_t hasCopyDispose = 1 << 25;
    static constexpr std::int32_t isGlobal = 1 << 28;
};

}  // namespace

extern "C" {

void* _Block_copy(const void* of) {
    auto* from = static_cast<Block*>(const_cast<void*>(of));
    if (!from || from->flags & Block::isGlobal) return from;
    if (from->isa == &_NSConcreteMallocBlock) return objc_retain(reinterpret_cast<Object*>(from));
    auto* copy = reinterpret_cast<Block*>(allocate(from->descriptor->size, &_NSConcreteMallocBlock));
    std::memcpy(static_cast<void*>(copy), from, from->descriptor->size);
    copy->isa = &_NSConcreteMallocBlock;
    if (from->flags & Block::hasCopyDispose) from->descriptor->copy(copy, from);
    return copy;
}

void* objc_retainBlock(void* of) { return _Block_copy(of); }

void standin_disposeBlock(Object* object) {
    auto* block = reinterpret_cast<Block*>(object);
    if (block->flags & Block::hasCopyDispose) block->descriptor->dispose(block);
    destroy(object);
}

}  // extern "C"
