#!/usr/bin/env python3
"""Rows per second from syslog over TCP into SQLite (its ODBC driver) and into a PostgreSQL
server of the benchmark's own, legacy layout with and without the properties table: COUNT
messages on one connection, timed from the first send to the last row counted.
    bench/database_rate.py [BUILD_DIR] [COUNT]"""
import os
import socket
import sys
import time
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
build = os.path.abspath(sys.argv[1]) if len(sys.argv) > 1 else os.path.join(ROOT, "build", "linux")
COUNT = int(sys.argv[2]) if len(sys.argv) > 2 else 20000
os.environ.update(VTAGENT_BIN=os.path.join(build, "vtagent"),
                  VTREG_BIN=os.path.join(build, "vtreg"), VT_SOURCE_DIR=ROOT)
sys.path.insert(0, os.path.join(ROOT, "tests", "integration"))
import test_database  # noqa: E402
from test_service_host import services  # noqa: E402
from test_syslog import free_port  # noqa: E402

RULES = test_database.RULES


def measure(case, name, properties):
    port = free_port()
    rule = RULES + "\\RS1\\R1"
    case.log = os.path.join(case.dir, "debug.txt")
    case.import_config([(RULES, {"nRuleSetsVersion": 1, "nRuleSetCount": 1,
                                 "szRSName1": "Default"}),
                        (RULES + "\\RS1", {"nRuleCount": 1}),
                        (rule, {"nActionCount": 1, "nActionType1": 1000, "szActionName1": "db"}),
                        (rule + "\\A1", {"szODBCDsn": "vtdb", "szODBCUid": "vt",
                                          "nPropertiesTable": properties})] +
                       services((1, "in", {"nConfigVersion": 1, "szRuleSetName": "Default",
                                           "nListenPort": port, "szMyIPAddress": "127.0.0.1",
                                           "nProtocolType": 1, "nEnableTCPMsgSep": 1,
                                           "szTCPMsgSep": "\\n"})), nWorkerThreads=1)
    listening = lambda: case.log_text().count("listening on TCP") if os.path.exists(case.log) else 0
    started = listening()
    agent = case.spawn("-r")
    case.wait_for(lambda: listening() > started, "the source", agent=agent)
    before = int(case.rows("select count(*) from SystemEvents")[0][0])
    start = time.monotonic()
    with socket.create_connection(("127.0.0.1", port)) as s:
        s.sendall(b"".join(b"<13>Nov 24 10:00:00 host app: row %06d\n" % n for n in range(COUNT)))
    count = lambda: int(case.rows("select count(*) from SystemEvents")[0][0]) - before
    case.wait_for(lambda: count() >= COUNT, "the rows", 600, agent)
    seconds = time.monotonic() - start
    case.stop(agent)
    print("%-10s properties table %s: %6.0f rows/s (%d rows in %.1f s)" %
          (name, "on " if properties else "off", COUNT / seconds, COUNT, seconds), flush=True)


class SQLiteRate(test_database.Database):
    def runTest(self):
        for properties in (0, 1):
            measure(self, "SQLite", properties)


class PostgreSQLRate(test_database.PostgreSQL):
    def runTest(self):
        for properties in (0, 1):
            measure(self, "PostgreSQL", properties)


if __name__ == "__main__":
    suite = unittest.TestSuite([SQLiteRate(), PostgreSQLRate()])
    unittest.TextTestRunner(verbosity=0).run(suite)
