"""vtagent following a log file into a write-file action: every line is written once, also
across a kill of the agent (at most the line in work at the kill comes twice)."""
import collections
import glob
import os
import random
import signal
import socket
import threading
import time
import unittest

from test_service_host import AgentTestCase, file_lines, services, write_file_rules
from test_syslog import free_port

LINES = 100000


class FileMonitorExactlyOnce(AgentTestCase):
    def output_numbers(self):
        lines = file_lines(*glob.glob(os.path.join(self.out, "*")))
        return [int(l[5:]) for l in lines if l.startswith(b"line ")]

    def test_every_line_once_across_a_kill(self):
        self.out = os.path.join(self.dir, "out")
        os.mkdir(self.out)
        source = os.path.join(self.dir, "app.log")
        open(source, "wb").close()
        monitor = {"nConfigVersion": 1, "szRuleSetName": "Default", "szPathAndFileName": source,
                   "nSleepTime": 100, "nPreventOverrunDelay": 0}
        self.import_config(write_file_rules(self.out, "copy") +
                           services((5, "Application log", monitor)), nWorkerThreads=2)

        def write_lines():
            with open(source, "ab", buffering=0) as f:
                for start in range(0, LINES, 500):
                    f.write("".join(f"line {n:06d}\n" for n in range(start, start + 500))
                            .encode())
                    time.sleep(0.005)

        agent = self.spawn("-r")
        writer = threading.Thread(target=write_lines)
        writer.start()
        self.addCleanup(writer.join)
        # Kill at an arbitrary moment while lines are being read.
        kill_after = random.randint(2000, 40000)
        self.wait_for(lambda: len(self.output_numbers()) >= kill_after,
                      "lines written before the kill", 120, agent)
        agent.send_signal(signal.SIGKILL)
        agent.wait()
        agent = self.spawn("-r")
        writer.join()
        self.wait_for(lambda: len(set(self.output_numbers())) >= LINES,
                      f"all {LINES} lines", 300, agent)
        self.stop(agent)  # anything still to come would be a duplicate
        numbers = self.output_numbers()
        self.assertEqual(set(numbers), set(range(LINES)))
        twice = [n for n, c in collections.Counter(numbers).items() if c > 1]
        self.assertLessEqual(len(twice), 1, twice[:10])
        self.assertLessEqual(len(numbers), LINES + 1)


class UnitIdentity(AgentTestCase):
    def test_units_of_both_inputs_carry_the_configured_ids(self):
        """Customer and system id come from the General key (3 and 3 when not set); the
        facility is the plain number (the stored default 128 is local0, 16)."""
        # The defaults first: an import adds to the hive, it never removes a value.
        for run, (general, ids) in enumerate((({}, "3 3"),
                                              ({"nCustomerID": 7, "nSystemID": 9}, "7 9")), 1):
            with self.subTest(ids=ids):
                out = os.path.join(self.dir, "ids" + ids.replace(" ", ""))
                source = out + ".log"
                with open(source, "wb") as f:
                    f.write(b"from a file\n")
                port = free_port()
                syslog = {"nConfigVersion": 1, "szRuleSetName": "Default", "nListenPort": port,
                          "szMyIPAddress": "127.0.0.1"}
                monitor = {"nConfigVersion": 1, "szRuleSetName": "Default",
                           "szPathAndFileName": source, "nSleepTime": 100}
                self.import_config(
                    write_file_rules(out, line_format="%iut% %CustomerID% %SystemID% "
                                     "%syslogfacility% %msg%%$CRLF%") +
                    services((1, "syslog", syslog), (5, "file", monitor)), **general)
                agent = self.spawn("-r")
                self.wait_for(lambda: self.log_text().count("listening on UDP") == run,
                              "the receiver", agent=agent)
                with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
                    s.sendto(b"<14>from syslog", ("127.0.0.1", port))
                path = os.path.join(out, "out.log")
                self.wait_for(lambda: len(file_lines(path)) >= 2, "both units", agent=agent)
                self.stop(agent)
                self.assertEqual(sorted(file_lines(path)), [b"1 %s 1 from syslog" % ids.encode(),
                                                            b"5 %s 16 from a file" % ids.encode()])


if __name__ == "__main__":
    unittest.main()
