#include "service/kestrel_srvc.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include "base/config_settings.h"
#include "base/debug_log.h"
#include "base/error_report.h"
#include "base/error_reporter.h"
#include "base/reg_access.h"
#include "base/reopen_request.h"
#include "base/version.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "platform/service_control.h"
#include "platform/system_error.h"
#include "service/config_check.h"
#include "service/engine_hooks.h"

namespace {
constexpr const char16_t* kParametersKey =
    u"SYSTEM\\CurrentControlSet\\Services\\QuilletVantoreAgent\\Parameters";
constexpr const char16_t* kGeneralKey = u"SOFTWARE\\Quillet\\Vantor\\Agent\\General";

std::unique_ptr<CConfigSettings> g_settings;
}  // namespace

namespace vt {
CConfigSettings* processSettings() noexcept {
    return g_settings.get();
}

CConfigSettings& ensureProcessSettings() {
    if (!g_settings) g_settings = std::make_unique<CConfigSettings>();
    return *g_settings;
}
}  // namespace vt

CKestrelSrvc::CKestrelSrvc() : CNTService(vt::kServiceName) {}

CKestrelSrvc::~CKestrelSrvc() = default;

bool CKestrelSrvc::OnInstall() {
    CRegAccess parameters;
    if (!parameters.CreateKey(vt::RegRoot::LocalMachine, CQuilletString(kParametersKey)))
        return false;
    return parameters.SetDWORDValue(u"nServiceMajor", vt::kVersionMajor) &&
           parameters.SetDWORDValue(u"nServiceMinor", vt::kVersionMinor) &&
           parameters.SetDWORDValue(u"nServiceBuildID", vt::kBuildNumber) &&
           parameters.SetDWORDValue(u"bReplaceEventLogSource", 0);
}

bool CKestrelSrvc::OnInit() {
    vt::debugWrite(vt::DBG_INFO, "STARTING MainThread\r\n");
    makeInstance();
    try {
        // The general values decide the debug log, so they are read before anything else; the
        // process-wide settings object is built afterwards, with the log already open, and
        // takes them over.
        CConfigSettings general;
        general.readGeneralValues();
        vt::debugConfigure(general.debugLogSettings());
        if (vt::debugOn(vt::DBG_MINIMUM)) {
            const std::string now = vt::localTimeText(static_cast<int64_t>(std::time(nullptr)));
            vt::debugPrintf(vt::DBG_MINIMUM,
                            "\r\n\r\nService STARTUP [V%d.%d(%s)]- the time is %s\r\n\r\n",
                            vt::kVersionMajor, vt::kVersionMinor, vt::kReleaseText, now.c_str());
        }
        if (!vt::setProcessPriority(general.processPriority))
            vt::debugPrintf(vt::DBG_ERROR,
                            "CKestrelSrvc|OnInit: process priority %d could not be set, Error "
                            "'%d'\r\n",
                            static_cast<int>(general.processPriority),
                            static_cast<int>(vt::lastSystemError()));
        startEngine(general);
    } catch (CErrorReport* raw) {
        std::unique_ptr<CErrorReport> report(raw);
        vt::debugPrintf(
            vt::DBG_MINIMUM, "CKestrelSrvc|OnInit: ***OnInit caught exception: '%s' (%d)\r\n",
            report->getMessage().getStringA(), static_cast<int>(report->getErrorCode()));
    }
    return true;
}

