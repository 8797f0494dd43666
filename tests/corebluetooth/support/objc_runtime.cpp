#include "objc_runtime.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace standin::objc {

using Implementation = void (*)();
using Selector = const char*;

// What the compiler lays down. The layouts are its own, and so are the names of the sections.

struct Method {
    Selector name;
    const char* types;
    Implementation implementation;
};

template <class Entry>
struct List {
    std::uint32_t entrySize, count;
    Entry* entries() { return reinterpret_cast<Entry*>(this + 1); }
};

struct ClassData {
    std::uint32_t flags, instanceStart, instanceSize;
    void* ivarLayout;
    const char* name;
    List<Method>* methods;
    void *protocols, *ivars, *weakIvarLayout, *properties;

    static constexpr std::uint32_t metaclass = 1;
};

struct MethodTable {
    std::unordered_map<Selector, Implementation> own;
    std::unordered_map<Selector, Implementation> found;  // inherited ones included
};

}  // namespace standin::objc

using namespace standin::objc;

extern "C" {
extern Selector __start_objc_selrefs[], __stop_objc_selrefs[];
extern Class *__start_objc_classlist[], *__stop_objc_classlist[];
extern Class objectClass __asm__("OBJC_CLASS_$_NSObject");
extern Class constantStringClass __asm__("__CFConstantStringClassReference");
void* _objc_empty_cache[2];
void standin_disposeBlock(Object* block);
}

namespace {

// The reference count stands before each object.
struct Header {
    std::int64_t references;
    std::int64_t tag;
};
constexpr std::int64_t liveTag = 0x6f626a63;
constexpr std::int64_t leaving = -1;

std::size_t live = 0;

[[noreturn]] void die(const char* what, const char* className, const char* selector = "") {
    std::fprintf(stderr, "Objective-C runtime: %s: %s %s\n", what, className, selector);
    std::abort();
}

Selector intern(Selector name) {
    static auto* names = new std::unordered_map<std::string_view, Selector>;
    return names->try_emplace(name, name).first->second;
}

void prepare(Class* cls) {
    cls->methods = new MethodTable;
    List<Method>* list = cls->data->methods;
    for (std::uint32_t i = 0; list && i < list->count; ++i) {
        cls->methods->own[intern(list->entries()[i].name)] = list->entries()[i].implementation;
    }
}

// The superclass's instance variables as the class was compiled to see them.
void checkLayout(const Class* cls) {
    if (cls->superclass && cls->data->instanceStart < cls->superclass->data->instanceSize) {
        die("a superclass has hidden instance variables", cls->data->name);
    }
}

// Before any constructor of an ordinary static object.
__attribute__((constructor(101))) void load() {
    for (Selector* s = __start_objc_selrefs; s < __stop_objc_selrefs; ++s) *s = intern(*s);
    for (Class** c = __start_objc_classlist; c < __stop_objc_classlist; ++c) {
        prepare(*c);
        prepare((*c)->isa);
    }
    for (Class** c = __start_objc_classlist; c < __stop_objc_classlist; ++c) checkLayout(*c);
    for (Class* block : {&_NSConcreteStackBlock, &_NSConcreteMallocBlock, &_NSConcreteGlobalBlock}) {
        block->isa = &objectClass;
        block->superclass = &objectClass;
        block->methods = new MethodTable;
        block->data = objectClass.data;
    }
}

Implementation find(Class* cls, Selector selector) {
    auto& found = cls->methods->found;
    if (const auto hit = found.find(selector); hit != found.end()) return hit->second;
    for (Class* c = cls; c; c = c->superclass) {
        if (const auto own = c->methods->own.find(selector); own != c->methods->own.end()) {
            return found[selector] = own->second;
        }
    }
    return nullptr;
}

bool isCounted(const Object* object) {
    const Class* cls = object->isa;
    return cls /* a protocol has none */ && cls != &constantStringClass && cls != &_NSConcreteStackBlock &&
           cls != &_NSConcreteGlobalBlock && !(cls->data->flags & ClassData::metaclass);
}

Header& headerOf(Object* object) {
    Header& header = reinterpret_cast<Header*>(object)[-1];
    if (header.tag != liveTag) die("not a live object", object->isa->data->name);
    return header;
}

bool isLeaving(Object* object) { return headerOf(object).references == leaving; }

// Which places refer weakly to an object.
auto& weakReferences() {
    static auto* table = new std::unordered_map<Object*, std::unordered_set<Object**>>;
    return *table;
}

void unlinkWeak(Object** place) {
    if (!*place) return;
    if (const auto entry = weakReferences().find(*place); entry != weakReferences().end()) {
        entry->second.erase(place);
        if (entry->second.empty()) weakReferences().erase(entry);
    }
    *place = nullptr;
}

void linkWeak(Object** place, Object* object) {
    *place = nullptr;
    if (!object) return;
    if (isCounted(object)) {
        if (isLeaving(object)) return;
        weakReferences()[object].insert(place);
    }
    *place = object;
}

std::vector<Object*>& pool() {
    static auto* objects = new std::vector<Object*>;
    return *objects;
}

template <class Result, class... Args>
Result send(Class* cls, Selector selector, Args... args) {
    const Implementation method = find(cls, selector);
    if (!method) die("unrecognized selector", cls->data->name, selector);
    return reinterpret_cast<Result (*)(Args..., Selector)>(method)(args..., selector);
}

// Calls the method that the compiler made of each class in the chain that has one.
void forEachOwn(const std::vector<Class*>& chain, Selector selector, Object* object) {
    for (Class* cls : chain) {
        const auto own = cls->methods->own.find(selector);
        if (own == cls->methods->own.end()) continue;
        reinterpret_cast<void (*)(Object*, Selector)>(own->second)(object, selector);
    }
}

std::vector<Class*> ancestry(Class* cls) {
    std::vector<Class*> chain;
    for (; cls; cls = cls->superclass) chain.push_back(cls);
    return chain;
}

}  // namespace

