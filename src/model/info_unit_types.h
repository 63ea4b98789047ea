#pragma once
#include "model/info_unit.h"

// One class per kind of source. Each constructor sets its defaults and its "iut" after the
// base constructor; sources add their own properties as they fill the unit.

class CInfoUnitSyslog : public CInfoUnit {
  public:
    CInfoUnitSyslog();
    const char16_t* getDescription() const override { return u"received syslog message"; }
    bool isNotSyslog() const override { return false; }
    // "rawsyslogmsg": the message exactly as received.
    const char16_t* getRawMsgText() const override;
    const char* getRawMsgA() const override;
    uint32_t getRawMsgLength() const override;
    uint32_t getRawMsgLengthA() const override;
    void setRawMsg(std::u16string_view raw) {
        setPropertyString(vt::StdProperty::RawSyslogMsg, raw);
    }
    void setRawMsgA(std::string_view raw) {
        setPropertyStringA(vt::StdProperty::RawSyslogMsg, raw);
    }
    void takeRawMsg(std::u16string&& raw) {
        takePropertyString(vt::StdProperty::RawSyslogMsg, std::move(raw));
    }

  private:
    const CQuilletString* rawMsg() const {
        return getPropertyStringObject(vt::StdProperty::RawSyslogMsg);
    }
};

class CInfoUnitHeartbeat : public CInfoUnit {
  public:
    CInfoUnitHeartbeat();
};

class CInfoUnitNTEventReport : public CWaitableInfoUnit {
  public:
    CInfoUnitNTEventReport();
    const char16_t* getDescription() const override { return u"Windows Event Log Entry"; }
    // Int "id"; must exist (throws CErrorReport* 1100).
    virtual int32_t getEventID() const;
    // The event log type (1 error, 2 warning, 4 information, 8 audit success, 16 audit
    // failure, 0 other), kept in "severityid".
    void setEventType(int32_t type) { setPropertyInt(u"severityid", type); }
    int32_t getEventType() const { return getPropertyInt(u"severityid"); }
    // The name of the log the entry came from, kept in "nteventlogtype".
    void setEventLogTypeName(std::u16string_view name) {
        setPropertyString(u"nteventlogtype", name);
    }
};

class CInfoUnitSNMPTrap : public CInfoUnit {
  public:
    CInfoUnitSNMPTrap();
    const char16_t* getDescription() const override { return u"received SNMP message"; }
};

class CInfoUnitFileMonitor : public CWaitableInfoUnit {
  public:
    CInfoUnitFileMonitor();
};

class CInfoUnitPingProbe : public CInfoUnit {
  public:
    CInfoUnitPingProbe();
};

class CInfoUnitPortProbe : public CInfoUnit {
  public:
    CInfoUnitPortProbe();
};

class CInfoUnitNTServiceMonitor : public CInfoUnit {
  public:
    CInfoUnitNTServiceMonitor();
};

class CInfoUnitDiskSpaceMonitor : public CInfoUnit {
  public:
    CInfoUnitDiskSpaceMonitor();
};

class CInfoUnitDBMonitor : public CWaitableInfoUnit {
  public:
    CInfoUnitDBMonitor();
};

class CInfoUnitSerialMonitor : public CInfoUnit {
  public:
    CInfoUnitSerialMonitor();
    const char16_t* getDescription() const override { return u"received serial port data"; }
};

class CInfoUnitCPUMonitor : public CInfoUnit {
  public:
    CInfoUnitCPUMonitor();
};

class CInfoUnitAliveMon : public CInfoUnit {
  public:
    CInfoUnitAliveMon();
};

class CInfoUnitSMTPProbe : public CInfoUnit {
  public:
    CInfoUnitSMTPProbe();
};

class CInfoUnitFTPProbe : public CInfoUnit {
  public:
    CInfoUnitFTPProbe();
};

class CInfoUnitHTTPProbe : public CInfoUnit {
  public:
    CInfoUnitHTTPProbe();
};

class CInfoUnitPOP3Probe : public CInfoUnit {
  public:
    CInfoUnitPOP3Probe();
};

class CInfoUnitIMAPProbe : public CInfoUnit {
  public:
    CInfoUnitIMAPProbe();
};

class CInfoUnitNNTPProbe : public CInfoUnit {
  public:
    CInfoUnitNNTPProbe();
};

class CInfoUnitWevtMonitor : public CWaitableInfoUnit {
  public:
    CInfoUnitWevtMonitor();
};
