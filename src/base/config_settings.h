#pragma once
#include <cstdint>

#include "base/debug_log.h"
#include "base/quillet_string.h"

class CRegAccess;

// The general settings shared by the whole engine: built once at start-up, filled from the
// General key, then handed to every part by pointer and only read afterwards.
//
// Two groups of values: the start-up group (readGeneralValues), which the service host reads
// first to set up the debug log, the priority and the queue; and the engine group (load),
// read after it. Every field starts at its default, so a General key that does not exist
// leaves a complete, usable object.
class CConfigSettings {
  public:
    static constexpr const char16_t* kGeneralKeyPath = u"SOFTWARE\\Quillet\\Vantor\\Agent\\General";
    // The global 8-bit pass-through switch for strings (flag, REG_DWORD, default 0).
    static constexpr const char16_t* kEightBitPassThroughValue = u"bEnable8BitPassThrough";

    // Sets every field to its default and switches the process heap to the low-fragmentation
    // heap where the system has one (traced; a failure is not fatal).
    CConfigSettings();

    // Reads the start-up group from `general` (the open General key; a closed one gives the
    // defaults) and applies the 8-bit pass-through switch to the string type at once.
    void readGeneralValues(CRegAccess& general);
    // The same, opening the General key itself.
    void readGeneralValues();
    // Opens the General key and reads the engine group with its rules.
    void load();

    // The debug log settings the start-up group describes: a level is on when its switch is
    // exactly 1.
    vt::DebugLogSettings debugLogSettings() const;

    // Cache lifetimes are stored in milliseconds and kept in seconds: 1001 ms and above are
    // divided by 1000 (integer), anything smaller gives 1 second.
    static uint32_t cacheMillisecondsToSeconds(uint32_t milliseconds) noexcept;

    // Identity.
    CQuilletString serviceName;
    CQuilletString generalKeyPath;
    int versionMajor;
    int versionMinor;
    int buildNumber;

    // Start-up group.
    uint32_t reloadRuleBase = 0;          // "bReloadRuleBase"
    uint32_t timeMode = 0;                // "nTimeMode"
    CQuilletString debugFileName;         // "szDebugFileName"
    uint32_t enableDebugOutput = 0;       // "nEnableDebugOutput"
    uint32_t debugErrors = 1;             // "nDebugErrors"
    uint32_t debugMini = 0;               // "nDebugMini"
    uint32_t debugInternal = 0;           // "nDebugInternal"
    uint32_t debugRuleEngine = 0;         // "nDebugRuleEngine"
    uint32_t debugUltra = 0;              // "nDebugUltra"
    uint32_t circularLogging = 1;         // "nCircularLogging"
    uint32_t numberOfLogfiles = 10;       // "nNumberOfLogfiles"
    uint32_t maxFileSize = 51200;         // "nMaxFileSize"
    uint32_t processPriority = 3;         // "nProcessPriority"
    uint32_t workerThreads = 5;           // "nWorkerThreads"
    uint32_t customerId = 3;              // "nCustomerID"
    uint32_t systemId = 3;                // "nSystemID"
    uint32_t queueLimit = 200000;         // "nQueueLimit", 0 = unlimited
    uint32_t protectAgainstShutdown = 0;  // "nProtectAgainstShutdown"
    uint32_t statsIntervalSeconds = 0;    // "nStatsInterval": a counters line every n s; 0 off
    uint32_t metricsPort = 0;             // "nMetricsPort": the Prometheus endpoint; 0 off
    CQuilletString metricsAddress{u"127.0.0.1"};  // "szMetricsAddress"
    uint32_t japanStringHandling = 0;             // "nJapanStringHandling"
    uint32_t eightBitPassThrough = 0;             // kEightBitPassThroughValue

    // Engine group.
    uint32_t enableEventlogWarnings = 0;     // "nEnableEventlogWarnings"
    CQuilletString mibsPath;                 // "szMIBSPath"
    uint32_t abortRuleOnFailure = 0;         // "bAbortRuleOnFailure"
    uint32_t enableRetry = 0;                // "nEnableRetry"
    uint32_t retryCount = 1;                 // "nRetryCount"
    uint32_t retryPeriod = 100;              // "nRetryPeriod"
    uint32_t enableDnsCache = 1;             // "nEnableDNSCache"
    uint32_t dnsCacheTimeSeconds = 7200;     // "nDNSCacheTime", stored in ms
    uint32_t dnsCacheLimit = 1024;           // "nDNSCacheLimit", at least 2
    uint32_t libCacheTimeOutSeconds = 1800;  // "nLibCacheTimeOut", stored in ms
};
