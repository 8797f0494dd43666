#import <Foundation/Foundation.h>

#include <cstdlib>
#include <map>

#include "main_loop.h"

using namespace std::chrono_literals;

@interface MainDispatchQueue : NSObject <OS_dispatch_queue>
@end
@implementation MainDispatchQueue
@end

@interface NSTimer () {
@public
    std::chrono::nanoseconds _interval;
    BOOL _repeats;
    void (^_block)(NSTimer*);
}
@end

namespace standin::mainLoop {
namespace {

struct Entry {
    std::function<void()> task;
    NSTimer* timer = nil;
    bool defaultModeOnly = false;
};

struct Loop {
    MainDispatchQueue* queue = [MainDispatchQueue new];
    NSRunLoop* runLoop = [NSRunLoop new];
    std::multimap<std::chrono::nanoseconds, Entry> entries;
    std::chrono::nanoseconds now{};
    bool tracking = false;

    auto next() {
        auto entry = entries.begin();
        while (entry != entries.end() && tracking && entry->second.defaultModeOnly) ++entry;
        return entry;
    }
};

Loop& loop() {
    static auto* theLoop = new Loop;
    return *theLoop;
}

void fire(std::chrono::nanoseconds due, Entry entry) {
    NSTimer* timer = entry.timer;
    // The timer alone keeps the block, as it may on the vendor's systems.
    void (^__unsafe_unretained block)(NSTimer*) = timer->_block;
    if (timer->_repeats) loop().entries.emplace(due + timer->_interval, std::move(entry));
    block(timer);
    if (!timer->_repeats) [timer invalidate];
}

}  // namespace

std::chrono::nanoseconds now() { return loop().now; }

bool stepUntil(std::chrono::nanoseconds limit) {
    const auto next = loop().next();
    if (next == loop().entries.end() || next->first > limit) return false;
    const auto due = next->first;
    loop().now = std::max(loop().now, due);
    Entry entry = std::move(next->second);
    loop().entries.erase(next);
    @autoreleasepool {
        if (entry.timer) {
            fire(due, std::move(entry));
        } else {
            entry.task();
            entry.task = nullptr;
        }
    }
    return true;
}

void runUntilIdle() {
    while (stepUntil(now())) {
    }
}

std::optional<std::chrono::nanoseconds> nextDue() {
    const auto next = loop().next();
    return next == loop().entries.end() ? std::nullopt : std::optional(next->first);
}

void runFor(std::chrono::nanoseconds duration) {
    const auto until = loop().now + duration;
    while (stepUntil(until)) {
    }
    loop().now = until;
}

void after(std::chrono::nanoseconds delay, std::function<void()> task) {
    loop().entries.emplace(loop().now + delay, Entry{std::move(task)});
}

void setTracking(bool on) { loop().tracking = on; }
void clear() { loop().entries.clear(); }

}  // namespace standin::mainLoop

using standin::mainLoop::loop;

dispatch_queue_t dispatch_get_main_queue() { return loop().queue; }

void dispatch_async(dispatch_queue_t queue, dispatch_block_t block) {
    if (queue != (dispatch_queue_t)loop().queue) abort();
    standin::mainLoop::after(0ns, block);
}

dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta) {
    const auto start = when == DISPATCH_TIME_NOW ? loop().now.count() : static_cast<int64_t>(when);
    return static_cast<dispatch_time_t>(start + delta);
}

void dispatch_after(dispatch_time_t when, dispatch_queue_t queue, dispatch_block_t block) {
    if (queue != (dispatch_queue_t)loop().queue) abort();
    standin::mainLoop::after(std::chrono::nanoseconds(when) - loop().now, block);
}

NSRunLoopMode const NSDefaultRunLoopMode = @"kCFRunLoopDefaultMode";
NSRunLoopMode const NSRunLoopCommonModes = @"kCFRunLoopCommonModes";

@implementation NSRunLoop
+ (NSRunLoop*)mainRunLoop {
    return loop().runLoop;
}
- (void)addTimer:(NSTimer*)timer forMode:(NSRunLoopMode)mode {
    const bool defaultModeOnly = ![mode isEqualToString:NSRunLoopCommonModes];
    loop().entries.emplace(loop().now + timer->_interval,
                           standin::mainLoop::Entry{{}, timer, defaultModeOnly});
}
@end

@implementation NSTimer
+ (NSTimer*)timerWithTimeInterval:(NSTimeInterval)seconds
                          repeats:(BOOL)repeats
                            block:(void (^)(NSTimer*))block {
    NSTimer* timer = [NSTimer new];
    timer->_interval = std::chrono::nanoseconds(static_cast<int64_t>(seconds * 1e9));
    timer->_repeats = repeats;
    timer->_block = block;
    return timer;
}
- (void)invalidate {  // lets go of the block at once, the earliest that it may
    _block = nil;
    std::erase_if(loop().entries, [&](const auto& entry) { return entry.second.timer == self; });
}
@end
