#include <string>

#include "platform/service_control.h"

namespace vt {
// WorkingDirectory must exist before systemd starts the process; StateDirectory makes systemd
// create /var/lib/vtagent, which is also where the hive lives by default.
std::string systemdUnitText(const std::string& binaryPath, const std::string& registryPath) {
    std::string unit;
    unit += "[Unit]\n";
    unit += "Description=QuilletVantoreAgent\n";
    unit += "After=network-online.target\n";
    unit += "Wants=network-online.target\n";
    unit += "\n[Service]\n";
    unit += "Type=notify\n";
    // A path with blanks is quoted; systemd splits the command line at unquoted blanks.
    const bool quote = binaryPath.find_first_of(" \t") != std::string::npos;
    unit += "ExecStart=" + (quote ? "\"" + binaryPath + "\"" : binaryPath) + "\n";
    unit += "Restart=on-failure\n";
    unit += "WorkingDirectory=/var/lib/vtagent\n";
    unit += "StateDirectory=vtagent\n";
    unit += "Environment=\"VTAGENT_REGISTRY=" + registryPath + "\"\n";
    unit += "\n[Install]\n";
    unit += "WantedBy=multi-user.target\n";
    return unit;
}
}  // namespace vt
