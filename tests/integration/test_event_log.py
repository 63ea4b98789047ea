"""vtagent's event log monitor on Linux: the systemd journal (files made by
systemd-journal-remote, read through "szJournalDirectory") and .evt backup files (made by
evt_writer, checked with libevt's own tools), each record once into a file through a rule,
"-r -o" doing one run, across restarts, a vacuumed journal, a corrupted file and SIGKILL."""
import collections
import glob
import os
import random
import shutil
import signal
import subprocess
import unittest

import evt_writer
from test_service_host import AgentTestCase, ROOT, file_lines, services, write_file_rules

JOURNAL_REMOTE = "/lib/systemd/systemd-journal-remote"
BOOT = "0123456789abcdef0123456789abcdef"


def journal_file(path, entries, start=0):
    """Writes a journal file from (message, fields) entries through the export format."""
    text = ""
    for n, (message, fields) in enumerate(entries, start):
        text += "__REALTIME_TIMESTAMP=%d\n__MONOTONIC_TIMESTAMP=%d\n_BOOT_ID=%s\n" % (
            1700000000000000 + n * 1000000, 1000 + n, BOOT)
        text += "MESSAGE=%s\n" % message + "".join("%s=%s\n" % kv for kv in fields.items())
        text += "\n"
    export = path + ".export"
    with open(export, "w") as f:
        f.write(text)
    subprocess.run([JOURNAL_REMOTE, "--output=" + path, export], check=True,
                   capture_output=True, timeout=60)


def app(n):
    return ("app line %d" % n, {"PRIORITY": "6", "SYSLOG_IDENTIFIER": "app",
                                "SYSLOG_FACILITY": "1", "_HOSTNAME": "host1",
                                "_TRANSPORT": "syslog"})


KERNEL = ("kernel line", {"PRIORITY": "3", "SYSLOG_IDENTIFIER": "kernel", "_TRANSPORT": "kernel"})


class EventLogAgent(AgentTestCase):
    def configure(self, log):
        self.out = os.path.join(self.dir, "out")
        monitor = {"nConfigVersion": 1, "szRuleSetName": "Default", "nSleepTime": 100,
                   "nPreventOverrunDelay": 0}
        self.import_config(write_file_rules(self.out) + services((3, "events", monitor)) +
                           [(ROOT + "\\Services\\IS1\\Log1", log)])

    def lines(self):
        return file_lines(*glob.glob(os.path.join(self.out, "*")))

    def run_once(self):
        """One "-r -o" run: the agent must end by itself."""
        p = self.spawn("-r", "-o")
        _, _ = p.communicate(timeout=60)
        self.assertEqual(p.returncode, 0)
        self.assertIn("-r -o option set - terminating product.", self.log_text())


@unittest.skipUnless(os.path.exists(JOURNAL_REMOTE), "systemd-journal-remote is not installed")
class Journal(EventLogAgent):
    def test_each_entry_once_across_runs_and_a_vacuum(self):
        journal = os.path.join(self.dir, "journal")
        os.mkdir(journal)
        journal_file(os.path.join(journal, "a.journal"), [app(1), KERNEL, app(2)])
        self.configure({"szLogType": "Application", "szJournalDirectory": journal})
        self.run_once()
        self.assertEqual(self.lines(), [b"[INF] app: 0: app line 1", b"[INF] app: 0: app line 2"])
        self.run_once()  # nothing new: nothing again
        journal_file(os.path.join(journal, "b.journal"), [app(3)], start=10)
        self.run_once()
        self.assertEqual(len(self.lines()), 3)
        # Vacuumed past the saved entry: the monitor says so and starts at the oldest left.
        shutil.rmtree(journal)
        os.mkdir(journal)
        journal_file(os.path.join(journal, "c.journal"), [app(4)], start=20)
        self.run_once()
        self.assertEqual(self.lines()[-1], b"[INF] app: 0: app line 4")
        self.assertEqual(len(self.lines()), 4)
        self.assertIn('ShowEvtLog: ERROR "Application"/87', self.log_text())


class BackupFiles(EventLogAgent):
    def write_evt(self, count, corrupt=None):
        records = [evt_writer.record(n, 1000 + n, 1 if n % 2 else 4, strings=("user%d" % n,))
                   for n in range(1, count + 1)]
        data = bytearray(evt_writer.evt_file(records))
        if corrupt:  # damage the signature of that record
            at = 48 + sum(len(r) for r in records[:corrupt - 1])
            data[at + 4:at + 8] = b"XXXX"
        path = os.path.join(self.dir, "saved.evt")
        with open(path, "wb") as f:
            f.write(data)
        return path

    def test_records_of_a_file_written_to_the_documented_layout(self):
        path = self.write_evt(5)
        export = subprocess.run(["evtexport", path], capture_output=True, text=True, timeout=60)
        self.assertEqual(export.stdout.count("Event number"), 5)  # libevt's own tool agrees
        self.configure({"nReadFromFile": 1, "szLogFileName": path, "szLogType": "Saved",
                        "nFilterEventType": 2})
        self.run_once()
        self.assertEqual(self.lines(), [
            b"[ERR] app: 1001: The description for Event ID ( 1001 ) in Source ( app ) could not"
            b" be found. It contains the following insertion string(s): user1",
            b"[ERR] app: 1003: The description for Event ID ( 1003 ) in Source ( app ) could not"
            b" be found. It contains the following insertion string(s): user3",
            b"[ERR] app: 1005: The description for Event ID ( 1005 ) in Source ( app ) could not"
            b" be found. It contains the following insertion string(s): user5"])

    def test_corrupted_record_is_warned_about_and_stepped_over(self):
        path = self.write_evt(6, corrupt=3)
        self.configure({"nReadFromFile": 1, "szLogFileName": path, "szLogType": "Saved"})
        self.run_once()
        ids = [l.split(b": ")[1] for l in self.lines()]
        self.assertEqual(ids, [b"1001", b"1002", b"1004", b"1005", b"1006"])
        self.assertIn("The Eventlog 'Saved' is corrupted at entry 2.", self.log_text())
        self.run_once()
        self.assertEqual(len(self.lines()), 5)

    def test_every_record_once_across_kills(self):
        total = 20000
        path = self.write_evt(total)
        self.configure({"nReadFromFile": 1, "szLogFileName": path, "szLogType": "Saved"})
        numbers = lambda: [int(l.split(b": ")[1]) - 1000 for l in self.lines()]
        kills = 0
        while True:
            agent = self.spawn("-r")
            target = min(total, len(numbers()) + random.randint(500, 6000))
            self.wait_for(lambda: len(set(numbers())) >= target, "records", 120, agent)
            if target >= total:
                self.stop(agent)
                break
            agent.send_signal(signal.SIGKILL)
            agent.wait()
            kills += 1
        got = numbers()
        self.assertEqual(set(got), set(range(1, total + 1)))
        repeated = sum(c - 1 for c in collections.Counter(got).values())
        self.assertLessEqual(repeated, kills, "more than one repeat per kill")


if __name__ == "__main__":
    unittest.main()
