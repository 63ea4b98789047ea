#pragma once
#include <string>

class CConfigSettings;
class CNTService;

// The points where the service host hands over to the engine. The rule engine fills
// loadRuleSets, the service manager fills startServices and shutdownServices; until they do,
// each one writes a debug line saying that nothing was started and returns.
namespace vt {

// Loads every rule set of the RuleSets key into the process-wide rule set list.
void engineLoadRuleSets(const CConfigSettings& settings);

// Starts the queue workers and every configured input of the Services key (their data below
// the AgentData key), each bound to its loaded rule set.
void engineStartServices(const CConfigSettings& settings, CNTService& host);

// Stops every input and the workers; calls host.StillInShutdown() once per step of the wait.
void engineShutdownServices(CNTService& host);

// Clears the process-wide lists and caches at process end, before the host object goes. False
// when a source thread that would not end still runs: what it uses is then left in place, and
// the process must end without destroying its static objects.
bool engineClearProcessState();

// The counters line: the queue, every input and action, the process's memory and threads.
std::string engineStatsReport();

}  // namespace vt
