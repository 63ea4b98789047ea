#pragma once
#include <string>
#include <vector>

namespace vt {

// One thing the configuration check found: where (the key below HKLM and the value name, empty
// for the key itself) and what.
struct ConfigProblem {
    std::string key;
    std::string value;
    std::string text;
};

// Reads the agent's configuration below HKLM\`agentKey` (general settings, inputs, rule sets,
// rules and actions) without starting anything, and lists what would not work: unknown or
// unavailable type ids, values of the wrong type, rule sets that inputs or call-rule-set actions
// name but that do not exist, a syslog port used by two inputs, write-file directories that
// cannot be written.
std::vector<ConfigProblem> checkConfiguration(const std::string& agentKey);

// "HKLM\<key>\<value>: <text>".
std::string formatProblem(const ConfigProblem& problem);

}  // namespace vt
