#include "service/service_manager.h"

#include <gtest/gtest.h>

#include <chrono>
#include <new>
#include <thread>

#include "base/config_settings.h"
#include "common/engine_test_helper.h"
#include "common/registry_fixture.h"
#include "common/test_info_source_helper.h"
#include "engine/memory_reserve.h"
#include "engine/que_man_list.h"
#include "engine/rule_set_list.h"

namespace {

using namespace vt;
using namespace vt::test;
using namespace std::chrono_literals;

// Sleeps for real (the timing of these tests is in milliseconds) and records each pause; the
// wall clock moves by `step` seconds per reading.
class TestClock final : public Clock {
  public:
    int64_t nowSeconds() override { return now += step; }
    void sleepMs(uint32_t ms) override {
        sleeps.push_back(std::chrono::milliseconds(ms));
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
        if (onSleep) onSleep();
    }
    int64_t now = 1000, step = 0;
    std::vector<std::chrono::milliseconds> sleeps;  // of the service thread only
    std::function<void()> onSleep;
};

// Services configured below a test key, a rule base with one rule set "Default", and a host
// that counts its checkpoints and stop requests.
class ServiceManagerTest : public ::testing::Test {
  protected:
    ScopedRegistry registry;
    std::u16string services = registry.base() + u"\\Services";
    std::u16string data = registry.base() + u"\\AgentData";
    std::unique_ptr<CConfigSettings> settings = makeSettings();
    CRuleSetList ruleSets;
    std::atomic<int> checkpoints{0};
    std::atomic<int> stops{0};
    ServiceHostLink host{[this] { ++checkpoints; }, [this] { ++stops; }};
    ServiceManagerTiming timing;
    TestClock clock;
    std::atomic<int> ended{-1};
    DebugCapture debug{DBG_ERROR | DBG_MINIMUM | DBG_INFO};

    ServiceManagerTest() {
        ruleSets.add(std::make_unique<CRuleSetListEntry>(CQuilletString(u"Default")));
        settings->workerThreads = 2;
        timing.stopGrace = 1ms;
        timing.joinLimit = 5000ms;
        timing.workerStep = 5ms;
        timing.killDelay = 1ms;
    }

    // The start installs the process-wide out-of-memory handler and takes the reserve, and the
    // shutdown clears the engine running flag (which ends every queue's workers); later tests
    // of this program expect none of that.
    ~ServiceManagerTest() override {
        setEngineRunning(true);
        std::set_new_handler(nullptr);
        freeReserveMemory();
        setLowMemory(false);
    }

    void configure(std::initializer_list<uint32_t> types) {
        regSetDword(services, u"nInfoSourceCount", static_cast<uint32_t>(types.size()));
        uint32_t n = 0;
        for (uint32_t type : types) {
            ++n;
            const std::u16string num = CQuilletString(std::to_string(n)).wide();
            regSetDword(services, u"nISType" + num, type);
            regSetString(services, u"szISName" + num, u"svc" + num);
            regSetString(services + u"\\IS" + num, u"szRuleSetName", u"Default");
        }
    }
    std::u16string key(int n) const {
        return services + u"\\IS" + CQuilletString(std::to_string(n)).wide();
    }

