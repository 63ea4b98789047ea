-- The legacy layout of the database output for PostgreSQL.
CREATE TABLE SystemEvents (
    ID SERIAL PRIMARY KEY,
    CustomerID BIGINT, ReceivedAt TIMESTAMP, DeviceReportedTime TIMESTAMP,
    Facility SMALLINT, Priority SMALLINT, FromHost VARCHAR(60), Message TEXT,
    NTSeverity INT, Importance INT, EventSource VARCHAR(60), EventUser VARCHAR(60),
    EventCategory INT, EventID INT, EventBinaryData TEXT, MaxAvailable INT,
    CurrUsage INT, MinUsage INT, MaxUsage INT, InfoUnitID INT,
    SysLogTag VARCHAR(60), EventLogType VARCHAR(60), GenericFileName VARCHAR(60),
    SystemID INT, NTEventLogType VARCHAR(60)
);
CREATE TABLE SystemEventsProperties (
    ID SERIAL PRIMARY KEY,
    SystemEventID INT, ParamName VARCHAR(255), ParamValue TEXT
);
