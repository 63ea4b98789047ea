#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "actions/actions_test_helper.h"
#include "actions/control_service/action_control_service.h"
#include "service/action_type_table.h"

namespace vt::test {
namespace {

using State = ServiceState;
using Step = ServiceControlResult::Step;

// The request, the pending-state polling once a second up to the time-out, and each failure
// text, against a stand-in service manager on a clock the test owns.
TEST(ControlService, RequestsAndWaitsWhilePending) {
    struct Row {
        uint32_t action;
        Step failure;               // of the request
        std::vector<State> states;  // answers to the queries; past the end: a failed query
        std::vector<std::string> lines;
        int sleeps;
    } rows[] = {
        {3, Step::None, {}, {}, 0},
        {1,
         Step::None,
         {State::Starting, State::Starting, State::Running},
         {"Service web is start pending.", "Service web is start pending."},
         2},
        {2,
         Step::None,
         {State::Stopping, State::Stopping, State::Stopping, State::Stopping},
         {"Service web is stop pending.", "Service web is stop pending.",
          "Service web is stop pending.",
          "could not perform action '2' on the Service 'web' in a "
          "Time of '2500'!"},
         3},
        {4, Step::None, {State::Pausing}, {"Service web is pending, could not get status"}, 1},
        {1, Step::Manager, {}, {"could not Open the ServiceControlManager Handle, error '2'"}, 0},
        {5, Step::Service, {}, {"could not Open the Service ('web')  Handle, error '2'"}, 0},
        {4,
         Step::Request,
         {},
         {"ControlService (SERVICE_CONTROL_PAUSE) for the Service web failed"},
         0},
        {1, Step::Request, {}, {"could not Start the Service '2'"}, 0},
    };
    for (const Row& row : rows) {
        ScopedRegistry registry;
        const std::u16string key = registry.base() + u"\\A1";
        regSetString(key, u"szServiceName", u"web");
        regSetDword(key, u"nAction", row.action);
        regSetDword(key, u"nTimeOutLimit", 2500);
        FakeClock clock;
        CActionListEntry entry(CQuilletString(u"Action"), CQuilletString(key), 1022,
                               ActionLoadContext{nullptr, agentActionTypes(), &clock});
        auto* action = static_cast<CActionControlNTService*>(entry.getAction());
        ASSERT_NE(action, nullptr);
        int requests = 0;
        size_t queries = 0;
        action->m_control = [&](const std::string&, ServiceControl, ServiceControlResult& r) {
            ++requests;
            r.failed = row.failure;
            r.error = 2;
            return row.failure == Step::None;
        };
        action->m_query = [&](const std::string&, State& state, std::string&) {
            if (queries >= row.states.size()) return false;
            state = row.states[queries++];
            return true;
        };
        DebugCapture log;
        CConfigSettings settings;
        entry.CallAction(*makeForwardUnit(u"x"), settings);
        EXPECT_EQ(requests, row.action == 3 ? 0 : 1) << row.action;
        for (const std::string& line : row.lines)
            EXPECT_EQ(log.count(line), std::count(row.lines.begin(), row.lines.end(), line))
                << row.action << ": " << line << "\n"
                << log.text();
        EXPECT_EQ(clock.sleepCount(), row.sleeps) << row.action;
    }
}

}  // namespace
}  // namespace vt::test
