#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "common/registry_fixture.h"
#include "sources/service_monitor/service_monitor.h"

namespace {

using State = vt::ServiceState;

// Catches alerts per poll instead of per outage, a restart asked for a service that is only
// starting or not installed, a recovery without an outage, and alerts raised while the service
// manager itself cannot be asked.
TEST(ServiceMonitor, AlertsRestartsAndRecoveries) {
    vt::test::ScopedRegistry registry;
    const std::u16string services = registry.base() + u"\\Services";
    vt::test::regSetString(services + u"\\IS1", u"szServiceNames", u"web; db ;");
    vt::test::regSetDword(services + u"\\IS1", u"nRestartService", 1);
    vt::InfoSourceContext context;
    context.servicesKeyPath = CQuilletString(std::u16string_view(services));
    CInfoSourceNTServiceMonitor monitor(context);
    monitor.setServiceNumber(1);
    ASSERT_TRUE(monitor.LoadConfig());
    std::map<std::string, State> states;
    bool reachable = true;
    std::vector<std::string> started;
    monitor.m_query = [&](const std::string& name, State& state, std::string& error) {
        state = states[name];
        error = "no bus";
        return reachable;
    };
    monitor.m_start = [&](const std::string& name, std::string&) {
        started.push_back(name);
        return true;
    };
    struct Poll {
        State web, db;
        bool reachable;
        int units;
        std::vector<std::string> started;
    } polls[] = {
        {State::Running, State::Running, true, 0, {}},
        {State::Stopped, State::Starting, true, 2, {"web"}},  // db is starting: no restart
        {State::Stopped, State::Starting, true, 0, {"web"}},
        {State::Running, State::Running, false, 0, {"web"}},  // nobody could look
        {State::Running, State::NotFound, true, 1, {"web"}},  // web back; db still down
    };
    for (const Poll& p : polls) {
        states = {{"web", p.web}, {"db", p.db}};
        reachable = p.reachable;
        EXPECT_EQ(monitor.check(), p.units) << vt::serviceStateText(p.web);
        EXPECT_EQ(started, p.started);
    }
}

}  // namespace
