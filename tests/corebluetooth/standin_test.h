// The ground of every test on the stand-ins.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "main_loop.h"
#include "objc_runtime.h"
#include "radio.h"

namespace standin {

/// A new air before the test; after it, nothing may be left of what the test made, and the back end may have
/// done nothing that the system complains about.
class StandinTest : public testing::Test {
protected:
    StandinTest() { radio::reset(); }
    ~StandinTest() override {
        mainLoop::runUntilIdle();
        mainLoop::clear();
        EXPECT_THAT(radio::takeMisuses(), testing::IsEmpty());
        radio::reset();
        objc_autoreleasePoolPop(pool_);
        EXPECT_EQ(objc::liveObjects(), objectsBefore_);
    }

private:
    // The main loop keeps a few objects for ever.
    const std::size_t objectsBefore_ = (mainLoop::now(), objc::liveObjects());
    void* const pool_ = objc_autoreleasePoolPush();
};

}  // namespace standin
