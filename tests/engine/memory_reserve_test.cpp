#include "engine/memory_reserve.h"

#include <gtest/gtest.h>

#include <new>

#include "common/registry_fixture.h"

namespace {

using namespace vt;

// The handler frees the reserve once and lets the allocation retry; with no reserve left it
// lets the allocation fail. Either way the queue is told that memory is low.
TEST(MemoryReserveTest, HandlerSpendsTheReserveOnceThenFails) {
    vt::test::DebugCapture capture;
    setLowMemory(false);
    ASSERT_TRUE(allocateReserveMemory());
    EXPECT_NO_THROW(outOfMemoryHandler());
    EXPECT_TRUE(lowMemory());
    EXPECT_FALSE(holdsReserveMemory());
    EXPECT_THROW(outOfMemoryHandler(), std::bad_alloc);
    for (const char* text : {"Warning Event 1045 logged", "Error Event 1043 logged",
                             "Out Of Memory Condition could temporarily be resolved.",
                             "Out Of Memory Condition could not be resolved, failing..."})
        EXPECT_EQ(capture.count(text), 1u) << text;
    EXPECT_TRUE(allocateReserveMemory());
    setLowMemory(false);
}

}  // namespace
