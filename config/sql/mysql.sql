-- The legacy layout of the database output for MariaDB and MySQL.
CREATE TABLE SystemEvents (
    ID INT UNSIGNED NOT NULL AUTO_INCREMENT PRIMARY KEY,
    CustomerID BIGINT, ReceivedAt DATETIME NULL, DeviceReportedTime DATETIME NULL,
    Facility SMALLINT NULL, Priority SMALLINT NULL, FromHost VARCHAR(60) NULL, Message TEXT,
    NTSeverity INT NULL, Importance INT NULL, EventSource VARCHAR(60), EventUser VARCHAR(60) NULL,
    EventCategory INT NULL, EventID INT NULL, EventBinaryData TEXT NULL, MaxAvailable INT NULL,
    CurrUsage INT NULL, MinUsage INT NULL, MaxUsage INT NULL, InfoUnitID INT NULL,
    SysLogTag VARCHAR(60), EventLogType VARCHAR(60), GenericFileName VARCHAR(60),
    SystemID INT NULL, NTEventLogType VARCHAR(60)
) CHARACTER SET utf8mb4;
CREATE TABLE SystemEventsProperties (
    ID INT UNSIGNED NOT NULL AUTO_INCREMENT PRIMARY KEY,
    SystemEventID INT NULL, ParamName VARCHAR(255) NULL, ParamValue TEXT NULL
) CHARACTER SET utf8mb4;
