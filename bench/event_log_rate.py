#!/usr/bin/env python3
"""Records per second of the event log monitor: a 100,000-record .evt file and a journal
directory of 100,000 entries, each read by `vtagent -r -o` into a write-file action with
"nPreventOverrunDelay" 0. Every record is handed to the rule engine and waited for, so this
measures that round trip per record.
    bench/event_log_rate.py [BUILD_DIR] [RECORDS]"""
import os
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(ROOT, "tests", "integration"))
import evt_writer  # noqa: E402
from test_event_log import app, journal_file  # noqa: E402
from test_service_host import ROOT as KEY, reg_value, services, write_file_rules  # noqa: E402

build = sys.argv[1] if len(sys.argv) > 1 else os.path.join(ROOT, "build", "linux")
count = int(sys.argv[2]) if len(sys.argv) > 2 else 100000


def run(tmp, log):
    env = dict(os.environ, VTAGENT_REGISTRY=os.path.join(tmp, "hive.db"),
               VTAGENT_EVENTLOG_SOCKET=os.path.join(tmp, "none.sock"))
    out = os.path.join(tmp, "out")
    monitor = {"nConfigVersion": 1, "szRuleSetName": "Default", "nPreventOverrunDelay": 0}
    sections = [(KEY + "\\General", {"nEnableDebugOutput": 0})] + write_file_rules(out) + \
        services((3, "events", monitor)) + [(KEY + "\\Services\\IS1\\Log1", log)]
    reg = os.path.join(tmp, "config.reg")
    with open(reg, "w") as f:
        f.write("Windows Registry Editor Version 5.00\n")
        for key, values in sections:
            f.write("\n[%s]\n" % key + "".join(reg_value(k, v) for k, v in values.items()))
    subprocess.run([os.path.join(build, "vtreg"), "import", reg], env=env, check=True)
    start = time.monotonic()
    subprocess.run([os.path.join(build, "vtagent"), "-r", "-o"], env=env, check=True,
                   stdout=subprocess.DEVNULL, timeout=3600)
    seconds = time.monotonic() - start
    lines = sum(open(os.path.join(out, f), "rb").read().count(b"\n") for f in os.listdir(out))
    return lines, seconds


with tempfile.TemporaryDirectory() as tmp:
    path = os.path.join(tmp, "big.evt")
    with open(path, "wb") as f:
        f.write(evt_writer.evt_file([evt_writer.record(n, 1000 + n % 500, strings=("user%d" % n,))
                                     for n in range(1, count + 1)]))
    lines, seconds = run(tmp, {"nReadFromFile": 1, "szLogFileName": path, "szLogType": "Saved"})
    print(".evt file: %d records in %.2f s: %.0f records/s" % (lines, seconds, lines / seconds))
with tempfile.TemporaryDirectory() as tmp:
    journal = os.path.join(tmp, "journal")
    os.mkdir(journal)
    journal_file(os.path.join(journal, "big.journal"), [app(n) for n in range(count)])
    lines, seconds = run(tmp, {"szLogType": "Application", "szJournalDirectory": journal})
    print("journal: %d entries in %.2f s: %.0f entries/s" % (lines, seconds, lines / seconds))
