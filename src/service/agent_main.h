#pragma once

namespace vt {
// The process entry of vtagent: prepares the process, runs what the command line asks through
// the agent's service object, clears the engine's process-wide state and destroys the service
// object. Returns the process exit code.
int agentMain(int argc, char** argv);
}  // namespace vt
