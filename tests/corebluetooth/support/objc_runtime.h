// A small Objective-C runtime for test programs on ELF systems with x86-64.
//
// For `-fobjc-runtime=ios-15.0` clang lowers Objective-C to the same structures and the same calls on ELF as
// on the vendor's systems, so a source under test needs no more than these entry points to run: messages,
// classes, protocols, reference counting, weak references, blocks and autorelease pools. Each object has its
// own place on the ordinary heap, so the sanitizers see it: an over-release is a use after free, a cycle is a
// leak.
//
// One thread only. Left out, as the sources under test must not use it: @throw and @catch, @synchronized,
// categories, forwarding, +load, +initialize, associated objects, structures returned through memory.
#pragma once

#include <cstddef>

namespace standin::objc {

struct MethodTable;
struct ClassData;

/// As the compiler lays it down.
struct Class {
    Class *isa, *superclass;
    MethodTable* methods;  // The compiler leaves this word to the runtime.
    void* unused;
    ClassData* data;
};

struct Object {
    Class* isa;
};

/// Memory for an object whose first reference is the caller's; zeroed.
Object* allocate(std::size_t size, Class* isa);
/// Gives the memory back.
void destroy(Object* object);

/// Makes an instance and runs the constructors of its C++ members.
Object* create(Class* cls);
/// Runs the destructors of the C++ members, clears weak references, and gives the memory back.
void dispose(Object* object);

/// Instances alive, blocks included.
std::size_t liveObjects();

}  // namespace standin::objc

extern "C" {
standin::objc::Object* objc_retain(standin::objc::Object* object);
void objc_release(standin::objc::Object* object);
void* objc_autoreleasePoolPush();
void objc_autoreleasePoolPop(void* token);
extern standin::objc::Class _NSConcreteStackBlock, _NSConcreteMallocBlock, _NSConcreteGlobalBlock;
}