    std::unique_ptr<CServiceManager> makeManager(std::function<void()> onSleep = {}) {
        ServiceManagerHooks hooks;
        clock.onSleep = std::move(onSleep);
        hooks.clock = &clock;
        hooks.endProcess = [this](int code) { ended = code; };
        return std::make_unique<CServiceManager>(timing, hooks);
    }
    void start(CServiceManager& manager) {
        manager.StartupServices(*settings, RegRoot::LocalMachine,
                                CQuilletString(std::u16string_view(services)),
                                CQuilletString(std::u16string_view(data)), &ruleSets, host);
    }
};

// Types 1, 6, 3, 23 and 1: the first and third start on their own threads; the unknown 6, the
// type 23 whose input is not in this build and the fifth, whose rule set does not exist, are
// reported and leave slots without threads. The stop joins both threads in order.
TEST_F(ServiceManagerTest, StartsWhatItCanAndStopsInOrder) {
    TestSourceType one(1), three(3);
    configure({1, 6, 3, 23, 1});
    regSetString(key(5), u"szRuleSetName", u"Nowhere");
    auto manager = makeManager();
    start(*manager);
    EXPECT_EQ(manager->getServiceCount(), 5);
    for (size_t slot : {0u, 2u}) EXPECT_TRUE(manager->hasThread(slot));
    for (size_t slot : {1u, 3u, 4u}) EXPECT_FALSE(manager->hasThread(slot));
    EXPECT_EQ(manager->getService(2)->getRuleSet(), ruleSets.findRuleSet(u"Default"));
    EXPECT_TRUE(one.scriptFor("svc1")->waitForRuns(1));
    EXPECT_TRUE(three.scriptFor("svc3")->waitForRuns(1));
    EXPECT_EQ(stops.load(), 0);

    EXPECT_TRUE(manager->ShutdownServices(host));
    EXPECT_EQ(manager->getDetachedThreads(), 0);
    EXPECT_TRUE(one.scriptFor("svc1")->finished.load());
    // One per thread, and one per pass while the workers were still ending.
    EXPECT_EQ(
        checkpoints.load(),
        2 + static_cast<int>(countOf(debug.text(), "Worker Thread Pool is not yet finished!")));
    EXPECT_EQ(ended.load(), -1);
    {
        std::lock_guard lock(one.scriptFor("svc1")->lock);
        EXPECT_TRUE(one.scriptFor("svc1")->hadDnsCache);  // the syslog input resolves with it
    }

    const std::string log = debug.text();
    for (const char* reported :
         {"Error Event 114 logged with data 'Unknown Service ID 6 found - ignored!'",
          "Service type 23 (CInfoSourceWevtMonitor) is not available in this build - ignored!",
          "No Rulebase found for service 'svc5' - rule base requested was 'Nowhere'. This "
          "service NOT started."})
        EXPECT_NE(log.find(reported), std::string::npos) << reported;
    EXPECT_EQ(countOf(log, "New InfoSource started!"), 2u);
    // The stop sequence, in order.
    const size_t stopLoop = log.find("in stop loop, service id 2, pointer 0x00000000");
    const size_t cancel1 = log.find("ShutdownServices: Cancel thread 1...");
    const size_t cancel3 = log.find("ShutdownServices: Cancel thread 3...");
    const size_t finished = log.find("### Worker Thread Pool FINISHED! ###");
    ASSERT_NE(stopLoop, std::string::npos) << log;
    EXPECT_LT(stopLoop, cancel1);
    EXPECT_LT(cancel1, cancel3);
    EXPECT_LT(cancel3, finished);
    EXPECT_NE(finished, std::string::npos);
    EXPECT_EQ(log.find("Cancel thread 2"), std::string::npos);
}

// Every service disabled (0, and 2 which is not 1): sources kept without threads, run flags
// cleared, and the host is stopped.
TEST_F(ServiceManagerTest, AllDisabledStopsHost) {
    TestSourceType one(1);
    configure({1, 1});
    regSetDword(key(1), u"bServiceEnabled", 0);
    regSetDword(key(2), u"bServiceEnabled", 2);
    auto manager = makeManager();
    start(*manager);
    for (size_t slot : {0u, 1u}) {
        ASSERT_NE(manager->getService(slot), nullptr);
        EXPECT_FALSE(manager->hasThread(slot));
        EXPECT_FALSE(manager->getService(slot)->keepRunning());
    }
    EXPECT_EQ(stops.load(), 1);
    const std::string log = debug.text();
    EXPECT_EQ(countOf(log, "InfoSource Disabled"), 2u);
    EXPECT_NE(log.find("No InfoSource service could successfully be started - the service will "
                       "now be stopped!"),
              std::string::npos);
    EXPECT_TRUE(manager->ShutdownServices(host));
    EXPECT_EQ(checkpoints.load(),
              static_cast<int>(countOf(debug.text(), "Worker Thread Pool is not yet finished!")));
    EXPECT_EQ(debug.text().find("Cancel thread"), std::string::npos);
}

// No services: reported, the host keeps running, and the shutdown still stops the workers.
TEST_F(ServiceManagerTest, NoServicesConfigured) {
    auto manager = makeManager();
    start(*manager);
    EXPECT_EQ(stops.load(), 0);
    EXPECT_NE(debug.text().find("No InfoSource service configured at all"), std::string::npos);
    ASSERT_NE(manager->getQueue(), nullptr);
    EXPECT_TRUE(manager->ShutdownServices(host));
    EXPECT_EQ(manager->getQueue()->liveWorkers(), 0);
}

// A source in a blocking receive ignores its run flag; the wake ends it within the join.
TEST_F(ServiceManagerTest, BlockedSourceIsWokenAndJoined) {
    TestSourceType one(1);
    auto script = one.scriptFor("svc1");
    script->blockUntilWoken = true;
    configure({1});
    auto manager = makeManager();
    start(*manager);
    ASSERT_TRUE(script->waitForRuns(1));
    EXPECT_TRUE(manager->ShutdownServices(host));
    EXPECT_GE(script->wakes.load(), 1);
    EXPECT_TRUE(script->finished.load());
    EXPECT_EQ(manager->getDetachedThreads(), 0);
    EXPECT_EQ(debug.text().find("failed with error"), std::string::npos);
}

// A source that ignores the wake too: after the join limit its thread is detached and goes on
// alone. Once released it still hands units over, after the manager is gone: the queue must be
// alive and refuse them, and the thread frees the source when it ends.
TEST_F(ServiceManagerTest, HungSourceIsDetachedAndNeverTouchesFreedState) {
    timing.joinLimit = 20ms;
    TestSourceType one(1);
    auto script = one.scriptFor("svc1");
    script->hang = true;
    script->unitsAfterRelease = 3;
    configure({1});
    auto manager = makeManager();
    start(*manager);
    ASSERT_TRUE(script->waitForRuns(1));
    EXPECT_TRUE(manager->ShutdownServices(host));
    EXPECT_EQ(manager->getDetachedThreads(), 1);
    EXPECT_FALSE(manager->hasThread(0));
    EXPECT_EQ(manager->getService(0), nullptr);
    EXPECT_EQ(
        checkpoints.load(),
        1 + static_cast<int>(countOf(debug.text(), "Worker Thread Pool is not yet finished!")));
    EXPECT_NE(debug.text().find("Cancel thread 1 failed with error"), std::string::npos);
    manager.reset();
    script->release();
    ASSERT_TRUE(script->waitForDestruction());
    EXPECT_EQ(script->acceptedAfterRelease.load(), 0);
    EXPECT_EQ(countOf(debug.text(), "the queue is shut down - unit refused"), 3u);
}

// A worker stuck in an action: the wait gives up after its passes, sets stop-processing and
// ends the process; with "nProtectAgainstShutdown" it waits on past the limit.
TEST_F(ServiceManagerTest, StuckWorkerEndsProcessUnlessProtected) {
    for (uint32_t protect : {0u, 1u}) {
        SCOPED_TRACE(protect);
        ProbeActionType probeType;
        CActionConfigProbe* probe = nullptr;
        auto rule = probeRule(registry.base() + u"\\R1", probe);
        std::mutex lock;
        std::condition_variable cv;
        bool release = false;
        std::atomic<bool> inAction{false};
        probe->hook = [&](CInfoUnit&) {
            inAction = true;
            std::unique_lock l(lock);
            cv.wait(l, [&] { return release; });
        };
        CRuleSetList stuckRules;
        auto set = std::make_unique<CRuleSetListEntry>(CQuilletString(u"Default"));
        set->getRuleList().add(std::move(rule));
        stuckRules.add(std::move(set));

        TestSourceType one(1);
        one.scriptFor("svc1")->unitsPerRun = 1;
        configure({1});
        settings->workerThreads = 1;
        settings->protectAgainstShutdown = protect;
        checkpoints = 0;
        ended = -1;
        timing.workerPasses = 3;
        int passes = 0;
        auto releaseAction = [&] {
            {
                std::lock_guard l(lock);
                release = true;
            }
            cv.notify_all();
        };
        // Protected: the action ends only well after the limit of passes.
        auto manager = makeManager([&] {
            if (protect && ++passes == 10) releaseAction();
        });
        manager->StartupServices(*settings, RegRoot::LocalMachine,
                                 CQuilletString(std::u16string_view(services)),
                                 CQuilletString(std::u16string_view(data)), &stuckRules, host);
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        while (!inAction && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(1ms);
        ASSERT_TRUE(inAction);
        debug.clear();
        const bool finished = manager->ShutdownServices(host);
        const std::string log = debug.text();
        if (protect) {
            EXPECT_TRUE(finished);
            EXPECT_EQ(ended.load(), -1);
            // Well past the limit of passes.
            EXPECT_GT(countOf(log, "Worker Thread Pool is not yet finished!"), 6u);
            EXPECT_EQ(checkpoints.load(), 1 + static_cast<int>(countOf(
                                                  log, "Worker Thread Pool is not yet finished!")));
            EXPECT_NE(log.find("### Worker Thread Pool FINISHED! ###"), std::string::npos);
        } else {
            EXPECT_FALSE(finished);
            EXPECT_EQ(ended.load(), 0);
            EXPECT_TRUE(manager->getQueue()->isStopProcessing());
            EXPECT_EQ(countOf(log, "Worker Thread Pool is not yet finished!"), 3u);
            EXPECT_EQ(checkpoints.load(), 1 + 3);
            EXPECT_NE(log.find("Worker Thread Pool NOT FINISHED!\r\nProcess KILLED"),
                      std::string::npos);
            EXPECT_EQ(clock.sleeps.back(), timing.killDelay);  // the kill delay came last
            releaseAction();
        }
        manager.reset();  // joins the workers
        clock.sleeps.clear();
    }
}

// A work routine that throws twice: the first restart is at once, the second (within 30 s of
// the first) waits the back-off; then the routine returns and the thread ends.
TEST_F(ServiceManagerTest, FaultingSourceRestartsWithBackOff) {
    struct Case {
        int64_t step;  // seconds the clock moves per reading
        size_t backOffs;
    };
    for (const Case c : {Case{0, 1}, Case{40, 0}}) {
        SCOPED_TRACE(c.step);
        auto script = std::make_shared<TestSourceScript>();
        script->throwsLeft = 2;
        script->returnAtOnce = true;
        TestClock stepping;
        stepping.step = c.step;
        std::vector<std::chrono::milliseconds> backOffs;
        ServiceManagerHooks hooks;
        hooks.clock = &stepping;
        hooks.backOff = [&](CInfoSource&, std::chrono::milliseconds ms) { backOffs.push_back(ms); };
        CServiceManager manager(ServiceManagerTiming{}, hooks);
        InfoSourceContext context;
        context.serviceName = CQuilletString(u"flaky");
        CTestInfoSource source(context, script);
        source.setServiceNumber(4);
        debug.clear();
        manager.RunInfoSource(&source);
        EXPECT_EQ(script->runs.load(), 3);
        ASSERT_EQ(backOffs.size(), c.backOffs);
        if (!backOffs.empty()) {
            EXPECT_EQ(backOffs[0], 10000ms);
        }
        const std::string log = debug.text();
        EXPECT_EQ(countOf(log, "has stopped and is being retried."), 2u);
        EXPECT_EQ(countOf(log, "has ended."), 1u);
        EXPECT_EQ(countOf(log, "CServiceManager| RunInfoSource: System Exception caught"), 2u);
        EXPECT_EQ(countOf(log, "Warning Event 1036 logged with data 'flaky'"), 2u) << log;
    }
}

// A fault after the shutdown cleared the run flag ends the source instead of restarting it.
TEST_F(ServiceManagerTest, FaultDuringShutdownIsNotRestarted) {
    auto script = std::make_shared<TestSourceScript>();
    script->throwsLeft = 5;
    CServiceManager manager(ServiceManagerTiming{}, {});
    InfoSourceContext context;
    context.serviceName = CQuilletString(u"late");
    CTestInfoSource source(context, script);
    source.setRun(false);
    manager.RunInfoSource(&source);
    EXPECT_EQ(script->runs.load(), 1);
}

}  // namespace
