-- The legacy layout of the database output for SQLite.
CREATE TABLE SystemEvents (
    ID INTEGER PRIMARY KEY AUTOINCREMENT,
    CustomerID INTEGER, ReceivedAt TIMESTAMP, DeviceReportedTime TIMESTAMP,
    Facility SMALLINT, Priority SMALLINT, FromHost VARCHAR(60), Message TEXT,
    NTSeverity INTEGER, Importance INTEGER, EventSource VARCHAR(60), EventUser VARCHAR(60),
    EventCategory INTEGER, EventID INTEGER, EventBinaryData TEXT, MaxAvailable INTEGER,
    CurrUsage INTEGER, MinUsage INTEGER, MaxUsage INTEGER, InfoUnitID INTEGER,
    SysLogTag VARCHAR(60), EventLogType VARCHAR(60), GenericFileName VARCHAR(60),
    SystemID INTEGER, NTEventLogType VARCHAR(60)
);
CREATE TABLE SystemEventsProperties (
    ID INTEGER PRIMARY KEY AUTOINCREMENT,
    SystemEventID INTEGER, ParamName VARCHAR(255), ParamValue TEXT
);
