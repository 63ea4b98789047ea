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
    const std::string log = capture.text();
    EXPECT_NE(log.find("Warning Event 1045 logged"), std::string::npos) << log;
    EXPECT_NE(log.find("Out Of Memory Condition could temporarily be resolved."),
              std::string::npos);
    EXPECT_NE(log.find("Error Event 1043 logged"), std::string::npos);
    EXPECT_NE(log.find("Out Of Memory Condition could not be resolved, failing..."),
              std::string::npos);
    // The queue gets the reserve back on its next Add; here by hand.
    EXPECT_TRUE(allocateReserveMemory());
    setLowMemory(false);
}

}  // namespace
