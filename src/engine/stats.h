#pragma once
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class CQueManList;

namespace vt {

// What an input counted: units handed to the queue and units the queue refused.
struct SourceCounters {
    std::string name;  // the configured service name
    std::atomic<uint64_t> units{0};
    std::atomic<uint64_t> dropped{0};
};

// What an action counted: units it was done with, failed on the last try, tries repeated,
// and rules it ended ("nAbortRuleOnFailure").
struct ActionCounters {
    std::string name;  // the configured action name
    std::string type;  // "WriteFile" ...
    std::atomic<uint64_t> done{0};
    std::atomic<uint64_t> failed{0};
    std::atomic<uint64_t> retried{0};
    std::atomic<uint64_t> aborted{0};
};

// The agent's counters. Owners update theirs with relaxed atomic increments and no lock; the
// registry holds them by shared pointer, so a report may read a block whose owner is being
// destroyed. Registering and reporting take a lock, neither is on a unit's path.
class CStatsRegistry {
  public:
    static CStatsRegistry& instance();

    std::shared_ptr<SourceCounters> addSource(std::string name);
    std::shared_ptr<ActionCounters> addAction(std::string name, std::string type);
    // Drops the blocks no owner holds any more.
    void prune();
    // One line: "Stats| queue length=.. highwater=.. waits=.. | <input> units=.. dropped=..
    // | <action> done=.. failed=.. retried=.. aborted=.." (queue part only with a queue).
    std::string report(const CQueManList* queue) const;
    // The same counters in the Prometheus text format ("vtagent_input_units_total{input=..}").
    std::string prometheusText(const CQueManList* queue) const;

  private:
    mutable std::mutex m_lock;
    std::vector<std::shared_ptr<SourceCounters>> m_sources;
    std::vector<std::shared_ptr<ActionCounters>> m_actions;
};

// One metric of the Prometheus text format: its "# TYPE" line and one sample.
std::string metric(const char* name, const char* type, const std::string& labels, uint64_t value);

}  // namespace vt
