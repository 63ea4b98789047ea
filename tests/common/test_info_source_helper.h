#pragma once
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "service/info_source_types.h"
#include "sources/info_source.h"

namespace vt::test {

// What a test input does in Run. Shared between the test and the source, and kept alive by
// both, so a detached thread never outlives it.
struct TestSourceScript {
    std::atomic<int> throwsLeft{0};   // runs that throw std::runtime_error first, counted down
    std::atomic<int> unitsPerRun{0};  // units queued at the start of each Run
    // Blocking receive: Run ignores the run flag and blocks until wake() is called.
    std::atomic<bool> blockUntilWoken{false};
    // Hung: Run ignores both the run flag and wake() until release() is called.
    std::atomic<bool> hang{false};
    std::atomic<bool> returnAtOnce{false};  // instead of waiting for the run flag to clear

    std::atomic<int> runs{0};   // Run entered
    std::atomic<int> wakes{0};  // wake() called
    std::atomic<bool> finished{false};
    // After a hang is released: units handed over, and how many the queue took.
    std::atomic<int> unitsAfterRelease{0};
    std::atomic<int> acceptedAfterRelease{0};
    bool hadDnsCache = false;  // guarded by lock: the source was given the host name cache
    bool destroyed = false;    // guarded by lock
    // Blocks until the source is destroyed (20 s limit); false if not.
    bool waitForDestruction();

    void release();
    // Blocks the caller until Run has been entered `count` times (20 s limit); false if not.
    bool waitForRuns(int count);

    std::mutex lock;
    std::condition_variable changed;
    bool woken = false;     // guarded by lock
    bool released = false;  // guarded by lock
};

// An input that produces units on demand and can be made to throw or to hang.
class CTestInfoSource : public CInfoSource {
  public:
    CTestInfoSource(const InfoSourceContext& context, std::shared_ptr<TestSourceScript> script);
    ~CTestInfoSource() override;
    void Run() override;
    void wake() override;
    bool LoadConfig() override;

    // "nTestValue": read only when "nConfigVersion" changed; counts the reads.
    uint32_t testValue = 0;
    int typeReads = 0;

  private:
    std::shared_ptr<TestSourceScript> m_script;
};

// Registers CTestInfoSource under `typeId` while it lives; every source made gets the script
// of its service name.
class TestSourceType {
  public:
    explicit TestSourceType(uint32_t typeId);
    ~TestSourceType();
    std::shared_ptr<TestSourceScript> scriptFor(const std::string& serviceName);

  private:
    ScopedInfoSourceType m_scope;
};

}  // namespace vt::test
