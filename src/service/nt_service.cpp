#include "service/nt_service.h"

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "base/debug_log.h"
#include "base/version.h"
#include "platform/process.h"
#include "platform/system_error.h"
#include "platform/thread_id.h"
#include "service/host_registry.h"

std::atomic<CNTService*> CNTService::s_instance{nullptr};

namespace {
constexpr uint32_t kStateStopped = 1;
constexpr uint32_t kStateStartPending = 2;
constexpr uint32_t kStateStopPending = 3;
constexpr uint32_t kStateRunning = 4;
constexpr uint32_t kStopWaitHintMs = 5000;

constexpr uint32_t kEventInstalled = 100;
constexpr uint32_t kEventRemoved = 101;
constexpr uint32_t kEventNotRemoved = 102;
constexpr uint32_t kEventCtrlHandlerNotInstalled = 103;
constexpr uint32_t kEventFailedInit = 104;
constexpr uint32_t kEventStarted = 105;
constexpr uint32_t kEventBadRequest = 106;
constexpr uint32_t kEventStopped = 108;

// Standard output may be a pipe (a supervisor, a test): every message goes out at once.
void say(const char* format, ...) __attribute__((format(printf, 1, 2)));
void say(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::fflush(stdout);
}
}  // namespace

CNTService::CNTService(const char* serviceName)
    : m_buildNumber(vt::kBuildNumber),
      m_majorVersion(vt::kVersionMajor),
      m_minorVersion(vt::kVersionMinor) {
    std::snprintf(m_serviceName, sizeof m_serviceName, "%.63s", serviceName);
    std::snprintf(m_releaseText, sizeof m_releaseText, "%s", vt::kReleaseText);
    m_status.serviceType = 16;
    m_status.currentState = kStateStopped;
    m_status.controlsAccepted = 1;
    s_instance = this;
}

CNTService::~CNTService() {
    Trace("CNTService::~CNTService()");
    CNTService* self = this;
    s_instance.compare_exchange_strong(self, nullptr);
}

