"""vtagent writing units as rows through ODBC into SQLite (Debian's SQLite ODBC driver, with the
DSN in an odbc.ini of the test's own): the legacy layout with its properties table, hostile
message text arriving byte for byte, a field-list layout, and many rows."""
import os
import shutil
import sqlite3
import subprocess
import time
import unittest

from test_service_host import AgentTestCase, ROOT, file_lines, services, write_file_rules
from test_syslog import free_port

DRIVER = "/usr/lib/x86_64-linux-gnu/odbc/libsqlite3odbc.so"
SCHEMA = os.path.join(os.environ.get("VT_SOURCE_DIR", os.path.join(
    os.path.dirname(os.path.abspath(__file__)), "..", "..")), "config", "sql", "sqlite.sql")
RULES = ROOT + "\\RuleSets"
HOSTILE = ["it's a \"quote\"; semicolons;", "'); DROP TABLE SystemEvents; --",
           "Störung ✓ Ünïcödé", "back\\slash %percent% $(dollar)"]


@unittest.skipUnless(os.path.exists(DRIVER), "the SQLite ODBC driver is not installed")
class Database(AgentTestCase):
    def setUp(self):
        super().setUp()
        self.db = os.path.join(self.dir, "events.db")
        with sqlite3.connect(self.db) as c, open(SCHEMA) as f:
            c.executescript(f.read())
        with open(os.path.join(self.dir, "odbcinst.ini"), "w") as f:
            f.write("[SQLite3]\nDriver=%s\n" % DRIVER)
        with open(os.path.join(self.dir, "odbc.ini"), "w") as f:
            f.write("[vtdb]\nDriver=SQLite3\nDatabase=%s\nSyncPragma=OFF\n" % self.db)
        self.env["ODBCSYSINI"] = self.dir
        self.env["ODBCINI"] = os.path.join(self.dir, "odbc.ini")

    def rows(self, sql):
        with sqlite3.connect(self.db) as c:
            return c.execute(sql).fetchall()

    def run_lines(self, lines, actions, wait_for):
        source = os.path.join(self.dir, "app.log")
        with open(source, "w", encoding="utf-8") as f:
            f.write("".join(l + "\n" for l in lines))
        monitor = {"nConfigVersion": 1, "szRuleSetName": "Default", "szPathAndFileName": source,
                   "nSleepTime": 100, "nPreventOverrunDelay": 0}
        rule = RULES + "\\RS1\\R1"
        head = {"nActionCount": len(actions)}
        sections = []
        for n, (kind, values) in enumerate(actions, 1):
            head.update({"nActionType%d" % n: kind, "szActionName%d" % n: "a%d" % n})
            sections.append((rule + "\\A%d" % n, values))
        self.import_config([(RULES, {"nRuleSetsVersion": 1, "nRuleSetCount": 1,
                                     "szRSName1": "Default"}),
                            (RULES + "\\RS1", {"nRuleCount": 1}), (rule, head)] + sections +
                           services((5, "lines", monitor)), nWorkerThreads=1)
        agent = self.spawn("-r")
        self.wait_for(wait_for, "the rows", 120, agent)
        self.stop(agent)

    def test_legacy_rows_with_properties_and_hostile_text(self):
        mark = (1012, {"nPropertyType": 0xffffffff, "szPropertyType": "mykey",
                       "szPropertyValue": "v-%msg%"})
        self.run_lines(HOSTILE, [mark, (1000, {"szODBCDsn": "vtdb"})],
                       lambda: len(self.rows("select * from SystemEvents")) >= len(HOSTILE))
        got = self.rows("select Message, FromHost, InfoUnitID, Facility, Priority, ID "
                        "from SystemEvents order by ID")
        self.assertEqual([r[0] for r in got], HOSTILE)
        self.assertTrue(all(r[2] == 5 and r[3] == 16 and r[4] == 5 for r in got), got)
        props = self.rows("select SystemEventID, ParamName, ParamValue from "
                          "SystemEventsProperties where ParamName = 'mykey' order by ID")
        self.assertEqual([(r[0], r[2]) for r in props], [(g[5], "v-" + g[0]) for g in got])
        names = {r[0] for r in self.rows("select ParamName from SystemEventsProperties")}
        self.assertNotIn("msg", names)

    def test_missing_columns_are_added(self):
        """An older table without the newer columns: they are added and the row is written."""
        with sqlite3.connect(self.db) as c:
            c.executescript("DROP TABLE SystemEvents; CREATE TABLE SystemEvents (ID INTEGER "
                            "PRIMARY KEY AUTOINCREMENT, ReceivedAt TIMESTAMP, DeviceReportedTime "
                            "TIMESTAMP, Facility SMALLINT, Priority SMALLINT, FromHost "
                            "VARCHAR(60), Message TEXT, NTSeverity INTEGER, Importance INTEGER)")
        self.run_lines(["after the migration"], [(1000, {"szODBCDsn": "vtdb",
                                                         "nPropertiesTable": 0})],
                       lambda: len(self.rows("select * from SystemEvents")) >= 1)
        self.assertEqual(self.rows("select Message from SystemEvents"), [("after the migration",)])
        columns = {r[1] for r in self.rows("pragma table_info(SystemEvents)")}
        self.assertLessEqual({"InfoUnitID", "SysLogTag", "NTEventLogType", "GenericFileName",
                              "CustomerID", "SystemID"}, columns)

    def test_database_monitor_alerts_on_a_failing_query(self):
        out = os.path.join(self.dir, "out")
        common = {"nConfigVersion": 1, "szRuleSetName": "Default", "szODBCDsn": "vtdb",
                  "nSleepTime": 200}
        self.import_config(write_file_rules(out, line_format="%iut% %msg%%$CRLF%") +
                           services((12, "good", dict(common, szQuery="select count(*) from "
                                                      "SystemEvents")),
                                    (12, "bad", dict(common, szQuery="select x from missing"))))
        agent = self.spawn("-r")
        lines = lambda: file_lines(os.path.join(out, "out.log"))
        self.wait_for(lambda: len(lines()) >= 1, "the alert", 60, agent)
        time.sleep(1)  # more checks of both: still the one alert
        self.stop(agent)
        self.assertEqual(len(lines()), 1, lines())
        self.assertRegex(lines()[0].decode(), r"^12 Database monitor: 'vtdb' failed - .*missing")

    def test_field_list_layout_and_many_rows(self):
        fields = {"nDBAVersion": 2, "szODBCDsn": "vtdb", "szTableName": "SystemEvents",
                  "nFieldsCount": 3, "szFieldName_1": "Message", "szFieldContent_1": "%msg%",
                  "szFieldName_2": "Priority", "nFieldType_2": 1,
                  "szFieldContent_2": "%syslogpriority%", "szFieldName_3": "ReceivedAt",
                  "nFieldType_3": 2, "szFieldContent_3": "%timegenerated%"}
        total = 2000
        self.run_lines(["row %05d" % n for n in range(total)], [(1000, fields)],
                       lambda: self.rows("select count(*) from SystemEvents")[0][0] >= total)
        got = self.rows("select Message, Priority, ReceivedAt from SystemEvents order by ID")
        self.assertEqual([r[0] for r in got], ["row %05d" % n for n in range(total)])
        self.assertEqual({r[1] for r in got}, {5})
        self.assertRegex(got[0][2], r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d")


PG_BIN = "/usr/lib/postgresql/15/bin"
PG_DRIVER = "/usr/lib/x86_64-linux-gnu/odbc/psqlodbcw.so"


@unittest.skipUnless(os.path.exists(PG_BIN) and os.path.exists(PG_DRIVER) and
                     shutil.which("runuser"), "PostgreSQL or its ODBC driver is not installed")
class PostgreSQL(Database):
    """A PostgreSQL server of the test's own, in its temporary directory on a loopback port,
    run as the unprivileged user "nobody" (the server refuses to run as root)."""

    def pg(self, *args):
        return subprocess.run(["runuser", "-u", "nobody", "--", *args], check=True,
                              capture_output=True, timeout=120)

    def setUp(self):
        AgentTestCase.setUp(self)
        self.pgdir = os.path.join(self.dir, "pg")
        os.makedirs(self.pgdir)
        os.chmod(self.dir, 0o755)
        shutil.chown(self.pgdir, "nobody", "nogroup")
        self.port = free_port()
        self.pg(PG_BIN + "/initdb", "-D", self.pgdir + "/data", "-U", "vt", "--auth=trust")
        self.start_server()
        with open(SCHEMA.replace("sqlite.sql", "postgresql.sql")) as f:
            self.psql(f.read())
        with open(os.path.join(self.dir, "odbcinst.ini"), "w") as f:
            f.write("[PostgreSQL]\nDriver=%s\n" % PG_DRIVER)
        with open(os.path.join(self.dir, "odbc.ini"), "w") as f:
            f.write("[vtdb]\nDriver=PostgreSQL\nServername=127.0.0.1\nPort=%d\nDatabase=postgres\n"
                    "Username=vt\n" % self.port)
        self.env["ODBCSYSINI"] = self.dir
        self.env["ODBCINI"] = os.path.join(self.dir, "odbc.ini")

    def tearDown(self):
        # Before the temporary directory with the server's data goes.
        subprocess.run(["runuser", "-u", "nobody", "--", PG_BIN + "/pg_ctl", "-D",
                        self.pgdir + "/data", "-m", "immediate", "stop"], capture_output=True)
        super().tearDown()

    def start_server(self):
        self.pg(PG_BIN + "/pg_ctl", "-D", self.pgdir + "/data", "-w", "-l", self.pgdir + "/log",
                "-o", "-p %d -k %s -c listen_addresses=127.0.0.1" % (self.port, self.pgdir),
                "start")

    def psql(self, sql):
        return self.pg("/usr/bin/psql", "-h", "127.0.0.1", "-p", str(self.port), "-U", "vt",
                       "-d", "postgres", "-At", "-c", sql).stdout.decode()

    def rows(self, sql):
        text = self.psql(sql.replace("pragma table_info(SystemEvents)",
                                     "select 0, column_name from information_schema.columns "
                                     "where table_name = 'systemevents'"))
        return [tuple(line.split("|")) for line in text.splitlines() if line]

    def test_missing_columns_are_added(self):
        self.skipTest("the old table is made in SQLite's form; not repeated for PostgreSQL")

    def test_field_list_layout_and_many_rows(self):
        self.skipTest("covered with SQLite; PostgreSQL has the restart test below")

    def test_database_monitor_alerts_on_a_failing_query(self):
        """Here the database itself is down: the monitor says it cannot connect."""
        self.pg(PG_BIN + "/pg_ctl", "-D", self.pgdir + "/data", "-m", "fast", "stop")
        out = os.path.join(self.dir, "out")
        self.import_config(write_file_rules(out, line_format="%iut% %msg%%$CRLF%") +
                           services((12, "pg", {"nConfigVersion": 1, "szRuleSetName": "Default",
                                                "szODBCDsn": "vtdb", "szODBCUid": "vt",
                                                "nSleepTime": 200})))
        agent = self.spawn("-r")
        lines = lambda: file_lines(os.path.join(out, "out.log"))
        self.wait_for(lambda: len(lines()) >= 1, "the alert", 60, agent)
        self.stop(agent)
        self.assertRegex(lines()[0].decode(), r"^12 Database monitor: 'vtdb' failed - .*127\.0\.0\.1")

    def test_legacy_rows_with_properties_and_hostile_text(self):
        self.run_lines(HOSTILE, [(1000, {"szODBCDsn": "vtdb", "szODBCUid": "vt",
                                         "nPropertiesTable": 0})],
                       lambda: len(self.rows("select ID from SystemEvents")) >= len(HOSTILE))
        self.assertEqual([r[0] for r in self.rows("select Message from SystemEvents order by ID")],
                         HOSTILE)

    def test_rows_survive_a_server_restart(self):
        total = 1000
        source = os.path.join(self.dir, "app.log")
        count = lambda: int(self.rows("select count(distinct Message) from SystemEvents")[0][0])
        lines = ["row %04d" % n for n in range(total)]
        self.run_lines_restarting(lines, count, total)
        messages = [r[0] for r in self.rows("select Message from SystemEvents")]
        self.assertEqual(set(messages), set(lines))
        self.assertLessEqual(len(messages), total + 1)  # at most the row in flight twice

    def run_lines_restarting(self, lines, count, total):
        source = os.path.join(self.dir, "app.log")
        with open(source, "w") as f:
            f.write("".join(l + "\n" for l in lines))
        monitor = {"nConfigVersion": 1, "szRuleSetName": "Default", "szPathAndFileName": source,
                   "nSleepTime": 100, "nPreventOverrunDelay": 0}
        rule = RULES + "\\RS1\\R1"
        self.import_config([(RULES, {"nRuleSetsVersion": 1, "nRuleSetCount": 1,
                                     "szRSName1": "Default"}),
                            (RULES + "\\RS1", {"nRuleCount": 1}),
                            (rule, {"nActionCount": 1, "nActionType1": 1000, "szActionName1": "db"}),
                            (rule + "\\A1", {"szODBCDsn": "vtdb", "szODBCUid": "vt",
                                              "nPropertiesTable": 0})] +
                           services((5, "lines", monitor)), nWorkerThreads=1, nEnableRetry=1,
                           nRetryCount=300, nRetryPeriod=100)
        agent = self.spawn("-r")
        self.wait_for(lambda: count() >= 200, "rows before the restart", 120, agent)
        self.pg(PG_BIN + "/pg_ctl", "-D", self.pgdir + "/data", "-m", "fast", "stop")
        self.start_server()
        self.wait_for(lambda: count() >= total, "every row", 300, agent)
        self.stop(agent)


if __name__ == "__main__":
    unittest.main()