namespace standin::objc {

Object* allocate(std::size_t size, Class* isa) {
    auto* header = static_cast<Header*>(std::calloc(1, sizeof(Header) + size));
    header->references = 1;
    header->tag = liveTag;
    auto* object = reinterpret_cast<Object*>(header + 1);
    object->isa = isa;
    ++live;
    return object;
}

void destroy(Object* object) {
    --live;
    Header& header = headerOf(object);
    header.tag = 0;
    std::free(&header);
}

Object* create(Class* cls) {
    static const Selector construct = intern(".cxx_construct");
    Object* object = allocate(cls->data->instanceSize, cls);
    const std::vector<Class*> chain = ancestry(cls);
    forEachOwn({chain.rbegin(), chain.rend()}, construct, object);
    return object;
}

void dispose(Object* object) {
    static const Selector destruct = intern(".cxx_destruct");
    forEachOwn(ancestry(object->isa), destruct, object);
    if (const auto entry = weakReferences().find(object); entry != weakReferences().end()) {
        for (Object** place : entry->second) *place = nullptr;
        weakReferences().erase(entry);
    }
    destroy(object);
}

std::size_t liveObjects() { return live; }

}  // namespace standin::objc

extern "C" {

// Called by the entry points that messages go through.
__attribute__((used)) Implementation standin_lookUp(Class* cls, Selector selector) {
    const Implementation method = find(cls, selector);
    if (!method) die("unrecognized selector", cls->data->name, selector);
    return method;
}

// While an object is deallocated, retaining and releasing it has no effect.
Object* objc_retain(Object* object) {
    if (object && isCounted(object) && !isLeaving(object)) ++headerOf(object).references;
    return object;
}

void objc_release(Object* object) {
    static const Selector dealloc = intern("dealloc");
    if (!object || !isCounted(object) || isLeaving(object)) return;
    Header& header = headerOf(object);
    if (--header.references > 0) return;
    header.references = leaving;
    if (object->isa == &_NSConcreteMallocBlock) return standin_disposeBlock(object);
    send<void>(object->isa, dealloc, object);
}

Object* objc_autorelease(Object* object) {
    if (object && isCounted(object)) pool().push_back(object);
    return object;
}

void* objc_autoreleasePoolPush() { return reinterpret_cast<void*>(pool().size() + 1); }
void objc_autoreleasePoolPop(void* token) {
    const std::size_t base = reinterpret_cast<std::size_t>(token) - 1;
    while (pool().size() > base) {
        Object* object = pool().back();
        pool().pop_back();
        objc_release(object);
    }
}

Object* objc_autoreleaseReturnValue(Object* object) { return objc_autorelease(object); }
Object* objc_retainAutoreleaseReturnValue(Object* object) { return objc_autorelease(objc_retain(object)); }
Object* objc_retainAutoreleasedReturnValue(Object* object) { return objc_retain(object); }

void objc_storeStrong(Object** place, Object* object) {
    Object* old = *place;
    *place = objc_retain(object);
    objc_release(old);
}

Object* objc_alloc(Class* cls) {
    static const Selector alloc = intern("alloc");
    return send<Object*>(cls->isa, alloc, cls);
}
Object* objc_alloc_init(Class* cls) {
    static const Selector init = intern("init");
    Object* object = objc_alloc(cls);
    return send<Object*>(object->isa, init, object);
}

Object* objc_loadWeakRetained(Object** place) {
    Object* object = *place;
    if (!object) return nullptr;
    return isCounted(object) && isLeaving(object) ? nullptr : objc_retain(object);
}
Object* objc_initWeak(Object** place, Object* object) {
    linkWeak(place, object);
    return *place;
}
Object* objc_storeWeak(Object** place, Object* object) {
    unlinkWeak(place);
    linkWeak(place, object);
    return *place;
}
void objc_destroyWeak(Object** place) { unlinkWeak(place); }
void objc_copyWeak(Object** to, Object** from) {
    Object* object = objc_loadWeakRetained(from);
    linkWeak(to, object);
    objc_release(object);
}
void objc_moveWeak(Object** to, Object** from) {
    objc_copyWeak(to, from);
    unlinkWeak(from);
}

void objc_enumerationMutation(Object* object) { die("changed while enumerated", object->isa->data->name); }

}  // extern "C"
