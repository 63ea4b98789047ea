#include "model/info_unit_types.h"

// Priority and importance are 5 already, as the syslog unit wants them.
CInfoUnitSyslog::CInfoUnitSyslog() : CInfoUnit(vt::IUT_SYSLOG, 16) {}

const char16_t* CInfoUnitSyslog::getRawMsgText() const {
    const CQuilletString* raw = rawMsg();
    return raw ? raw->getString() : u"";
}

const char* CInfoUnitSyslog::getRawMsgA() const {
    const CQuilletString* raw = rawMsg();
    return raw ? raw->getStringA() : "";
}

uint32_t CInfoUnitSyslog::getRawMsgLength() const {
    const CQuilletString* raw = rawMsg();
    return raw ? raw->getLength() : 0;
}

uint32_t CInfoUnitSyslog::getRawMsgLengthA() const {
    const CQuilletString* raw = rawMsg();
    return raw ? raw->getLengthA() : 0;
}

CInfoUnitHeartbeat::CInfoUnitHeartbeat() {
    setType(vt::IUT_HEARTBEAT);
}

CInfoUnitNTEventReport::CInfoUnitNTEventReport() {
    setType(vt::IUT_NTEVENTREPORT);
}

int32_t CInfoUnitNTEventReport::getEventID() const {
    return getPropertyInt(u"id", true);
}

CInfoUnitSNMPTrap::CInfoUnitSNMPTrap() {
    setType(vt::IUT_SNMPTRAP);
}

CInfoUnitFileMonitor::CInfoUnitFileMonitor() {
    setType(vt::IUT_FILEMONITOR);
}

CInfoUnitPingProbe::CInfoUnitPingProbe() {
    setPropertyInt(u"echostatus", 11000);
    setPropertyInt(u"roundtriptime", 0);
    setType(vt::IUT_PINGPROBE);
}

CInfoUnitPortProbe::CInfoUnitPortProbe() {
    setType(vt::IUT_PORTPROBE);
}

CInfoUnitNTServiceMonitor::CInfoUnitNTServiceMonitor() {
    setType(vt::IUT_NTSERVICEMONITOR);
}

CInfoUnitDiskSpaceMonitor::CInfoUnitDiskSpaceMonitor() {
    setPropertyInt(u"currusage", 0);
    setPropertyInt(u"maxavailable", 0);
    setType(vt::IUT_DISKSPACEMONITOR);
}

CInfoUnitDBMonitor::CInfoUnitDBMonitor() {
    setType(vt::IUT_DBMONITOR);
}

CInfoUnitSerialMonitor::CInfoUnitSerialMonitor() {
    setType(vt::IUT_SERIALMONITOR);
}

CInfoUnitCPUMonitor::CInfoUnitCPUMonitor() {
    setType(vt::IUT_CPUMONITOR);
}

CInfoUnitAliveMon::CInfoUnitAliveMon() {
    setType(vt::IUT_ALIVEMON);
}

CInfoUnitSMTPProbe::CInfoUnitSMTPProbe() {
    setType(vt::IUT_SMTPPROBE);
}

CInfoUnitFTPProbe::CInfoUnitFTPProbe() {
    setType(vt::IUT_FTPPROBE);
}

CInfoUnitHTTPProbe::CInfoUnitHTTPProbe() {
    setType(vt::IUT_HTTPPROBE);
}

CInfoUnitPOP3Probe::CInfoUnitPOP3Probe() {
    setType(vt::IUT_POP3PROBE);
}

CInfoUnitIMAPProbe::CInfoUnitIMAPProbe() {
    setType(vt::IUT_IMAPPROBE);
}

CInfoUnitNNTPProbe::CInfoUnitNNTPProbe() {
    setType(vt::IUT_NNTPPROBE);
}

CInfoUnitWevtMonitor::CInfoUnitWevtMonitor() {
    setType(vt::IUT_WEVTMONITOR);
}
