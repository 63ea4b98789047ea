#include <gtest/gtest.h>

#include <string>

#include "common/registry_fixture.h"
#include "platform/service_status.h"

namespace {

#ifdef _WIN32
// The service control manager (Wine's here): an unknown name is "not installed", not a
// failure; a service it has is found.
TEST(ServiceStatus, AsksTheServiceControlManager) {
    vt::ServiceState state = vt::ServiceState::Running;
    std::string error;
    ASSERT_TRUE(vt::queryServiceState("vtagent_no_such_service", state, error)) << error;
    EXPECT_EQ(state, vt::ServiceState::NotFound);
    ASSERT_TRUE(vt::queryServiceState("RpcSs", state, error)) << error;
    EXPECT_NE(state, vt::ServiceState::NotFound);
    EXPECT_FALSE(vt::startSystemService("vtagent_no_such_service", error));
}
#else
// Without a system bus the answer is a clear failure naming the bus, never a state.
TEST(ServiceStatus, NoSystemBusIsAClearFailure) {
    vt::test::ScopedEnv bus("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/vtagent-bus");
    vt::ServiceState state = vt::ServiceState::Running;
    std::string error;
    EXPECT_FALSE(vt::queryServiceState("ssh", state, error));
    EXPECT_NE(error.find("cannot reach the system bus"), std::string::npos) << error;
    EXPECT_FALSE(vt::startSystemService("ssh", error));
}
#endif

}  // namespace