void CKestrelSrvc::startEngine(const CConfigSettings& general) {
    CConfigSettings& settings = vt::ensureProcessSettings();
    settings = general;
    settings.serviceName = CQuilletString(vt::kServiceNameW);
    settings.generalKeyPath = CQuilletString(kGeneralKey);
    settings.load();
    vt::setEventlogWarningsSetting(settings.enableEventlogWarnings);

    vt::engineLoadRuleSets(settings);

    if (vt::debugOn(vt::DBG_MINIMUM)) {
        vt::debugPrintf(vt::DBG_MINIMUM, "Running Engine Version %d.%d.%d ***\r\n",
                        vt::kVersionMajor, vt::kVersionMinor, vt::kBuildNumber);
        std::string user;
        if (vt::currentUserName(user))
            vt::debugPrintf(vt::DBG_MINIMUM, "Current used Username: '%s' ***\r\n", user.c_str());
        else
            vt::debugPrintf(vt::DBG_MINIMUM,
                            "Failed to get current used Usernamen with code %d ***\r\n",
                            static_cast<int>(vt::lastSystemError()));
    }

    char version[32];
    std::snprintf(version, sizeof version, "%d.%d.%d", vt::kVersionMajor, vt::kVersionMinor,
                  vt::kBuildNumber);
    CRegAccess generalKey;
    if (generalKey.OpenKey(vt::RegRoot::LocalMachine, CQuilletString(kGeneralKey), vt::kKeyWrite))
        generalKey.SetStringValue(u"LastVersionRun", CQuilletString(version));

    vt::engineStartServices(settings, *this);
    vt::debugWrite(vt::DBG_ULTRA, "CKestrelSrvc| END services startup\r\n");
}

void CKestrelSrvc::OnStop() {
    vt::debugWrite(vt::DBG_INFO, "OnStop\n\r");
}

void CKestrelSrvc::OnShutdown() {
    Trace("CNTService::OnShutdown()");
    vt::engineShutdownServices(*this);
}

bool CKestrelSrvc::OnUserControl(uint32_t control) {
    if (control == vt::kWriteCountersControl) {
        vt::debugWrite(vt::DBG_MINIMUM, vt::engineStatsReport() + "\r\n");
        return true;
    }
    if (control != vt::kReopenLogsControl) return CNTService::OnUserControl(control);
    vt::requestReopen();
    vt::debugWrite(vt::DBG_MINIMUM,
                   "CKestrelSrvc|OnUserControl: log files are reopened on request.\r\n");
    return true;
}

std::vector<const char*> CKestrelSrvc::ExtraHelpLines() const {
    return {"       vtagent -c    --> Check the configuration (-c -q: exit status only).",
            "       vtagent -s    --> Show the counters of the running agent."};
}

bool CKestrelSrvc::OnExtraSwitch(int argc, char** argv, int& exitCode) {
    if (argc >= 2 && std::string_view(argv[1]) == "-s") {
        exitCode = showCounters();
        return true;
    }
    if (argc < 2 || std::string_view(argv[1]) != "-c") return false;
    const bool quiet = argc > 2 && std::string_view(argv[2]) == "-q";
    const std::vector<vt::ConfigProblem> problems =
        vt::checkConfiguration("SOFTWARE\\Quillet\\Vantor\\Agent");
    if (!quiet) {
        for (const vt::ConfigProblem& problem : problems)
            std::printf("%s\n", vt::formatProblem(problem).c_str());
        if (problems.empty()) std::printf("The configuration has no problem.\n");
        std::fflush(stdout);
    }
    exitCode = problems.empty() ? 0 : 1;
    return true;
}

// The running agent rewrites its counters file every second: an older one is a leftover.
int CKestrelSrvc::showCounters() {
    const std::string path = vt::agentCountersPath();
    std::error_code error;
    const auto written = std::filesystem::last_write_time(path, error);
    if (error) {
        std::printf("No running agent: there are no counters at %s.\n", path.c_str());
        return 1;
    }
    const auto age = std::chrono::duration_cast<std::chrono::seconds>(
        std::filesystem::file_time_type::clock::now() - written);
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    if (age.count() > 10) {
        std::printf("No running agent: the counters at %s are %lld s old.\n", path.c_str(),
                    static_cast<long long>(age.count()));
        return 1;
    }
    // One part a line: the queue, each input, each action, the process.
    for (size_t start = 0; start < line.size();) {
        const size_t end = std::min(line.find(" | ", start), line.size());
        std::printf("%s\n", line.substr(start, end - start).c_str());
        start = end + 3;
    }
    std::fflush(stdout);
    return 0;
}
