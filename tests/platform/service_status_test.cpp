#include "platform/service_status.h"

#include <gtest/gtest.h>

#include <string>

#include "common/registry_fixture.h"

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
    vt::ServiceControlResult result;
    EXPECT_FALSE(
        vt::controlSystemService("vtagent_no_such_service", vt::ServiceControl::Stop, result));
    EXPECT_EQ(result.failed, vt::ServiceControlResult::Step::Service);
    EXPECT_EQ(result.error, 1060u);  // ERROR_SERVICE_DOES_NOT_EXIST
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
    vt::ServiceControlResult result;
    EXPECT_FALSE(vt::controlSystemService("ssh", vt::ServiceControl::Pause, result));
    EXPECT_EQ(result.failed, vt::ServiceControlResult::Step::Manager);
}
#endif

}  // namespace
