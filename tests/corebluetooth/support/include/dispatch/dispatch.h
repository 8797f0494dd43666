// Stand-in declarations: what the back end uses of dispatch, no more.
#pragma once

#include <objc/objc.h>
#include <stdint.h>

@protocol OS_dispatch_queue
@end

typedef id<OS_dispatch_queue> dispatch_queue_t;
typedef void (^dispatch_block_t)(void);
typedef uint64_t dispatch_time_t;

#define DISPATCH_TIME_NOW 0ull
#define NSEC_PER_SEC 1000000000ull

extern "C" {
dispatch_queue_t _Nonnull dispatch_get_main_queue(void);
void dispatch_async(dispatch_queue_t _Nonnull queue, dispatch_block_t _Nonnull block);
dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta);
void dispatch_after(dispatch_time_t when, dispatch_queue_t _Nonnull queue, dispatch_block_t _Nonnull block);
}
