#include "base/config_settings.h"

#include "base/reg_access.h"
#include "base/version.h"
#include "platform/heap.h"

CConfigSettings::CConfigSettings()
    : serviceName(vt::kServiceNameW),
      generalKeyPath(kGeneralKeyPath),
      versionMajor(vt::kVersionMajor),
      versionMinor(vt::kVersionMinor),
      buildNumber(vt::kBuildNumber),
      debugFileName(u"VTAgentDebug.txt") {
    uint32_t error = 0;
    switch (vt::enableLowFragmentationHeap(error)) {
        case vt::LowFragmentationHeap::Enabled:
            vt::debugWrite(vt::DBG_MINIMUM,
                           "CConfigSettings|CConfigSettings: HeapSetInformation succeeded, "
                           "Low-fragmentation Heap enabled");
            break;
        case vt::LowFragmentationHeap::Failed:
            vt::debugPrintf(vt::DBG_ERROR,
                            "CConfigSettings|CConfigSettings: HeapSetInformation failed with "
                            "Error '%d' (Will fail always in debug!)\r\n",
                            static_cast<int>(error));
            break;
        case vt::LowFragmentationHeap::ApiNotFound:
            vt::debugWrite(
                vt::DBG_ERROR,
                "CConfigSettings|CConfigSettings: Error, HeapSetInformation API not found!");
            break;
    }
}

void CConfigSettings::readGeneralValues(CRegAccess& reg) {
    reg.ReadDWORDValue("bReloadRuleBase", reloadRuleBase, 0);
    reg.ReadDWORDValue("nTimeMode", timeMode, 0);
    reg.ReadStringValue("szDebugFileName", debugFileName, CQuilletString(u"VTAgentDebug.txt"));
    reg.ReadDWORDValue("nEnableDebugOutput", enableDebugOutput, 0);
    reg.ReadDWORDValue("nDebugErrors", debugErrors, 1);
    reg.ReadDWORDValue("nDebugMini", debugMini, 0);
    reg.ReadDWORDValue("nDebugInternal", debugInternal, 0);
    reg.ReadDWORDValue("nDebugRuleEngine", debugRuleEngine, 0);
    reg.ReadDWORDValue("nDebugUltra", debugUltra, 0);
    reg.ReadDWORDValue("nCircularLogging", circularLogging, 1);
    reg.ReadDWORDValue("nNumberOfLogfiles", numberOfLogfiles, 10);
    reg.ReadDWORDValue("nMaxFileSize", maxFileSize, 51200);
    reg.ReadDWORDValue("nProcessPriority", processPriority, 3);
    reg.ReadDWORDValue("nWorkerThreads", workerThreads, 5);
    reg.ReadDWORDValue("nCustomerID", customerId, 3);
    reg.ReadDWORDValue("nSystemID", systemId, 3);
    reg.ReadDWORDValue("nQueueLimit", queueLimit, 200000);
    reg.ReadDWORDValue("nProtectAgainstShutdown", protectAgainstShutdown, 0);
    reg.ReadDWORDValue("nStatsInterval", statsIntervalSeconds, 0);
    reg.ReadDWORDValue("nMetricsPort", metricsPort, 0);
    reg.ReadStringValue("szMetricsAddress", metricsAddress, CQuilletString(u"127.0.0.1"));
    reg.ReadDWORDValue("nJapanStringHandling", japanStringHandling, 0);
    reg.ReadDWORDValue(kEightBitPassThroughValue, eightBitPassThrough, 0);
    vt::setEightBitPassThrough(eightBitPassThrough != 0);
}

void CConfigSettings::readGeneralValues() {
    CRegAccess reg;
    reg.OpenKey(vt::RegRoot::LocalMachine, generalKeyPath, vt::kKeyRead);
    readGeneralValues(reg);
}

void CConfigSettings::load() {
    CRegAccess reg;
    reg.OpenKey(vt::RegRoot::LocalMachine, generalKeyPath, vt::kKeyRead);
    reg.ReadDWORDValue("nEnableEventlogWarnings", enableEventlogWarnings, 0);
    reg.ReadStringValue("szMIBSPath", mibsPath, CQuilletString());
    reg.ReadDWORDValue("bAbortRuleOnFailure", abortRuleOnFailure, 0);
    reg.ReadDWORDValue("nEnableRetry", enableRetry, 0);
    reg.ReadDWORDValue("nRetryCount", retryCount, 1);
    reg.ReadDWORDValue("nRetryPeriod", retryPeriod, 100);
    reg.ReadDWORDValue("nEnableDNSCache", enableDnsCache, 1);
    uint32_t milliseconds = 0;
    reg.ReadDWORDValue("nDNSCacheTime", milliseconds, 7200000);
    dnsCacheTimeSeconds = cacheMillisecondsToSeconds(milliseconds);
    reg.ReadDWORDValue("nDNSCacheLimit", dnsCacheLimit, 1024);
    if (dnsCacheLimit < 2) dnsCacheLimit = 2;
    reg.ReadDWORDValue("nLibCacheTimeOut", milliseconds, 1800000);
    libCacheTimeOutSeconds = cacheMillisecondsToSeconds(milliseconds);
}

uint32_t CConfigSettings::cacheMillisecondsToSeconds(uint32_t milliseconds) noexcept {
    return milliseconds > 1000 ? milliseconds / 1000 : 1;
}

vt::DebugLogSettings CConfigSettings::debugLogSettings() const {
    vt::DebugLogSettings s;
    s.enabled = enableDebugOutput != 0;
    const auto bit = [](uint32_t sw, uint32_t level) { return sw == 1 ? level : 0u; };
    s.mask = bit(debugErrors, vt::DBG_ERROR) | bit(debugMini, vt::DBG_MINIMUM) |
             bit(debugInternal, vt::DBG_INFO) | bit(debugRuleEngine, vt::DBG_RULEENG) |
             bit(debugUltra, vt::DBG_ULTRA);
    s.fileName = debugFileName.getStringA();
    s.circular = circularLogging != 0;
    s.numberOfFiles = numberOfLogfiles;
    s.maxFileSizeKb = maxFileSize;
    return s;
}
