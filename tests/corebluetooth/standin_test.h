// The ground of every test on the stand-ins.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "main_loop.h"
#include "objc_runtime.h"
#include "radio.h"

namespace standin {

/// A new air for one test. Afterwards nothing may be left of what the test made, and the back end may have
/// done nothing that the system complains about.
class FreshAir {
public:
    explicit FreshAir(StackBehaviour behaviour = {}) { radio::reset(behaviour); }
    FreshAir(const FreshAir&) = delete;
    FreshAir& operator=(const FreshAir&) = delete;
    ~FreshAir() {
        mainLoop::runUntilIdle();
        mainLoop::clear();
        EXPECT_THAT(radio::takeMisuses(), testing::IsEmpty());
        radio::reset();
        objc_autoreleasePoolPop(pool_);
        EXPECT_EQ(objc::liveObjects(), objectsBefore_);
    }

private:
    // The main loop keeps a few objects for ever, from when it is first asked for anything.
    const std::size_t objectsBefore_ = (mainLoop::now(), objc::liveObjects());
    void* const pool_ = objc_autoreleasePoolPush();
};

}  // namespace standin