void CNTService::Trace(const char* format, ...) {
    if (!vt::debugOn(vt::DBG_INFO)) return;
    char message[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(message, sizeof message, format, args);
    va_end(args);
    vt::debugPrintf(vt::DBG_INFO, "[%s](%lu): %s", m_serviceName,
                    static_cast<unsigned long>(vt::currentThreadId()), message);
}

vt::ServiceStatus CNTService::status() const {
    std::lock_guard lock(m_statusMutex);
    return m_status;
}

// ---- command line -------------------------------------------------------------------------

int CNTService::ProcessCommandLine(int argc, char** argv) {
    const char* arg = argc > 1 ? argv[1] : "";
    if (std::strcmp(arg, "-h") == 0) {
        say("%s Version %d.%d Build %d (%s)\n", m_serviceName, m_majorVersion, m_minorVersion,
            static_cast<int>(m_buildNumber), m_releaseText);
        const char* program = "vtagent";
        say("Usage: %s -h    --> This help message.\n", program);
        say("       %s -v    --> Show version information.\n", program);
        say("       %s -i    --> Install service.\n", program);
        say("       %s -u    --> Remove (uninstall) service.\n", program);
        say("       %s -r    --> Run as console application.\n", program);
        say("       %s -r -o --> Run ONCE as console application (see Manual!).\n", program);
        for (const char* line : ExtraHelpLines()) say("%s\n", line);
        return 0;
    }
    int exitCode = 0;
    if (OnExtraSwitch(argc, argv, exitCode)) return exitCode;
    if (std::strcmp(arg, "-v") == 0) {
        say("%s Version %d.%d\n", m_serviceName, m_majorVersion, m_minorVersion);
        say("The service is %s installed.\n", IsInstalled() ? "currently" : "not");
        return 0;
    }
    if (std::strcmp(arg, "-i") == 0) {
        if (IsInstalled()) {
            say("%s is already installed\n", m_serviceName);
            return 0;
        }
        if (Install()) {
            say("%s installed\n", m_serviceName);
            return 0;
        }
        say("%s failed to install. Error %d\n", m_serviceName,
            static_cast<int>(vt::lastSystemError()));
        return 1;
    }
    if (std::strcmp(arg, "-u") == 0) {
        if (!IsInstalled()) {
            say("%s is not installed\n", m_serviceName);
            return 0;
        }
        if (Uninstall()) {
            say("%s removed. (You must delete the file (%s) yourself.)\n", m_serviceName,
                vt::executablePath().c_str());
            return 0;
        }
        say("Could not remove %s. Error %d\n", m_serviceName,
            static_cast<int>(vt::lastSystemError()));
        return 1;
    }
    if (std::strcmp(arg, "-r") == 0) {
        m_runOnce = argc > 2 && std::strcmp(argv[2], "-o") == 0;
        return RunConsole();
    }

    Trace("Calling StartServiceCtrlDispatcher()");
    const bool dispatched = StartService();
    Trace("Returned from StartServiceCtrlDispatcher()");
    return dispatched && status().win32ExitCode == 0 ? 0 : 1;
}

// ---- install and remove -------------------------------------------------------------------

bool CNTService::IsInstalled() {
    return vt::serviceIsInstalled(m_serviceName);
}

bool CNTService::Install() {
    const std::string shortPath = vt::shortPathName(vt::executablePath());
    if (!vt::serviceCreate(m_serviceName, shortPath)) return false;
    if (!vt::registerEventSourceKey(m_serviceName, shortPath)) return false;
    LogEvent(vt::EventType::information, kEventInstalled, m_serviceName);
    if (!OnInstall()) {
        // The service exists and can run; only its installation values are missing.
        vt::debugPrintf(vt::DBG_ERROR, "CNTService|Install: OnInstall failed with Error '%d'\r\n",
                        static_cast<int>(vt::lastSystemError()));
    }
    return true;
}

bool CNTService::Uninstall() {
    if (vt::serviceDelete(m_serviceName)) {
        LogEvent(vt::EventType::information, kEventRemoved, m_serviceName);
        return true;
    }
    const uint32_t error = vt::lastSystemError();
    LogEvent(vt::EventType::error, kEventNotRemoved, m_serviceName);
    vt::setLastSystemError(error);
    return false;
}

void CNTService::LogEvent(vt::EventType type, uint32_t eventId, const char* text) {
    const uint32_t error = vt::lastSystemError();
    vt::EventSource source(m_serviceName);
    if (source.isOpen()) source.report(type, eventId, text ? text : m_serviceName, {}, false);
    vt::setLastSystemError(error);
}

// ---- service mode -------------------------------------------------------------------------

bool CNTService::StartService() {
    return vt::runServiceDispatcher(m_serviceName, ServiceMain);
}

void CNTService::ServiceMain(uint32_t, char**) {
    if (CNTService* self = instance()) self->ServiceMainBody();
}

void CNTService::ServiceMainBody() {
    Trace("Entering CNTService::ServiceMain()");
    updateStatus([](vt::ServiceStatus& s) { s.currentState = kStateStartPending; });
    m_statusHandle = vt::registerServiceControlHandler(m_serviceName, Handler);
    vt::installUserControlSignal(UserControl);
    if (m_statusHandle == 0) {
        LogEvent(vt::EventType::error, kEventCtrlHandlerNotInstalled);
        return;
    }
    setRunning(true);
    if (Initialize()) {
        updateStatus([](vt::ServiceStatus& s) { s.win32ExitCode = s.checkPoint = s.waitHint = 0; });
        Run();
    }
    OnShutdown();
    SetStatus(kStateStopped);
    Trace("Leaving CNTService::ServiceMain()");
}

bool CNTService::Initialize() {
    Trace("Entering CNTService::Initialize()");
    SetStatus(kStateStartPending);
    vt::setLastSystemError(0);
    const bool ok = OnInit();
    const uint32_t error = ok ? 0 : vt::lastSystemError();
    updateStatus([error](vt::ServiceStatus& s) {
        s.win32ExitCode = error;
        s.checkPoint = 0;
        s.waitHint = 0;
    });
    if (!ok) {
        LogEvent(vt::EventType::error, kEventFailedInit);
        SetStatus(kStateStopped);
        return false;
    }
    LogEvent(vt::EventType::information, kEventStarted);
    SetStatus(kStateRunning);
    Trace("Leaving CNTService::Initialize()");
    return true;
}

void CNTService::SetStatus(uint32_t state) {
    Trace("CNTService::SetStatus(%lu, %lu)", static_cast<unsigned long>(m_statusHandle),
          static_cast<unsigned long>(state));
    const vt::ServiceStatus now =
        updateStatus([state](vt::ServiceStatus& s) { s.currentState = state; });
    vt::sendServiceStatus(m_statusHandle, now);
}

void CNTService::Handler(uint32_t control) {
    if (CNTService* self = instance()) self->HandleControl(control);
}

void CNTService::UserControl(uint32_t control) {
    if (CNTService* self = instance()) self->OnUserControl(control);
}

void CNTService::HandleControl(uint32_t control) {
    Trace("CNTService::Handler(%lu)", static_cast<unsigned long>(control));
    switch (control) {
        case 1:
            updateStatus([](vt::ServiceStatus& s) {
                s.checkPoint = 0;
                s.waitHint = kStopWaitHintMs;
            });
            SetStatus(kStateStopPending);
            OnStop();
            setRunning(false);
            LogEvent(vt::EventType::information, kEventStopped);
            break;
        case 2:
            OnPause();
            break;
        case 3:
            OnContinue();
            break;
        case 4:
            OnInterrogate();
            break;
        case 5:
            OnShutdown();
            break;
        default:
            if (control < 128 || !OnUserControl(control))
                LogEvent(vt::EventType::error, kEventBadRequest);
            break;
    }
    const vt::ServiceStatus now = status();
    Trace("Updating status (%lu, %lu)", static_cast<unsigned long>(m_statusHandle),
          static_cast<unsigned long>(now.currentState));
    vt::sendServiceStatus(m_statusHandle, now);
}

void CNTService::StillInShutdown() {
    const vt::ServiceStatus now = updateStatus([](vt::ServiceStatus& s) {
        s.checkPoint += 1;
        s.waitHint += 1000;
    });
    if (vt::debugOn(vt::DBG_INFO))
        vt::debugPrintf(vt::DBG_INFO,
                        "CNTService| StillInShutdown: Status checkpoint: dwCheckPoint: %d, "
                        "dwWaitHint: %d, dwState: %d\r\n",
                        static_cast<int>(now.checkPoint), static_cast<int>(now.waitHint),
                        static_cast<int>(now.currentState));
    if (m_consoleMode)
        say("%s: InShutdown|Checkpoint: %d, WaitHint: %d, dwState: %d\n", m_serviceName,
            static_cast<int>(now.checkPoint), static_cast<int>(now.waitHint),
            static_cast<int>(now.currentState));
    else
        vt::sendServiceStatus(m_statusHandle, now);
}

// ---- console mode -------------------------------------------------------------------------

int CNTService::RunConsole() {
    m_consoleMode = true;
    say("%s: Initiating Console mode\n", m_serviceName);
    setRunning(true);
    if (!OnInit()) return static_cast<int>(status().win32ExitCode);
    vt::installConsoleStopHandler(ConsoleBreak);
    vt::installUserControlSignal(UserControl);
    say("%s: Service Running\n", m_serviceName);
    Run();
    OnShutdown();
    vt::removeConsoleStopHandler();
    return 0;
}

void CNTService::ConsoleBreak() {
    if (CNTService* self = instance()) self->HandleConsoleBreak();
}

void CNTService::HandleConsoleBreak() {
    say("%s: Initiating Shutdown, this can take up to 1 minute\n", m_serviceName);
    updateStatus([](vt::ServiceStatus& s) {
        s.checkPoint = 0;
        s.waitHint = kStopWaitHintMs;
    });
    SetStatus(kStateStopPending);
    OnStop();
    setRunning(false);
}

// ---- the overridable steps ----------------------------------------------------------------

void CNTService::setRunning(bool running) {
    {
        std::lock_guard lock(m_runningMutex);
        m_running.store(running, std::memory_order_relaxed);
    }
    m_runningChanged.notify_all();
}

void CNTService::Run() {
    Trace("Entering CNTService::Run()");
    std::unique_lock lock(m_runningMutex);
    m_runningChanged.wait(lock, [this] { return !isRunning(); });
    Trace("Leaving CNTService::Run()");
}

bool CNTService::OnInstall() {
    Trace("CNTService::OnInstall()");
    return true;
}

bool CNTService::OnInit() {
    Trace("CNTService::OnInit()");
    return true;
}

void CNTService::OnStop() {
    Trace("CNTService::OnStop()");
}
void CNTService::OnInterrogate() {
    Trace("CNTService::OnInterrogate()");
}
void CNTService::OnPause() {
    Trace("CNTService::OnPause()");
}
void CNTService::OnContinue() {
    Trace("CNTService::OnContinue()");
}
void CNTService::OnShutdown() {
    Trace("CNTService::OnShutdown()");
}

std::vector<const char*> CNTService::ExtraHelpLines() const {
    return {};
}

bool CNTService::OnExtraSwitch(int, char**, int&) {
    return false;
}

bool CNTService::OnUserControl(uint32_t control) {
    Trace("CNTService::OnUserControl(%8.8lXH)", static_cast<unsigned long>(control));
    return false;
}
